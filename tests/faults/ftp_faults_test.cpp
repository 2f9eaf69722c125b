#include <gmock/gmock.h>

#include "base/text.h"
#include "faults/stage.h"
#include "support/failure.h"
#include "support/ftp_script.h"
#include "support/reliability_rows.h"
#include "transfer/watchdog_scope.h"

namespace skyreel {
namespace {

using test::Judge;
using test::TFamily;
using test::TOutcome;
using test::TScript;
using test::TScriptedServer;
using test::TStage;
using test::TSubject;
using testing::IsEmpty;

enum class TMode { Both, Passive, Active };
using enum TMode;

struct TFtpFault {
  const char* Name;
  const char* Line;    ///< what the line says behind the name; "" none, the file came
  const char* Client;  ///< what the client says; null: the same
  const char* Disk;
  bool Breaks;  ///< the session is gone behind it
  TMode Mode;
  std::string Steps;
};

std::string Repeated(const std::string& text) {
  std::string all;
  while (all.size() < 1'100'000) all += text;
  return all;
}
constexpr auto kAborted = "Socket readln aborted", kTimedOut = "Socket send aborted",
               kNoPort = "No usable port in the reply: ";
const std::string kAll = "open;retr:150 (<size> bytes);data:<body>",
                  kHalf = "open;retr:150 (<size> bytes);data:<half>";

const TFtpFault kFaults[] = {
    {"550", "550 no such file", nullptr, "nothing", false, Both, "open;retr:550 no such file"},
    {"421 and a close in place of the file", "421 too busy", nullptr, "nothing", true, Both,
     "open;retr:421 too busy"},
    {"421 and a close in reply to PORT", "421 idle", nullptr, "nothing", true, Active, "open:421 idle"},
    {"421 and a close in reply to PASV", "No usable port in the reply: 421 idle", nullptr, "nothing", true,
     Passive, "open:421 idle"},
    {"silent after PORT or PASV", kAborted, nullptr, "nothing", true, Both, "read;stall"},
    {"silent after RETR", kAborted, nullptr, "nothing", true, Both, "open;retr;stall"},
    {"silent after the data", kAborted, nullptr, "whole, noted", true, Both, kAll + ";stall"},
    {"reply of more than 1 MiB", "Reply too large", nullptr, "nothing", true, Both,
     "open;retr:" + Repeated("150-more\n")},
    {"reply line of more than 1 MiB", "Line too long", nullptr, "nothing", true, Both,
     "open;retr:" + Repeated("1")},
    {"NUL bytes in the reply", "", nullptr, "whole", false, Both,
     std::string("open;retr:150 \0\0 f;data:<body>;say:226 done", 43)},
    {"rubbish in place of a reply", "", nullptr, "whole", false, Both,
     "open;retr:\xfe\xff\x01;data:<body>;say:226 done"},
    {"PORT or PASV refused", "500 never", nullptr, "nothing", false, Both, "open:500 never"},
    {"PASV with five numbers", "No usable port in the reply: 227 (1,2,3,4,5)", nullptr, "nothing", false,
     Passive, "open:227 (1,2,3,4,5)"},
    {"PASV with port 0", "No usable port in the reply: 227 (1,2,3,4,0,0)", nullptr, "nothing", false, Passive,
     "open:227 (1,2,3,4,0,0)"},
    {"PASV with a number of 999", "No usable port in the reply: 227 (1,2,3,4,999,9)", nullptr, "nothing",
     false, Passive, "open:227 (1,2,3,4,999,9)"},
    {"PASV that names another host", "", nullptr, "whole", false, Passive, test::TFtpStageServer::kWhole},
    {"PASV with a port where nobody listens", "Connection Failed", nullptr, "nothing", false, Passive,
     "open:<closed>"},
    {"data connection never comes", "timed out", "Accepting Canceled", "nothing", false, Active,
     "open;retr:150 f;abor:226 given up"},
    {"data stall", "timed out", kTimedOut, "short, noted", false, Both,
     kHalf + "<stall>;abor:426 cut\n226 given up"},
    {"data stall, and ABOR is not answered", "timed out", kTimedOut, "short, noted", true, Both,
     kHalf + "<stall>;abor;stall"},
    {"data connection stays open behind the last byte", "timed out", kTimedOut, "whole, noted", false, Both,
     kAll + "<stall>;abor:226 given up"},
    {"data reset", "426 broken", "10054:Connection reset by peer", "short, noted", false, Both,
     "open;retr:150 f;data:<later><half><reset>;say:426 broken"},
    {"150 and then 451", "451 disk error", "not whole: 451 disk error", "short, noted", false, Both,
     kHalf + ";say:451 disk error"},
    {"226 before the data", "", nullptr, "whole", false, Both,
     "open;retr:150 (<size> bytes)\n226 done;data:<half><later><rest>"},
    {"control connection closed in mid-transfer", "Connection closed by server", nullptr, "short, noted",
     true, Both, kHalf},
    {"control connection closed behind the last byte", "Connection closed by server", nullptr, "whole, noted",
     true, Both, kAll},
    {"shorter than announced", "HALF of ALL bytes received", "not whole: 226 done", "short, noted", false,
     Both, kHalf + ";say:226 done"},
    {"longer than announced", "", nullptr, "whole", false, Both,
     "open;retr:150 (9 bytes);data:<body>;say:226 done"},
    {"announces more than 64 bits can hold", "", nullptr, "whole", false, Both,
     "open;retr:150 (99999999999999999999 bytes);data:<body>;say:226 done"},
    // Nothing gives away that bytes are missing.
    {"size not announced, half of it comes", "", nullptr, "short", false, Both,
     "open;retr:150 f;data:<half>;say:226 done"},
    {"odd final reply", "ended with: 300 odd", "not whole: 300 odd", "whole, noted", false, Both,
     kAll + ";say:300 odd"},
};

void PrintTo(const TFtpFault& fault, std::ostream* out) {
  *out << fault.Name;
}

class FtpFaults : public testing::TestWithParam<TFtpFault> {};
INSTANTIATE_TEST_SUITE_P(Transfer, FtpFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

TEST_P(FtpFaults, CostOneFile) {
  const TFtpFault& fault = GetParam();
  const bool aborts = fault.Steps.find("abor") != std::string::npos, stalls = fault.Steps.ends_with("stall");
  for (const TSubject& subject : test::FtpSubjects()) {
    if (fault.Mode == (subject.Passive ? Active : Passive)) continue;
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    const test::TFtpStageServer server(stage, subject.Passive, fault.Breaks, fault.Steps);
    const TOutcome seen = stage.Play(aborts ? 300 : 20'000, stalls && !aborts ? 300 : 0);
    EXPECT_THAT(server.Errors(), IsEmpty());
    const bool client = subject.Family == TFamily::Client;
    const std::string line = client && fault.Client != nullptr ? fault.Client : fault.Line;
    Judge("FTP: files", fault.Name, subject, stage, seen,
          {client         ? line
           : line.empty() ? "Get: NAME"
                          : "Get: NAME; NAME - " + line,
           client ? ReplaceAll(fault.Disk, ", noted", "") : fault.Disk});
  }
}

/// A session that is not opened costs the run, and gets one line.
TEST(FtpSessionFaults, GetOneLine) {
  std::string greeting;
  for (int i = 0; i < 10'000; ++i) greeting += "220-welcome\r\n";
  const struct {
    const char* Name;
    TScript Script;
    const char* Line;
  } rows[] = {
      {"greeting of 10,000 lines, then the user refused",
       TScript().Reply(greeting + "220 at last\r\n").ReadLine().Reply("530 not you\r\n"), "530 not you"},
      {"greeting without end", test::Script(Repeated("220-welcome\r\n")), "Reply too large"},
      {"closes before the greeting", TScript(), "Connection closed by server"},
      {"421 and a close as greeting", test::Script("421 full\r\n"), "Connection closed by server"},
      {"no greeting", TScript().Stall(), kAborted},
      {"silent after the greeting", TScript().Reply("220 hi\r\n").Stall(), kAborted},
      {"silent after USER", TScript().Reply("220 hi\r\n").ReadLine().Stall(), kAborted},
      {"NUL bytes in the greeting",
       TScript().Reply(std::string("220 \0\0\r\n", 8)).ReadLine().Reply("530 no\r\n"), "530 no"},
      {"binary rubbish as greeting", TScript().Reply("\xfe\xff\x01\r\n").ReadLine().Reply("530 no\r\n"),
       "530 no"},
  };
  for (const auto& row : rows) {
    for (const TSubject& subject : test::FtpSubjects()) {
      SCOPED_TRACE(std::string(row.Name) + ": " + subject.Name);
      if (subject.Family == TFamily::Client) continue;
      TStage stage(subject.Size);
      subject.Prepare(stage);
      stage.Hit = 0;
      TScriptedServer server(row.Script);
      stage.Context.Servers.EuDA = stage.Context.Servers.MSFC = server.Address();
      const TOutcome seen = stage.Play(20'000, row.Line == std::string(kAborted) ? 300 : 0);
      const std::string failed = "Connection failed to: 127.0.0.1";
      const bool refused = std::string(row.Line).starts_with("530");
      Judge("FTP: sessions", row.Name, subject, stage, seen,
            {failed + (refused ? "; " : " - ") + row.Line, "nothing"}, "no");
    }
  }
}

TEST(FtpListingFaults, AreTold) {
  std::string many;
  for (int i = 0; i < 300'000; ++i) many += "FES_2003-02-01_1230_M7_IR.GIF\r\n";
  const struct {
    const char* Name;
    std::string Data, After;
    const char* Says;
    std::size_t Names;
  } rows[] = {
      {"300,000 names", many, "226 done", "", 300'000},
      {"names with \"../\", \"/\" and control bytes",
       "../../etc/passwd_of_all\r\n/bin/ls\r\na\x01\x1b[2Jbcdefghijklmn\r\n", "226 done", "", 2},
      {"line of more than 1 MiB", Repeated("n"), "", "Line too long", 0},
      {"silence", "FES_2003-02-01_1230_M7_IR.GIF\r\n<stall>", "", kAborted, 1},
      {"reset", "<later>FES_2003-02-01_1230_M7_IR.GIF\r\n<reset>", "", "10054:Connection reset by peer", 1},
      {"451 behind it", "FES_2003-02-01_1230_M7_IR.GIF\r\n", "451 error", "", 1},
      {"control connection closed", "FES_2003-02-01_1230_M7_IR.GIF\r\n", "", "Connection closed by server",
       1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TStage stage(0);
    stage.NMFTP.OnConnect = nullptr;
    TScript script = test::FtpLogin().ReadLine().Reply("200 ok\r\n").Exchange("NLST", "150 names");
    script.ConnectBack(test::Script(row.Data));
    if (!row.After.empty()) script.Reply(row.After + "\r\n");
    TScriptedServer server(script);
    stage.NMFTP.Host = "127.0.0.1";
    stage.NMFTP.Port = server.Port();
    stage.NMFTP.UserID = "user";
    stage.NMFTP.Password = "secret";
    stage.NMFTP.TimeOut = 400;
    stage.NMFTP.Connect();
    const std::string said = test::Failure([&] { stage.NMFTP.NameList(); });
    EXPECT_EQ(said, row.Says);
    EXPECT_EQ(stage.Listing.Names().size(), row.Names);
    for (const std::string& name : stage.Listing.Names()) EXPECT_TRUE(IsSafeFileName(name)) << name;
    test::AddReliabilityRow("FTP: name listings", row.Name, "TNMFTP", said,
                            std::to_string(stage.Listing.Names().size()) + " names kept, no file", "-");
  }
}

}  // namespace
}  // namespace skyreel
