#include "transfer/ftp_fetch.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/files.h"
#include "support/ftp_script.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using test::FtpLogin;
using test::TScript;
using test::TScriptedServer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kName = "FES_2003-02-01_1230_M7_IR.GIF";
constexpr const char* kRemote = "/M7/FES_2003-02-01_1230_M7_IR.GIF";

/// The server's side of a login with TYPE, as a session begins.
TScript Begin() {
  return FtpLogin().Exchange("TYPE I", "200 ok");
}

/// Adds a download in active mode of kRemote.
void Serve(TScript& script, const char* opening, const std::string& data, const char* ending) {
  script.ReadLine().Reply("200 ok\r\n").Exchange(std::string("RETR ") + kRemote, opening);
  if (*opening == '1') script.ConnectBack(TScript().Reply(data)).Reply(ending);
}

class FtpFetch : public testing::Test {
 protected:
  FtpFetch() { BindFtpEvents(job_.NMFTP, job_.Display, listing_); }

  ::skyreel::TFtpLogin Login(const test::TServer& server) const {
    return {server.Address(), "user", "secret", false, false};
  }
  bool Fetch(TFtpSession& session, const std::string& name = kName) {
    return FtpFetchFile(job_.Context, session, TFtpVariant::EuData, name, job_.OutputPath());
  }

  test::TJobFixture job_;
  TFtpListing listing_;
};

TEST(FtpRemotePath, FollowsTheVariantHoweverShortTheName) {
  const struct {
    TFtpVariant Variant;
    const char* Name;
    const char* Path;
  } rows[] = {
      {TFtpVariant::EuData, kName, kRemote},
      {TFtpVariant::EuData, "123456789012345678901", "/1/123456789012345678901"},
      {TFtpVariant::EuData, "short", "//short"},
      {TFtpVariant::EuData, "", "//"},
      {TFtpVariant::Msfc, "ME7-200511101200.ir1.ara.Z",
       "/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/ME7-200511101200.ir1.ara.Z"},
      {TFtpVariant::Msfc, "short", "/Weather/METEOSAT-7/McIDAS_areas//5km/short"},
      {TFtpVariant::CurrentFolder, "any", "any"},
  };
  for (const auto& row : rows) EXPECT_EQ(FtpRemotePath(row.Variant, row.Name), row.Path);
}

TEST_F(FtpFetch, AFileComesWithItsLinesPausesProgressAndNote) {
  TScript script = Begin();
  Serve(script, "150 f (10 bytes)", "0123456789", "226 done\r\n");
  TScriptedServer server(script.Exchange("QUIT", "221 bye").WaitForClose());
  const auto local = job_.Output(kName);
  bool noted = false;
  const auto show = job_.NMFTP.OnPacketRecvd;
  job_.NMFTP.OnPacketRecvd = [&](TPowersock& sender) {
    show(sender);
    noted = job_.Ledger.IsNoted(local) && job_.Run.WatchdogArmed;
  };
  EXPECT_TRUE(RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    EXPECT_FALSE(session.UsesWinInet());
    EXPECT_TRUE(Fetch(session));
  }));
  EXPECT_EQ(ReadWholeFile(local), "0123456789");
  EXPECT_TRUE(noted);
  EXPECT_TRUE(job_.Ledger.Present(local));
  EXPECT_THAT(job_.Display.Lines, ElementsAre(std::string("Get: ") + kName));
  EXPECT_THAT(job_.Display.Panels, ElementsAre(std::pair(1, std::string("FTP get:  ") + kRemote),
                                               std::pair(1, std::string("Received:  ") + kName)));
  EXPECT_EQ(job_.Clock.Slept, std::chrono::milliseconds(600));
  EXPECT_THAT(job_.Display.Progress, ElementsAre(100));
  EXPECT_THAT(job_.Display.BytesLabels, ElementsAre("100%", ""));
  EXPECT_FALSE(job_.Run.WatchdogArmed);
  EXPECT_THAT(server.Errors(), IsEmpty());
}

