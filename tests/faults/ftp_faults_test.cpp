#include <gmock/gmock.h>

#include <future>

#include "base/text.h"
#include "faults/stage.h"
#include "sources/eu_data.h"
#include "sources/msfc_data.h"
#include "support/failure.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using test::Judge;
using test::Repeated;
using test::TFamily;
using test::TOutcome;
using test::TScriptedServer;
using test::TStage;
using test::TSubject;

enum class TMode { Both, Passive, Active };
using enum TMode;

struct TFtpFault {
  const char* Name;
  std::string Line;  ///< what the line says behind the name; "" none, the file came
  const char* Disk;
  std::string Steps;  ///< of test::TFtpStageServer
  TMode Mode = Both;
  const char* Client = nullptr;  ///< what the client says, if it is something else
};

constexpr auto kAborted = "Socket readln aborted", kTimedOut = "Socket send aborted";
const std::string kNoPort = "No usable port in the reply: ";
const std::string kAll = "open|<retr>150 (<size> bytes)|data:<body>",
                  kHalf = "open|<retr>150 (<size> bytes)|data:<half>";

const TFtpFault kFaults[] = {
    {"550", "550 no such file", "nothing", "open|<retr>550 no such file"},
    {"421 and a close in place of the file", "421 too busy", "nothing", "open|<retr>421 too busy|break"},
    {"421 and a close in reply to PORT", "421 idle", "nothing", "open>421 idle|break", Active},
    {"421 and a close in reply to PASV", kNoPort + "421 idle", "nothing", "open>421 idle|break", Passive},
    {"silent after PORT or PASV", kAborted, "nothing", "*>|stall|break"},
    {"silent after RETR", kAborted, "nothing", "open|<retr>|stall|break"},
    {"silent after the data", kAborted, "whole, noted", kAll + "|stall|break"},
    {"reply of more than 1 MiB", "Reply too large", "nothing",
     "open|<retr>" + Repeated("150-more\n") + "|break"},
    {"reply line of more than 1 MiB", "Line too long", "nothing", "open|<retr>" + Repeated("1") + "|break"},
    {"NUL bytes in the reply", "", "whole", "open|<retr>150 \0\0 f|data:<body>|>226 done"s},
    {"rubbish in place of a reply", "", "whole", "open|<retr>\xfe\xff\x01|data:<body>|>226 done"},
    {"PORT or PASV refused", "500 never", "nothing", "open>500 never"},
    {"PASV with five numbers", kNoPort + "227 (1,2,3,4,5)", "nothing", "open>227 (1,2,3,4,5)", Passive},
    {"PASV with port 0", kNoPort + "227 (1,2,3,4,0,0)", "nothing", "open>227 (1,2,3,4,0,0)", Passive},
    {"PASV with a number of 999", kNoPort + "227 (1,2,3,4,999,9)", "nothing", "open>227 (1,2,3,4,999,9)",
     Passive},
    {"PASV that names another host", "", "whole", test::TFtpStageServer::kWhole, Passive},
    {"PASV with a port where nobody listens", "Connection Failed", "nothing", "open><closed>", Passive},
    {"data connection never comes", "timed out", "nothing", "open|<retr>150 f|ABOR>226 given up", Active,
     "Accepting Canceled"},
    {"data stall", "timed out", "short, noted", kHalf + "<stall>|ABOR>426 cut\n226 given up", Both,
     kTimedOut},
    {"data stall, and ABOR is not answered", "timed out", "short, noted", kHalf + "<stall>|ABOR>|stall|break",
     Both, kTimedOut},
    {"data connection stays open behind the last byte", "timed out", "whole, noted",
     kAll + "<stall>|ABOR>226 given up", Both, kTimedOut},
    {"data reset", "426 broken", "short, noted", "open|<retr>150 f|data:<later><half><reset>|>426 broken",
     Both, "10054:Connection reset by peer"},
    {"150 and then 451", "451 disk error", "short, noted", kHalf + "|>451 disk error", Both,
     "not whole: 451 disk error"},
    {"226 before the data", "", "whole", "open|<retr>150 (<size> bytes)\n226 done|data:<half><later><rest>"},
    {"control connection closed in mid-transfer", "Connection closed by server", "short, noted",
     kHalf + "|break"},
    {"control connection closed behind the last byte", "Connection closed by server", "whole, noted",
     kAll + "|break"},
    {"shorter than announced", "received HALF of ALL bytes", "short, noted", kHalf + "|>226 done", Both,
     "not whole: 226 done"},
    {"longer than announced", "", "whole", "open|<retr>150 (9 bytes)|data:<body>|>226 done"},
    {"announces more than 64 bits can hold", "", "whole",
     "open|<retr>150 (99999999999999999999 bytes)|data:<body>|>226 done"},
    // Nothing gives away that bytes are missing.
    {"size not announced, half of it comes", "", "short", "open|<retr>150 f|data:<half>|>226 done"},
    {"odd final reply", "ended with: 300 odd", "whole, noted", kAll + "|>300 odd", Both,
     "not whole: 300 odd"},
};

void PrintTo(const TFtpFault& fault, std::ostream* out) {
  *out << fault.Name;
}

class FtpFaults : public testing::TestWithParam<TFtpFault> {};
INSTANTIATE_TEST_SUITE_P(Transfer, FtpFaults, testing::ValuesIn(kFaults),
                         [](const auto& info) { return test::TestName(info.param.Name); });

