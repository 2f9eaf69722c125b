#include "transfer/ftp_fetch.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "base/files.h"
#include "base/text.h"
#include "support/child_process.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using test::TFtpServer;
using namespace testing;
using TLines = std::vector<std::string>;

const std::string kName = "FES_2003-02-01_1230_M7_IR.GIF";
const std::string kRemote = "/M7/" + kName;
constexpr std::chrono::milliseconds kPauses{600};

/// One session; "FILE" stands for the command that downloads kRemote in active mode.
std::string Session(const std::string& talk) {
  return "login|TYPE I>200 ok|" + ReplaceAll(talk, "FILE", "open|RETR " + kRemote);
}

class FtpFetch : public testing::Test {
 protected:
  FtpFetch() { BindFtpEvents(job_.NMFTP, job_.Display, listing_); }

  TFtpLogin Login(const test::TScriptedServer& server) const {
    return {server.Address(), "user", "secret", false, false};
  }
  bool Fetch(TFtpSession& session, const std::string& name = kName) {
    return Ends(FtpFetchFile(job_.Context, session, {name, kRemote, job_.OutputPath(), "", {}}));
  }
  /// Ends the file as the sources do; whether it was received.
  bool Ends(const std::optional<TFtpFetch>& fetch) {
    if (!fetch) return false;
    if (fetch->StillNoted) job_.Ledger.End(fetch->Result.Path, TTransferEnd::Whole);
    job_.Display.EndFile(fetch->Result, FtpLine(fetch->Result));
    return fetch->Received;
  }

  test::TJobFixture job_;
  TFtpListing listing_;
  const std::filesystem::path local_ = job_.Output(kName);
};

TEST_F(FtpFetch, AFileComesWithItsLinesPausesProgressAndNote) {
  TFtpServer server(false, Session("FILE>150 f (10 bytes)|data:0123456789|>226 done|QUIT>221 bye"));
  bool noted = false;
  const auto show = job_.NMFTP.OnPacketRecvd;
  job_.NMFTP.OnPacketRecvd = [&](TPowersock& sender) {
    show(sender);
    noted = job_.Ledger.IsNoted(local_) && job_.Run.WatchdogArmed;
  };
  EXPECT_TRUE(RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    EXPECT_FALSE(session.UsesWinInet());
    EXPECT_TRUE(Fetch(session));
  }));
  EXPECT_EQ(ReadWholeFile(local_), "0123456789");
  EXPECT_TRUE(noted);
  EXPECT_TRUE(job_.Ledger.Present(local_));
  EXPECT_THAT(job_.Display.Panels,
              ElementsAre(std::pair(1, "FTP get:  " + kRemote), std::pair(1, "Received:  " + kName)));
  EXPECT_EQ(job_.Clock.Slept, kPauses);
  EXPECT_THAT(job_.Display.Progress, ElementsAre(100));
  EXPECT_THAT(job_.Display.BytesLabels, ElementsAre("100%", ""));
}

/// kept: after a failed transfer an older file counts as received.
TEST_F(FtpFetch, AFailureKeepsAnOlderFileAndTheWatchdogUntilTheSessionEnds) {
  for (const bool older : {false, true}) {
    if (older) job_.WriteOutput(kName, "old");
    TFtpServer server(false, Session("FILE>550 no such \1file|QUIT>500 no"));
    RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
      EXPECT_EQ(Fetch(session), older);
      EXPECT_TRUE(job_.Run.WatchdogArmed);
    });
    EXPECT_THAT(job_.Lines(), ElementsAre("Get: " + kName, kName + " - 550 no such file"));
    EXPECT_EQ(job_.Ledger.Present(local_), older);
    EXPECT_EQ(std::exchange(job_.Clock.Slept, {}), kPauses);
    EXPECT_FALSE(job_.Run.WatchdogArmed);
  }
}

TEST_F(FtpFetch, AnEndlessFileIsGivenUpAndNotKept) {
  TFtpServer server(false, Session("FILE>150 f (5 bytes)|data:hello|ABOR>426 cut\r\n226 ok|QUIT>221 bye"));
  job_.Context.LargestDownload = 4;
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) { EXPECT_FALSE(Fetch(session)); });
  EXPECT_THAT(job_.Lines(), ElementsAre("Get: " + kName, kName + " - given up: larger than 0 MiB"));
  EXPECT_FALSE(std::filesystem::exists(local_));
}

