#include <gmock/gmock.h>

#include "base/text.h"
#include "faults/stage.h"
#include "support/ftp_script.h"

namespace skyreel {
namespace {

using std::chrono::milliseconds;
using test::Judge;
using test::TFamily;
using test::TFtpTurn;
using test::TOutcome;
using test::TScript;
using test::TStage;
using test::TSubject;

enum class TMode { Both, Passive, Active };
enum class TNeeds { Nothing, TimeOut, Watchdog };

struct TFtpFault {
  const char* Name;
  const char* Line;    ///< what the line says behind the name; "" none, the file came
  const char* Client;  ///< what the client says; null: the same
  const char* Disk;
  bool Breaks;  ///< the session is gone behind it
  TNeeds Needs;
  TMode Mode;
  void (*Act)(TFtpTurn& turn);
};

std::string Opening(std::size_t size) {
  return "150 here it comes (" + std::to_string(size) + " bytes)\r\n";
}
TScript HalfOf(const TFtpTurn& turn) {
  return TScript().Reply(turn.Body.substr(0, turn.Body.size() / 2));
}
std::string Repeated(const std::string& text, std::size_t count) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}
const std::string kDone = "226 done\r\n";
constexpr auto kReset = "10054:Connection reset by peer";
using enum TMode;
using enum TNeeds;

const TFtpFault kFaults[] = {
    {"550", "550 no such file", nullptr, "nothing", false, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start("550 no such file\r\n"); }},
    {"421 and a close in place of the file", "421 too busy", nullptr, "nothing", true, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start("421 too busy\r\n"); }},
    {"421 in reply to PORT or PASV", "421 idle", nullptr, "nothing", true, Nothing, Active,
     [](TFtpTurn& t) { t.Control.ReadLine().Reply("421 idle\r\n"); }},
    {"421 in reply to PORT or PASV", "No usable port in the reply: 421 idle", nullptr, "nothing", true,
     Nothing, Passive, [](TFtpTurn& t) { t.Control.ReadLine().Reply("421 idle\r\n"); }},
    {"silent after PORT or PASV", "Socket readln aborted", nullptr, "nothing", true, Watchdog, Both,
     [](TFtpTurn& t) { t.Control.ReadLine().Stall(); }},
    {"silent after RETR", "Socket readln aborted", nullptr, "nothing", true, Watchdog, Both,
     [](TFtpTurn& t) { t.Open().Start("").Control.Stall(); }},
    {"silent after the data", "Socket readln aborted", nullptr, "whole, noted", true, Watchdog, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(TScript().Reply(t.Body)).Control.Stall();
     }},
    {"reply of more than 1 MiB", "Reply too large", nullptr, "nothing", true, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start(Repeated("150-more\r\n", 120'000)); }},
    {"reply line of 1 MiB", "Line too long", nullptr, "nothing", true, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start(Repeated("1", 1 << 20)); }},
    {"NUL bytes in the reply", "", nullptr, "whole", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open().Start(std::string("150 \0\0 f\r\n", 10)).Data(TScript().Reply(t.Body)).Control.Reply(kDone);
     }},
    {"rubbish in place of a reply", "", nullptr, "whole", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open().Start("\xfe\xff\x01\r\n").Data(TScript().Reply(t.Body)).Control.Reply(kDone);
     }},
    {"PORT or PASV refused", "500 never", nullptr, "nothing", false, Nothing, Both,
     [](TFtpTurn& t) { t.Control.ReadLine().Reply("500 never\r\n"); }},
    {"PASV with five numbers", "No usable port in the reply: 227 (1,2,3,4,5)", nullptr, "nothing", false,
     Nothing, Passive, [](TFtpTurn& t) { t.Control.ReadLine().Reply("227 (1,2,3,4,5)\r\n"); }},
    {"PASV with port 0", "No usable port in the reply: 227 (1,2,3,4,0,0)", nullptr, "nothing", false, Nothing,
     Passive, [](TFtpTurn& t) { t.Control.ReadLine().Reply("227 (1,2,3,4,0,0)\r\n"); }},
    {"PASV with numbers beyond 255", "No usable port in the reply: 227 (1,2,3,4,999,9)", nullptr, "nothing",
     false, Nothing, Passive, [](TFtpTurn& t) { t.Control.ReadLine().Reply("227 (1,2,3,4,999,9)\r\n"); }},
    {"PASV that names another host", "", nullptr, "whole", false, Nothing, Passive,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(TScript().Reply(t.Body)).Control.Reply(kDone);
     }},
    {"PASV with a port where nobody listens", "Connection Failed", nullptr, "nothing", false, Nothing,
     Passive, [](TFtpTurn& t) { t.Control.ReadLine().Reply(test::PasvReply(test::ClosedPort()) + "\r\n"); }},
    {"data connection never comes", "timed out", "Accepting Canceled", "nothing", false, TimeOut, Active,
     [](TFtpTurn& t) { t.Open().Start(Opening(9)).Control.Exchange("ABOR", "226 given up"); }},
    {"data stall", "timed out", "Socket send aborted", "short, noted", false, TimeOut, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(HalfOf(t).Stall());
       t.Control.Exchange("ABOR", "426 cut\r\n226 given up");
     }},
    {"data stall, and ABOR is not answered", "timed out", "Socket send aborted", "short, noted", true,
     TimeOut, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(HalfOf(t).Stall());
       t.Control.Expect("ABOR").Stall();
     }},
    {"data connection stays open behind the last byte", "timed out", "Socket send aborted", "whole, noted",
     false, TimeOut, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(TScript().Reply(t.Body).Stall());
       t.Control.Exchange("ABOR", "226 given up");
     }},
    {"data reset", "426 broken", kReset, "short, noted", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open()
           .Start(Opening(t.Body.size()))
           .Data(
               TScript().Drip(t.Body.substr(0, t.Body.size() / 2), milliseconds(300), t.Body.size()).Reset())
           .Control.Reply("426 broken\r\n");
     }},
    {"150 and then 451", "451 disk error", "not whole: 451 disk error", "short, noted", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(HalfOf(t)).Control.Reply("451 disk error\r\n");
     }},
    {"226 before the data", "", nullptr, "whole", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size()) + kDone).Data(TScript().Drip(t.Body, milliseconds(2), 1000));
     }},
    {"control connection closed in mid-transfer", "Connection closed by server", nullptr, "short, noted",
     true, Nothing, Both, [](TFtpTurn& t) { t.Open().Start(Opening(t.Body.size())).Data(HalfOf(t)); }},
    {"control connection closed behind the last byte", "Connection closed by server", nullptr, "whole, noted",
     true, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start(Opening(t.Body.size())).Data(TScript().Reply(t.Body)); }},
    {"shorter than announced", "HALF of ALL bytes received", "not whole: 226 done", "short, noted", false,
     Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start(Opening(t.Body.size())).Data(HalfOf(t)).Control.Reply(kDone); }},
    {"longer than announced", "", nullptr, "whole", false, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start(Opening(9)).Data(TScript().Reply(t.Body)).Control.Reply(kDone); }},
    {"announces more than 64 bits can hold", "", nullptr, "whole", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open()
           .Start("150 f (99999999999999999999 bytes)\r\n")
           .Data(TScript().Reply(t.Body))
           .Control.Reply(kDone);
     }},
    // Nothing gives away that bytes are missing.
    {"size not announced, half of it comes", "", nullptr, "short", false, Nothing, Both,
     [](TFtpTurn& t) { t.Open().Start("150 f\r\n").Data(HalfOf(t)).Control.Reply(kDone); }},
    {"odd final reply", "ended with: 300 odd", "not whole: 300 odd", "whole, noted", false, Nothing, Both,
     [](TFtpTurn& t) {
       t.Open().Start(Opening(t.Body.size())).Data(TScript().Reply(t.Body)).Control.Reply("300 odd\r\n");
     }},
};