TEST_F(FtpFetch, FailuresGetOneLineAndTheLedgerKnowsWhatIsNotWhole) {
  const struct {
    const char* Name;
    const char* Opening;
    const char* Data;
    const char* Ending;
    bool OldFile;
    const char* Line;
    bool Result, Present, WatchdogArmed;
  } rows[] = {
      {"not there", "550 no such file", "", "", false, "550 no such file", false, false, true},
      {"not there, an old one is", "550 no such file", "", "", true, "550 no such file", true, true, true},
      {"cut", "150 f (10 bytes)", "01234", "226 done\r\n", false, "5 of 10 bytes received", true, false,
       false},
      {"cut before anything came", "150 f (10 bytes)", "", "426 cut\r\n", true, "426 cut", true, false,
       false},
      {"451 at the end", "150 f", "01234",
       "451 disk \x01"
       "error\r\n",
       false, "451 disk error", true, false, false},
      {"odd end", "150 f", "01234", "300 odd\r\n", false, "ended with: 300 odd", true, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    test::TJobFixture job;
    TScript script = Begin();
    Serve(script, row.Opening, row.Data, row.Ending);
    TScriptedServer server(script.Exchange("QUIT", "221 bye").WaitForClose());
    const auto local = job.Output(kName);
    if (row.OldFile) job.WriteOutput(kName, "old");
    RunFtpSession(job.Context, Login(server), [&](TFtpSession& session) {
      EXPECT_EQ(FtpFetchFile(job.Context, session, TFtpVariant::EuData, kName, job.OutputPath()), row.Result);
      EXPECT_EQ(job.Run.WatchdogArmed, row.WatchdogArmed);
    });
    EXPECT_THAT(job.Display.Lines,
                ElementsAre(std::string("Get: ") + kName, std::string(kName) + " - " + row.Line));
    EXPECT_EQ(job.Ledger.Present(local), row.Present);
    EXPECT_EQ(job.Clock.Slept, std::chrono::milliseconds(600));
    EXPECT_FALSE(job.Run.WatchdogArmed) << "the end of the session disarms it";
    EXPECT_THAT(server.Errors(), IsEmpty());
  }
}

TEST_F(FtpFetch, NamesThatAreNoFileNamesAreNotAskedFor) {
  TScriptedServer server(Begin().Exchange("QUIT", "221 bye").WaitForClose());
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    for (const char* name : {"..", "../x", "a/b", "a\\b", "", "x\r\nDELE y"})
      EXPECT_FALSE(Fetch(session, name));
  });
  EXPECT_EQ(job_.Display.Lines.size(), 12u);
  EXPECT_EQ(job_.Display.Lines[1], ".. - no usable file name");
  EXPECT_EQ(job_.Display.Lines[11], "xDELE y - no usable file name");
  EXPECT_THAT(job_.Tree(), IsEmpty());
  EXPECT_THAT(server.Lines(), ElementsAre("USER user", "PASS secret", "TYPE I", "QUIT"));
}

TEST_F(FtpFetch, TheMsfcVariantMakesItsFolderOrSaysWhyNot) {
  TScriptedServer server(Begin().ReadLine().Reply("500 no\r\n").Exchange("QUIT", "221 bye").WaitForClose());
  job_.WriteOutput("file", "x");
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    const auto fetch = [&](const char* folder) {
      return FtpFetchFile(job_.Context, session, TFtpVariant::Msfc, "a", job_.Output(folder));
    };
    EXPECT_FALSE(fetch("2005/11/10/"));
    EXPECT_FALSE(fetch("file/10/"));
  });
  EXPECT_TRUE(std::filesystem::is_directory(job_.Output("2005/11/10")));
  EXPECT_THAT(job_.Display.Lines, ElementsAre("Get: a", "a - 500 no", "Get: a",
                                              HasSubstr("a - the local folder cannot be made: ")));
}

