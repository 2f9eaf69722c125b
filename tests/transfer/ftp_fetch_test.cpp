#include "transfer/ftp_fetch.h"

#include <unistd.h>

#include "base/scope.h"
#include "base/text.h"
#include "transfer/child_process.h"
#include "transfer/fetch_test.h"

namespace skyreel {
namespace {

using test::TFtpServer;
using namespace testing;
using namespace std::chrono_literals;

constexpr auto kPauses = 600ms;

/// One session; "FILE" stands for the command that downloads the file in active mode.
std::string Talk(const std::string& talk) {
  return "login|TYPE I>200 ok|" + ReplaceAll(talk, "FILE", "open|RETR /a.gif");
}

class FtpFetch : public test::TFetchTest {
 protected:
  FtpFetch() { BindFtpEvents(NMFTP, Display, listing_); }
  void TearDown() override {
    EndFtpRun();
    TFetchTest::TearDown();
  }
  TFtpLogin Login(const test::TScriptedServer& server) const {
    return {server.Address(), "user", "secret", false, false};
  }
  bool Fetch(TFtpSession& session, const std::string& name = "a.gif") {
    return FetchFtp(session, name).Received;
  }

  TFtpListing listing_;
  const std::filesystem::path local_ = Output("a.gif");
};

TEST_F(FtpFetch, AFileComesWithItsLinesPausesProgressAndNote) {
  TFtpServer server(false, Talk("FILE>150 f (10 bytes)|data:0123456789|>226 done|QUIT>221 bye"));
  bool noted = false;
  const auto show = NMFTP.OnPacketRecvd;
  NMFTP.OnPacketRecvd = [&](TPowersock& sender) {
    show(sender);
    noted = Ledger.IsNoted(local_) && Run.WatchdogArmed;
  };
  EXPECT_TRUE(RunFtpSession(Context, Login(server), [&](TFtpSession& session) {
    EXPECT_FALSE(session.UsesWinInet());
    EXPECT_TRUE(Fetch(session));
  }));
  EXPECT_EQ(ReadWholeFile(local_), "0123456789");
  EXPECT_TRUE(noted);
  EXPECT_TRUE(Ledger.Present(local_));
  EXPECT_THAT(Display.Panels,
              ElementsAre(std::pair(1, "FTP get:  /a.gif"), std::pair(1, "Received:  a.gif")));
  EXPECT_EQ(Clock.Slept, kPauses);
  EXPECT_THAT(Display.BytesLabels, ElementsAre("100%", ""));
}

/// kept: after a failed transfer an older file counts as received.
TEST_F(FtpFetch, AFailureKeepsAnOlderFileAndTheWatchdogUntilTheSessionEnds) {
  for (const bool older : {false, true}) {
    if (older) WriteOutput("a.gif", "old");
    TFtpServer server(false, Talk("FILE>550 no such \1file|QUIT>500 no"));
    RunFtpSession(Context, Login(server), [&](TFtpSession& session) {
      EXPECT_EQ(Fetch(session), older);
      EXPECT_TRUE(Run.WatchdogArmed);
    });
    EXPECT_THAT(Lines(), ElementsAre("Get: a.gif", "a.gif - 550 no such file"));
    EXPECT_EQ(Ledger.Present(local_), older);
    EXPECT_EQ(std::exchange(Clock.Slept, {}), kPauses);
    EXPECT_FALSE(Run.WatchdogArmed);
  }
}

TEST_F(FtpFetch, AnEndlessFileIsGivenUpAndNotKept) {
  TFtpServer server(false, Talk("FILE>150 f (5 bytes)|data:hello|ABOR>426 cut\r\n226 ok|QUIT>221 bye"));
  Context.LargestDownload = 4;
  RunFtpSession(Context, Login(server), [&](TFtpSession& session) { EXPECT_FALSE(Fetch(session)); });
  EXPECT_THAT(Lines(), ElementsAre("Get: a.gif", "a.gif - given up: larger than 0 MiB"));
  EXPECT_FALSE(std::filesystem::exists(local_));
}

TEST_F(FtpFetch, WhatCannotBeStoredIsNotAskedFor) {
  const pid_t copy = test::StartCopy(Folder / "ledger.txt", local_);
  WriteOutput("file", "x");
  TFtpServer server(false, Talk("*>500 no|QUIT>221 bye"));
  RunFtpSession(Context, Login(server), [&](TFtpSession& session) {
    EXPECT_FALSE(Fetch(session));
    EXPECT_EQ(Lines().back(), "a.gif - another copy of the program is fetching it");
    for (const std::string name : {"../x", "", "x\r\nDELE y"}) {
      EXPECT_FALSE(Fetch(session, name));
      EXPECT_EQ(Lines().back(), ReplaceAll(name, "\r\n", "") + " - not a usable file name");
    }
    EXPECT_FALSE(FetchFtp(session, "a", "file/10/").Received);
    EXPECT_THAT(Lines().back(), HasSubstr("a - the local folder cannot be made: "));
    EXPECT_FALSE(FetchFtp(session, "a", "2005/11/10/").Received);
    EXPECT_EQ(Lines().back(), "a - 500 no");
  });
  EXPECT_THAT(Tree(), ElementsAre(Key("file")));
  test::KillCopy(copy);
}

TEST_F(FtpFetch, ASessionThatCannotBeOpenedSaysSoAndDoesNoWork) {
  const std::string failed = "Connection failed to: 127.0.0.1";
  const std::string bad = "\"host:0\" is not an FTP server address (host or host:port)";
  // What the server says, the lines, and the last one after the server's name.
  const std::tuple<const char*, test::TWords, std::string, std::string> rows[] = {
      {"", {failed}, "refused the connection", "127.0.0.1:" + std::to_string(test::ClosedPort())},
      {">421 full|close",
       {failed + " - Connection closed by server"},
       "cannot be asked: Connection closed by server",
       ""},
      {">220 hi|USER user>331 pw|PASS secret>530 secret is wrong",
       {failed, "530 *** is wrong"},
       "refused the login: 530 *** is wrong",
       ""},
      {">220 hi|USER user>230 in|TYPE I>504 no", {failed + " - 504 no"}, "refused the session: 504 no", ""},
      {"", {bad}, "cannot be asked: " + bad, "host:0"},
  };
  for (auto [talk, lines, problem, other] : rows) {
    TFtpServer server(false, talk);
    TFtpLogin login = Login(server);
    if (!other.empty()) login.Server = other;
    EXPECT_FALSE(RunFtpSession(Context, login, [](TFtpSession&) { ADD_FAILURE(); }));
    lines.push_back("Tab: ftp://" + login.Server + " " + problem);
    EXPECT_EQ(Lines(), lines);
    EXPECT_FALSE(NMFTP.Connected || Run.WatchdogArmed);
  }
}

TEST_F(FtpFetch, ABrokenSessionIsOpenedAgainButNotForEver) {
  const std::string breaks = Talk("*>|next|"), fetches = Talk("FILE>150 f|data:x|>226 done|next|");
  TFtpServer server(false, breaks + breaks + fetches + breaks + breaks + Talk("*>|close"));
  RunFtpSession(Context, Login(server), [&](TFtpSession& session) {
    std::string results;
    for (int n = 0; n < 8; ++n) {
      std::filesystem::remove(local_);
      results += Fetch(session) ? "x" : "-";
    }
    EXPECT_EQ(results, "--x-----");
    EXPECT_TRUE(session.IsLost());
  });
  EXPECT_EQ(server.Received().size(), 6u);
  EXPECT_EQ(Display.Lines.back(), "FTP session given up: 3 new connections in a row brought no file");
  // The waits before the five new connections, and the pauses of six files.
  EXPECT_EQ(Clock.Slept, 1s + 5s + 1s + 5s + 30s + 6 * kPauses);
}

TEST_F(FtpFetch, AServerThatIsAwayGetsTimeToComeBackUntilAStop) {
  for (const bool stop : {false, true}) {
    TFtpServer server(false, Talk("FILE>550 no|close"));
    Clock.OnSleep = [&, end = Clock.Now + 2s] { Run.Stop = stop && Clock.Now > end; };
    RunFtpSession(Context, Login(server), [&](TFtpSession& session) {
      Fetch(session);
      server.Stop();
      EXPECT_FALSE(Fetch(session));
      EXPECT_EQ(session.IsLost(), !stop);
      EXPECT_FALSE(Run.WatchdogArmed) << "the failed file had left it armed";
    });
    EXPECT_THAT(Lines(), SizeIs(stop ? 3 : 2 + 3 + 2));
    EXPECT_EQ(std::exchange(Clock.Slept, {}), kPauses + (stop ? 1500ms : 36s));
  }
}

TEST_F(FtpFetch, ClientEventsShowAsLinesPanelsAndNames) {
  TNMFTP& client = NMFTP;
  client.OnStatus(client, "226-a\tb\r\n");
  client.Host = "far.example";
  client.OnConnectionFailed(client);
  EXPECT_THAT(Lines(), ElementsAre("226-ab", "Connection failed to: far.example"));
  for (int type = 0; type <= 15; ++type) {
    bool handled = false;
    client.OnFailure(client, handled, static_cast<TCmdType>(type));
    client.OnSuccess(client, static_cast<TCmdType>(type));
    EXPECT_EQ(handled, type == 8);
  }
  EXPECT_THAT(Display.Panels, ElementsAre(std::pair(1, "Transfer failed"), std::pair(1, "")));

  client.OnListItem(client, "abc def/ghi:jkl\\m");  // 13 characters are kept of it
  client.OnListItem(client, "../../etc/passwd-.Z_9\xc3\xa4");
  EXPECT_THAT(listing_.Names(), ElementsAre("....etcpasswd-.Z_9"));
  for (int n = 1; n < 200; ++n) client.OnListItem(client, "abc def/ghi:jkl\\mn");
  EXPECT_EQ(listing_.Names().back(), "abcdefghijklmn");
  EXPECT_EQ(Display.Progress[61], 50);
  EXPECT_EQ(Display.Progress.back(), 100);
}

// --- Faults ----------------------------------------------------------------------------------------------

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
    {"421 and a close", "421 too busy", "nothing", "open|<retr>421 too busy|break"},
    {"silent after RETR", kAborted, "nothing", "open|<retr>|stall|break"},
    {"silent after the data", kAborted, "whole, noted", kAll + "|stall|break"},
    {"PASV with five numbers", kNoPort + "227 (1,2,3,4,5)", "nothing", "open>227 (1,2,3,4,5)", Passive},
    {"PASV with a closed port", "Connection Failed", "nothing", "open><closed>", Passive},
    {"data connection never comes", "timed out (passive mode may help)", "nothing",
     "open|<retr>150 f|ABOR>425 cannot\n226 given up", Active},
    {"425 instead of the data connection", "425 cannot (passive mode may help)", "nothing",
     "open|<retr>150 f\n425 cannot|ABOR>226 done", Active},
    {"a stranger is faster", "", "whole", "open|<retr>150 f|stranger|data:<body>|>226 done", Active},
    {"data stall", "timed out", "half, noted", kHalf + "<stall>|ABOR>426 cut\n226 given up"},
    {"data stall, ABOR not answered", "timed out", "half, noted", kHalf + "<stall>|ABOR>|stall|break"},
    {"data stall, one reply to ABOR", "timed out", "half, noted", kHalf + "<stall>|ABOR>426 cut|stall|break"},
    {"data reset", "426 broken", "6001, noted", "open|<retr>150 f|data:<half><later>x<reset>|>426 broken"},
    {"226 before the data", "", "whole", "open|<retr>150 f (12000 bytes)\n226 done|data:<half><later><half>"},
    {"control closed in mid-transfer", "Connection closed by server", "half, noted", kHalf + "|break"},
    {"shorter than announced", "received 6000 of 12000 bytes", "half, noted", kHalf + "|>226 done"},
    {"size not announced, half comes", "", "half", "open|<retr>150 f|data:<half>|>226 done"},
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
    RunFtpSession(Context, {server.Address(), "user", "6000", passive}, [&](TFtpSession& session) {
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