class FtpFaults : public testing::TestWithParam<TFtpFault> {};

TEST_P(FtpFaults, CostsOneFile) {
  const TFtpFault& fault = GetParam();
  for (const TSubject& subject : test::FtpSubjects()) {
    if (fault.Mode == (subject.Passive ? Active : Passive)) continue;
    SCOPED_TRACE(subject.Name);
    TStage stage(subject.Size);
    subject.Prepare(stage);
    const test::TFtpStageServer server(stage, subject.Passive, fault.Breaks, fault.Act);
    const TOutcome seen =
        stage.Play(fault.Needs == TimeOut ? 300 : 20'000, fault.Needs == Watchdog ? 300 : 0);
    EXPECT_THAT(server.Errors(), testing::IsEmpty());
    const bool client = subject.Family == TFamily::Client;
    const std::string line = client && fault.Client ? fault.Client : fault.Line;
    Judge("FTP: transfers", fault.Name, subject, stage, seen,
          {client         ? line
           : line.empty() ? "Get: NAME"
                          : "Get: NAME; NAME - " + line,
           client ? ReplaceAll(fault.Disk, ", noted", "") : fault.Disk});
  }
}

INSTANTIATE_TEST_SUITE_P(Transfer, FtpFaults, testing::ValuesIn(kFaults), [](const auto& info) {
  return test::TestName(info.param.Name + std::string(info.param.Mode == Passive ? " passive" : ""));
});

}  // namespace
}  // namespace skyreel
