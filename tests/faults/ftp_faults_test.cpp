#include "base/scope.h"
#include "base/text.h"
#include "transfer/fetch_test.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using test::TFtpServer;

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
    {"silent after RETR", kAborted, "nothing", "open|<retr>|stall|break"},
    {"silent after the data", kAborted, "whole, noted", kAll + "|stall|break"},
    {"PASV with five numbers", kNoPort + "227 (1,2,3,4,5)", "nothing", "open>227 (1,2,3,4,5)", Passive},
    {"PASV with a closed port", "Connection Failed", "nothing", "open><closed>", Passive},
    {"data connection never comes", "timed out", "nothing", "open|<retr>150 f|ABOR>226 given up", Active},
    {"data stall", "timed out", "half, noted", kHalf + "<stall>|ABOR>426 cut\n226 given up"},
    {"data stall, ABOR not answered", "timed out", "half, noted", kHalf + "<stall>|ABOR>|stall|break"},
    {"data reset", "426 broken", "6001, noted", "open|<retr>150 f|data:<half><later>x<reset>|>426 broken"},
    {"226 before the data", "", "whole", "open|<retr>150 f (12000 bytes)\n226 done|data:<half><later><half>"},
    {"control closed in mid-transfer", "Connection closed by server", "half, noted", kHalf + "|break"},
    {"shorter than announced", "received 6000 of 12000 bytes", "half, noted", kHalf + "|>226 done"},
    {"size not announced, half comes", "", "half", "open|<retr>150 f|data:<half>|>226 done"},
    {"odd final reply", "ended with: 300 odd", "whole, noted", kAll + "|>300 odd"},
    {"goodbye before the file", "", "whole", ">421 idle|break|" + kWhole},
};

class TFtpFaults : public test::TFetchTest {
 protected:
  TFtpFaults() { BindFtpEvents(NMFTP, Display, listing_); }

  /// Runs a session of two files; the result of the first.
  TFileResult Play(const TFtpFault& fault, bool passive) {
    const std::string login = "login|TYPE I>200 ok|", body = test::Picture(kSize);
    const test::TTexts words = {
        {"body", body}, {"half", body.substr(kSize / 2)}, {"closed", test::PasvReply(test::ClosedPort())}};
    const auto steps = [&](const std::string& text, const char* name) {
      return ReplaceAll(ReplaceAll(text, "break", "next|" + login), "<retr>",
                        std::string("RETR /") + name + ">") +
             "|";
    };
    const TFtpServer server(
        passive,
        login + steps(ReplaceAll(fault.Steps, "\n", "\r\n"), "hit") + steps(kWhole, "next") + "QUIT>221 bye",
        words);
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
    const bool says_goodbye = fault.Steps.starts_with('>');
    TFileResult result;
    RunFtpSession(Context, {server.Address(), "user", "secret", passive}, [&](TFtpSession& session) {
      while (says_goodbye && server.Ends == 0) std::this_thread::yield();
      result = FetchFtp(session, "hit").Result;
      Watch(false);
      NMFTP.TimeOut = 20'000;
      EXPECT_EQ(FetchFtp(session, "next").Result.Outcome, TFileOutcome::Saved) << "the next file comes";
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

}  // namespace
}  // namespace skyreel