TEST_P(FtpFaults, CostOneFile) {
  const TFtpFault& fault = GetParam();
  const bool aborts = fault.Steps.find("ABOR") != std::string::npos,
             stalls = fault.Steps.find("|stall") != std::string::npos;
  for (const TSubject& subject : test::FtpSubjects()) {
    if (fault.Mode == (subject.Passive ? Active : Passive)) continue;
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    const test::TFtpStageServer server(stage, subject.Passive, fault.Steps);
    const TOutcome seen = stage.Play(aborts ? 300 : 20'000, stalls && !aborts ? 300 : 0);
    const bool client = subject.Family == TFamily::Client;
    const std::string line = client && fault.Client != nullptr ? fault.Client : fault.Line;
    Judge(subject, stage, seen,
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
  const std::string failed = "Connection failed to: 127.0.0.1", closed = " - Connection closed by server";
  const std::string silent = std::string(" - ") + kAborted, refused = "; 530 no";
  const struct {
    const char* Name;
    std::string Script;
    std::string Line;
  } rows[] = {
      {"closes before the greeting", "", closed},
      {"421 and a close as greeting", "421 full\r\n", closed},
      {"greeting without end", Repeated("220-welcome\r\n"), " - Reply too large"},
      {"no greeting", "<stall>", silent},
      {"silent after the greeting", "220 hi\r\n<stall>", silent},
      {"silent after USER", "220 hi\r\n<line><stall>", silent},
      {"user refused", "220 hi\r\n<line>530 no\r\n", refused},
      {"... behind a greeting of 10,000 lines", greeting + "220 hi\r\n<line>530 no\r\n", refused},
      {"... behind NUL bytes", "220 \0\0\r\n<line>530 no\r\n"s, refused},
      {"... behind binary rubbish", "\xfe\xff\x01\r\n<line>530 no\r\n", refused},
  };
  for (const auto& row : rows) {
    for (const TSubject& subject : test::FtpSubjects()) {
      if (subject.Family == TFamily::Client) continue;
      SCOPED_TRACE(std::string(row.Name) + ": " + subject.Name);
      TStage stage(subject.Size);
      subject.Prepare(stage);
      stage.Hit = 0;
      TScriptedServer server(row.Script);
      for (const TServerSetting& setting : {kEuDataServer, kMsfcServer})
        stage.Context.Servers.Set(setting, server.Address());
      const TOutcome seen = stage.Play(20'000, row.Line == silent ? 300 : 0);
      Judge(subject, stage, seen, {failed + row.Line, "nothing"}, "no");
    }
  }
}

TEST(FtpSessionFaults, AGoodbyeBetweenTwoFilesCostsNone) {
  for (const TSubject& subject : test::FtpSubjects()) {
    TStage stage(subject.Size);
    subject.Prepare(stage);
    if (stage.Hit == 0) continue;
    SCOPED_TRACE(subject.Name);
    std::promise<void> gone;
    stage.OnGoodbye = [&] { gone.set_value(); };
    stage.Clock.OnSleep = [&, begin = stage.Clock.OnSleep] {
      begin();
      if (stage.Clock.Slept == 600ms) gone.get_future().wait_for(10s);
    };
    const test::TFtpStageServer server(stage, subject.Passive,
                                       std::string("bye|break|") + test::TFtpStageServer::kWhole);
    Judge(subject, stage, stage.Play(), {"Get: NAME", "whole"});
  }
}

TEST(FtpListingFaults, AreTold) {
  const std::string name = "FES_2003-02-01_1230_M7_IR.GIF\r\n";
  std::string million;
  for (int i = 0; i < 1'000'000; ++i) million += name;
  const struct {
    const char* Name;
    std::string Data, After;
    const char* Says;
    std::size_t Names;
  } rows[] = {
      {"a million names", million, ">226 done", "", 1'000'000},
      {"names with \"../\", \"/\" and control bytes",
       "../../etc/passwd_of_all\r\n/bin/ls\r\na\x01\x1b[2Jbcdefghijklmn\r\n", ">226 done", "", 2},
      {"line of more than 1 MiB", Repeated("n"), "", "Line too long", 0},
      {"silence", name + "<stall>", "", kAborted, 1},
      {"reset", "<later>" + name + "<reset>", ">426 broken", "10054:Connection reset by peer", 1},
      {"451 behind it", name, ">451 error", "", 1},
      {"control connection closed", name, "close", "Connection closed by server", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TStage stage(0);
    TNMFTP& client = stage.NMFTP;
    client.OnConnect = nullptr;
    const test::TFtpServer server(false, "login|open|NLST>150 names|data:" + row.Data + "|" + row.After);
    client.Host = "127.0.0.1";
    client.Port = server.Port();
    client.UserID = "user";
    client.Password = "secret";
    client.TimeOut = 400;
    client.Connect();
    const std::string said = test::Failure([&] { client.NameList(); });
    EXPECT_EQ(said, row.Says);
    EXPECT_EQ(stage.Listing.Names().size(), row.Names);
    for (const std::string& kept : stage.Listing.Names()) EXPECT_TRUE(IsSafeFileName(kept)) << kept;
  }
}

}  // namespace
}  // namespace skyreel