TEST_F(FtpFetch, AFileThatAnotherCopyIsFetchingIsLeftAlone) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const auto local = job_.Output(kName);
  const pid_t other = ::fork();
  if (other == 0) {
    TTransferLedger ledger(job_.Folder / "ledger.txt");
    const bool begun = ledger.Begin(local);
    if (::write(ready[1], begun ? "y" : "n", 1) == 1) ::pause();
    ::_exit(0);
  }
  char begun = 0;
  ASSERT_EQ(::read(ready[0], &begun, 1), 1);
  EXPECT_EQ(begun, 'y');
  TScriptedServer server(Begin().Exchange("QUIT", "221 bye").WaitForClose());
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) { EXPECT_FALSE(Fetch(session)); });
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
  EXPECT_THAT(job_.Display.Lines,
              Contains(std::string(kName) + " - another copy of the program is fetching it"));
  EXPECT_THAT(server.Errors(), IsEmpty());
}

// --- Sessions --------------------------------------------------------------------------------------------

TEST_F(FtpFetch, ASessionThatCannotBeOpenedSaysSoAndDoesNoWork) {
  const struct {
    const char* Name;
    std::function<void(TScript&)> Answer;  // empty: nobody listens
    const char* Server;                    // null: the scripted one
    std::vector<std::string> Lines;
  } rows[] = {
      {"nobody there", {}, nullptr, {"Connection failed to: 127.0.0.1"}},
      {"user refused",
       [](TScript& s) { s.Reply("220 hi\r\n").Exchange("USER user", "530 not you"); },
       nullptr,
       {"Connection failed to: 127.0.0.1", "530 not you"}},
      {"password refused and repeated",
       [](TScript& s) {
         s.Reply("220 hi\r\n").Exchange("USER user", "331 pw").Exchange("PASS secret", "530 secret is wrong");
       },
       nullptr,
       {"Connection failed to: 127.0.0.1", "530 *** is wrong"}},
      {"type refused",
       [](TScript& s) { s = FtpLogin().Exchange("TYPE I", "504 no"); },
       nullptr,
       {"Connection failed to: 127.0.0.1 - 504 no"}},
      {"hangs up",
       [](TScript& s) { s.Close(); },
       nullptr,
       {"Connection failed to: 127.0.0.1 - Connection closed by server"}},
      {"no address", {}, "host:0", {"\"host:0\" is no FTP server address (host or host:port)"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TScript script;
    if (row.Answer) row.Answer(script);
    TScriptedServer server(script.WaitForClose());
    if (!row.Answer) server.StopListening();
    job_.Display.Lines.clear();
    ::skyreel::TFtpLogin login = Login(server);
    if (row.Server != nullptr) login.Server = row.Server;
    EXPECT_FALSE(RunFtpSession(job_.Context, login, [](TFtpSession&) { ADD_FAILURE(); }));
    EXPECT_EQ(job_.Display.Lines, row.Lines);
    EXPECT_FALSE(job_.NMFTP.Connected);
    EXPECT_FALSE(job_.Run.WatchdogArmed);
  }
}

TEST_F(FtpFetch, AServerThatAnswersNothingIsEndedByTheWatchdog) {
  // The watchdog of this test fires at the first turn of the wait for the greeting.
  TNMFTP* client = nullptr;
  TNMFTP ftp([&] {
    if (client->Connected) client->Abort();
  });
  client = &ftp;
  TTransferContext context{job_.Display, job_.Run,    job_.Clock,  ftp,
                           job_.NMHTTP,  job_.NMHTTP, job_.Ledger, job_.Context.Shared};
  TScriptedServer server(TScript().Stall());
  EXPECT_FALSE(RunFtpSession(context, Login(server), [](TFtpSession&) { ADD_FAILURE(); }));
  EXPECT_THAT(job_.Display.Lines, ElementsAre("Connection failed to: 127.0.0.1 - Socket readln aborted"));
  EXPECT_EQ(job_.Run.Restarts, job_.Run.Stops);
  EXPECT_GT(job_.Run.Restarts, 0);
}

TEST_F(FtpFetch, ABrokenSessionIsOpenedAgainButNotForEver) {
  std::vector<TScript> scripts;
  for (int n = 0; n < 2; ++n) scripts.push_back(Begin().ReadLine().Close());
  TScript good = Begin();
  Serve(good, "150 f", "01234", "226 done\r\n");
  scripts.push_back(good.Close());
  for (int n = 0; n < 3; ++n) scripts.push_back(Begin().ReadLine().Close());
  TScriptedServer server(scripts);
  RunFtpSession(job_.Context, Login(server), [&](TFtpSession& session) {
    std::vector<bool> results;
    for (int n = 0; n < 8; ++n) {
      std::filesystem::remove(job_.Output(kName));
      results.push_back(Fetch(session));
    }
    EXPECT_THAT(results, ElementsAre(false, false, true, false, false, false, false, false));
    EXPECT_TRUE(session.IsLost());
  });
  EXPECT_EQ(server.ConnectionCount(), 6);
  EXPECT_EQ(job_.Display.Lines.back(), "FTP session given up: the connection broke 4 times in a row");
}

// --- Listing and events ----------------------------------------------------------------------------------

TEST(FtpListing, KeepsNamesOfFourteenCharactersAndMore) {
  const struct {
    const char* Line;
    const char* Name;  // null: dropped
  } rows[] = {
      {"abcdefghijklmn", "abcdefghijklmn"},
      {"abcdefghijklm", nullptr},
      {"abc def/ghi:jkl\\m", nullptr},
      {"../../etc/passwd-.Z_9", "....etcpasswd-.Z_9"},
      {"-rw-r--r-- 1 a b 12 Nov 10 12:00 x", "-rw-r--r--1ab12Nov101200x"},
      {".", nullptr},
      {"..", nullptr},
      {"", nullptr},
      {"\xc3\xa4"
       "bcdefghijklmn",
       nullptr},
  };
  test::TRecordingDisplay display;
  for (const auto& row : rows) {
    TFtpListing listing;
    listing.Add(display, row.Line);
    std::vector<std::string> kept;
    if (row.Name != nullptr) kept.push_back(row.Name);
    EXPECT_EQ(listing.Names(), kept) << row.Line;
  }
}

TEST(FtpListing, AHundredAndTwentyNamesFillTheBar) {
  test::TRecordingDisplay display;
  TFtpListing listing;
  for (int n = 0; n < 200; ++n) listing.Add(display, "abcdefghijklmn");
  EXPECT_EQ(display.Progress[0], 0);
  EXPECT_EQ(display.Progress[60], 50);
  EXPECT_EQ(display.Progress[119], 99);
  EXPECT_EQ(display.Progress[199], 100);
  listing.Clear();
  EXPECT_THAT(listing.Names(), IsEmpty());
}

TEST_F(FtpFetch, ClientEventsShowAsLinesAndPanels) {
  job_.NMFTP.OnStatus(job_.NMFTP, "226-a\tb\r\n");
  job_.NMFTP.Host = "far.example";
  job_.NMFTP.OnConnectionFailed(job_.NMFTP);
  job_.NMFTP.OnListItem(job_.NMFTP, "abcdefghijklmn");
  EXPECT_THAT(job_.Display.Lines, ElementsAre("226-ab", "Connection failed to: far.example"));
  EXPECT_THAT(listing_.Names(), ElementsAre("abcdefghijklmn"));
  for (int type = 0; type <= 15; ++type) {
    job_.Display.Panels.clear();
    bool handled = false;
    job_.NMFTP.OnFailure(job_.NMFTP, handled, static_cast<TCmdType>(type));
    job_.NMFTP.OnSuccess(job_.NMFTP, static_cast<TCmdType>(type));
    EXPECT_EQ(handled, type == 8);
    using TPanels = std::vector<std::pair<int, std::string>>;
    EXPECT_EQ(job_.Display.Panels, type == 8 ? TPanels({{1, "Transfer failed"}, {1, ""}}) : TPanels());
  }
}

}  // namespace
}  // namespace skyreel
