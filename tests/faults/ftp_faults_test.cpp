#include "base/scope.h"
#include "base/text.h"
#include "faults/fault_test.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using test::Repeated;
using test::TFtpServer;
using testing::ElementsAre;

enum class TMode { Both, Passive, Active };
using enum TMode;

constexpr auto kAborted = "Socket readln aborted";
const std::string kNoPort = "No usable port in the reply: ";
const std::string kWhole = "open|<retr>150 (12000 bytes)|data:<body>|>226 done";
const std::string kAll = "open|<retr>150 (12000 bytes)|data:<body>",
                  kHalf = "open|<retr>150 (12000 bytes)|data:<half>";

struct TFtpFault {
  const char* Name;
  std::string Reason;  ///< empty: the file came
  const char* Left;
  std::string
      Steps;  ///< of TFtpServer; "<retr>" is the command with its '>'. "break": the client comes again
  TMode Mode = Both;
} const kFaults[] = {
    {"550", "550 no such file", "nothing", "open|<retr>550 no such file"},
    {"421 and a close", "421 too busy", "nothing", "open|<retr>421 too busy|break"},
    {"421 in reply to PORT", "421 idle", "nothing", "open>421 idle|break", Active},
    {"421 in reply to PASV", kNoPort + "421 idle", "nothing", "open>421 idle|break", Passive},
    {"silent after PORT or PASV", kAborted, "nothing", "*>|stall|break"},
    {"silent after RETR", kAborted, "nothing", "open|<retr>|stall|break"},
    {"silent after the data", kAborted, "whole, noted", kAll + "|stall|break"},
    {"reply of more than 1 MiB", "Reply too large", "nothing", "open|<retr><many>|break"},
    {"reply line of more than 64 KiB", "Line too long", "nothing", "open|<retr><mega>|break"},
    {"NUL bytes in the reply", "", "whole", "open|<retr>150 \0\0 f|data:<body>|>226 done"s},
    {"rubbish for a reply", "", "whole", "open|<retr>\xfe\xff\x01|data:<body>|>226 done"},
    {"PORT or PASV refused", "500 never", "nothing", "open>500 never"},
    {"PASV with five numbers", kNoPort + "227 (1,2,3,4,5)", "nothing", "open>227 (1,2,3,4,5)", Passive},
    {"PASV with port 0", kNoPort + "227 (1,2,3,4,0,0)", "nothing", "open>227 (1,2,3,4,0,0)", Passive},
    {"PASV with a closed port", "Connection Failed", "nothing", "open><closed>", Passive},
    {"data connection never comes", "timed out", "nothing", "open|<retr>150 f|ABOR>226 given up", Active},
    {"data stall", "timed out", "half, noted", kHalf + "<stall>|ABOR>426 cut\n226 given up"},
    {"data stall, ABOR not answered", "timed out", "half, noted", kHalf + "<stall>|ABOR>|stall|break"},
    {"data connection stays open", "timed out", "whole, noted", kAll + "<stall>|ABOR>226 given up"},
    {"data reset", "426 broken", "6001, noted", "open|<retr>150 f|data:<half><later>x<reset>|>426 broken"},
    {"150 and then 451", "451 disk error", "half, noted", kHalf + "|>451 disk error"},
    {"226 before the data", "", "whole", "open|<retr>150 f (12000 bytes)\n226 done|data:<half><later><half>"},
    {"control closed in mid-transfer", "Connection closed by server", "half, noted", kHalf + "|break"},
    {"control closed after the data", "Connection closed by server", "whole, noted", kAll + "|break"},
    {"shorter than announced", "received 6000 of 12000 bytes", "half, noted", kHalf + "|>226 done"},
    {"longer than announced", "", "whole", "open|<retr>150 (9 bytes)|data:<body>|>226 done"},
    {"size not announced, half comes", "", "half", "open|<retr>150 f|data:<half>|>226 done"},
    {"odd final reply", "ended with: 300 odd", "whole, noted", kAll + "|>300 odd"},
    {"goodbye before the file", "", "whole", "bye|break|" + kWhole},
};

class TFtpFaults : public test::TFaultTest {
 protected:
  TFtpFaults() { BindFtpEvents(NMFTP, Display, listing_); }