TEST_F(FtpFetch, WhatCannotBeStoredIsNotAskedFor) {
  test::TChild other([&](int pipe) {
    TTransferLedger ledger(job_.Folder / "ledger.txt");
    if (ledger.Begin(local_)) test::Say(pipe);
    ::pause();
  });
  ASSERT_TRUE(other.Await());
  job_.WriteOutput("file", "x");
  TFtpServer server(false, Session("*>500 no|QUIT>221 bye"));
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    EXPECT_FALSE(Fetch(session));
    EXPECT_EQ(job_.Lines().back(), kName + " - another copy of the program is fetching it");
    for (const std::string name : {"../x", "", "x\r\nDELE y"}) {
      EXPECT_FALSE(Fetch(session, name));
      EXPECT_EQ(job_.Lines().back(), ReplaceAll(name, "\r\n", "") + " - not a usable file name");
    }
    const auto fetch = [&](const char* folder) {
      return Ends(FtpFetchFile(job_.Context, session, {"a", "/a", job_.Output(folder), "", {}}));
    };
    EXPECT_FALSE(fetch("file/10/"));
    EXPECT_THAT(job_.Lines().back(), HasSubstr("a - the local folder cannot be made: "));
    EXPECT_FALSE(fetch("2005/11/10/"));
    EXPECT_EQ(job_.Lines().back(), "a - 500 no");
  });
  EXPECT_TRUE(std::filesystem::is_directory(job_.Output("2005/11/10")));
  EXPECT_THAT(job_.Files(), ElementsAre("file"));
}

TEST_F(FtpFetch, ASessionThatCannotBeOpenedSaysSoAndDoesNoWork) {
  const std::string failed = "Connection failed to: 127.0.0.1";
  const struct {
    const char* Talk;
    TLines Lines;
    std::string Server = "";
  } rows[] = {
      {"", {failed}, "127.0.0.1:" + std::to_string(test::ClosedPort())},
      {">421 full|close", {failed + " - Connection closed by server"}},
      {">220 hi|USER user>331 pw|PASS secret>530 secret is wrong", {failed, "530 *** is wrong"}},
      {">220 hi|USER user>230 in|TYPE I>504 no", {failed + " - 504 no"}},
      {"", {"\"host:0\" is not an FTP server address (host or host:port)"}, "host:0"},
  };
  for (const auto& row : rows) {
    TFtpServer server(false, row.Talk);
    TFtpLogin login = Login(server);
    if (!row.Server.empty()) login.Server = row.Server;
    EXPECT_FALSE(RunFtpSession(job_.Context, login, [](TFtpSession&) { ADD_FAILURE(); }));
    EXPECT_EQ(job_.Lines(), row.Lines);
    EXPECT_FALSE(job_.NMFTP.Connected || job_.Run.WatchdogArmed);
  }
}

TEST_F(FtpFetch, ABrokenSessionIsOpenedAgainButNotForEver) {
  const std::string breaks = Session("*>|next|"), fetches = Session("FILE>150 f|data:x|>226 done|next|");
  TFtpServer server(false, breaks + breaks + fetches + breaks + breaks + Session("*>|close"));
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    std::string results;
    for (int n = 0; n < 8; ++n) {
      std::filesystem::remove(local_);
      results += Fetch(session) ? "x" : "-";
    }
    EXPECT_EQ(results, "--x-----");
    EXPECT_TRUE(session.IsLost());
  });
  EXPECT_EQ(server.Received().size(), 6u);
  EXPECT_EQ(job_.Display.Lines.back(), "FTP session given up: the connection broke 4 times in a row");
}

TEST_F(FtpFetch, ClientEventsShowAsLinesPanelsAndNames) {
  TNMFTP& client = job_.NMFTP;
  client.OnStatus(client, "226-a\tb\r\n");
  client.Host = "far.example";
  client.OnConnectionFailed(client);
  EXPECT_THAT(job_.Lines(), ElementsAre("226-ab", "Connection failed to: far.example"));
  for (int type = 0; type <= 15; ++type) {
    bool handled = false;
    client.OnFailure(client, handled, static_cast<TCmdType>(type));
    client.OnSuccess(client, static_cast<TCmdType>(type));
    EXPECT_EQ(handled, type == 8);
  }
  EXPECT_THAT(job_.Display.Panels, ElementsAre(std::pair(1, "Transfer failed"), std::pair(1, "")));

  client.OnListItem(client, "abc def/ghi:jkl\\m");  // 13 characters are kept of it
  client.OnListItem(client, "../../etc/passwd-.Z_9\xc3\xa4");
  EXPECT_THAT(listing_.Names(), ElementsAre("....etcpasswd-.Z_9"));
  for (int n = 1; n < 200; ++n) client.OnListItem(client, "abc def/ghi:jkl\\mn");
  EXPECT_EQ(listing_.Names().back(), "abcdefghijklmn");
  EXPECT_EQ(job_.Display.Progress[61], 50);
  EXPECT_EQ(job_.Display.Progress.back(), 100);
  listing_.Clear();
  EXPECT_THAT(listing_.Names(), IsEmpty());
}

}  // namespace
}  // namespace skyreel