  /// Runs a session of two files; the result of the first.
  TFileResult Play(const TFtpFault& fault, bool passive) {
    const std::string login = "login|TYPE I>200 ok|", body = test::Picture(kSize);
    const test::TTexts words = {{"body", body},
                                {"half", body.substr(kSize / 2)},
                                {"many", Repeated("150-more\r\n")},
                                {"mega", Repeated("1")},
                                {"closed", test::PasvReply(test::ClosedPort())}};
    const auto steps = [&](const std::string& text, const char* name) {
      return ReplaceAll(ReplaceAll(text, "break", "next|" + login), "<retr>",
                        std::string("RETR /") + name + ">") +
             "|";
    };
    std::atomic<bool> gone = false;
    const TFtpServer server(
        passive,
        login + steps(ReplaceAll(fault.Steps, "\n", "\r\n"), "hit") + steps(kWhole, "next") + "QUIT>221 bye",
        words, [&] { gone = true; });
    // A time-out that aborts starts only when everything came; without any data it is one second.
    const bool aborts = fault.Steps.find("ABOR") != std::string::npos;
    const std::int64_t all = fault.Steps.find("<half>") != std::string::npos ? kSize / 2 : kSize;
    const TScopedValue packet(NMFTP.OnPacketRecvd, [&](TPowersock& data) {
      if (aborts && data.ReceivedByteCount == all) data.TimeOut = 50;
      if (aborts && fault.Steps.ends_with("break")) NMFTP.TimeOut = 50;
    });
    const bool no_data = aborts && fault.Steps.find("data:") == std::string::npos;
    Context.Shared.TimeoutSeconds = no_data ? 1 : 20;
    Stalls = &server.Stalls;
    Watch(!aborts);
    const bool says_goodbye = fault.Steps.starts_with("bye");
    TFileResult result;
    RunFtpSession(Context, {server.Address(), "user", "secret", passive}, [&](TFtpSession& session) {
      while (says_goodbye && !gone) std::this_thread::yield();
      result = FetchFtp(session, "hit");
      Watch(false);
      NMFTP.TimeOut = 20'000;
      EXPECT_EQ(FetchFtp(session, "next").Outcome, TFileOutcome::Saved) << "the next file comes";
    });
    return result;
  }

  TFtpListing listing_;
};

TEST_F(TFtpFaults, CostOneFileAndAreNamed) {
  for (const TFtpFault& fault : kFaults) {
    for (const bool passive : {false, true}) {
      if (fault.Mode == (passive ? Active : Passive)) continue;
      SCOPED_TRACE(testing::Message() << fault.Name << (passive ? ", passive" : ", active"));
      const TFileResult result = Play(fault, passive);
      EXPECT_EQ(result.Reason, fault.Reason);
      EXPECT_EQ(result.Outcome == TFileOutcome::Saved, fault.Reason.empty());
      EXPECT_EQ(Left("hit"), fault.Left);
      std::filesystem::remove(Output("hit"));
      std::filesystem::remove(Output("next"));
      if (Ledger.Begin(Output("hit"))) Ledger.End(Output("hit"), TTransferEnd::Whole);
    }
  }
  EndFtpRun();
}

/// A session that cannot be opened costs the run and gets one line.
TEST_F(TFtpFaults, OfASessionGetOneLine) {
  const std::string failed = "Connection failed to: 127.0.0.1", closed = " - Connection closed by server";
  const std::string silent = std::string(" - ") + kAborted;
  const struct {
    std::string Script, Line;
  } rows[] = {
      {"", closed},
      {"421 full\r\n", closed},
      {Repeated("220-welcome\r\n"), " - Reply too large"},
      {"<stall>", silent},
      {"220 hi\r\n<stall>", silent},
      {"220 hi\r\n<line><stall>", silent},
      {"220-welcome\r\n220 \0\0\r\n<line>530 no secret\r\n"s, "|530 no ***"},
      {"\xfe\xff\x01\r\n<line>530 no\r\n", "|530 no"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Script.substr(0, 40));
    test::TScriptedServer server(row.Script);
    Stalls = &server.Stalls;
    Watch(true);
    EXPECT_FALSE(RunFtpSession(Context, {server.Address(), "user", "secret"},
                               [](TFtpSession&) { ADD_FAILURE() << "no session was opened"; }));
    std::string lines;
    for (const std::string& line : Lines()) lines += (lines.empty() ? "" : "|") + line;
    EXPECT_EQ(lines, failed + row.Line);
  }
}

TEST_F(TFtpFaults, OfANameListing) {
  const std::string name = "FES_2003-02-01_1230_M7_IR.GIF\r\n";
  const struct {
    std::string Data, After, Says;
    std::size_t Names;
  } rows[] = {
      {Repeated(name), ">226 done", "", Repeated(name).size() / name.size()},
      {"../../etc/passwd_of_all\r\n/bin/ls\r\na\x01\x1b[2Jbcdefghijklmn\r\n", ">226 done", "", 2},
      {Repeated("n"), "", "Line too long", 0},
      {name + "<stall>", "", kAborted, 1},
      {"<later>" + name + "<reset>", ">426 broken", "10054:Connection reset by peer", 1},
      {name, "close", "Connection closed by server", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Data.substr(0, 40));
    listing_.Clear();
    const TFtpServer server(false, "login|open|NLST>150 names|data:<names>|" + row.After,
                            {{"names", row.Data}});
    NMFTP.Host = "127.0.0.1";
    NMFTP.Port = server.Port();
    NMFTP.UserID = NMFTP.Password = "user";
    NMFTP.Connect();
    Stalls = &server.Stalls;
    Watch(true);
    EXPECT_EQ(test::Failure([&] { NMFTP.NameList(); }), row.Says);
    EXPECT_EQ(listing_.Names().size(), row.Names);
    for (const std::string& kept : listing_.Names()) EXPECT_TRUE(IsSafeFileName(kept)) << kept;
    NMFTP.TPowersock::Disconnect();
  }
  Display.Progress.push_back(0);
}

}  // namespace
}  // namespace skyreel
