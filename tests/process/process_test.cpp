// The program as a process of its own: killed, stopped in each wait, run twice at once, and under a clock
// that jumps.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "base/clock.h"
#include "demo/ftp_service.h"
#include "demo/http_service.h"
#include "process/program.h"
#include "support/scripted_server.h"

namespace skyreel::test {
namespace {

namespace fs = std::filesystem;

constexpr auto kSettingsFile = "home/.config/Quenmoor/Skyreel.conf";
constexpr auto kLongEnough = 120s;
/// Files that come straight under their names (charts) and by a rename (images), and unpacked ones (data).
constexpr auto kAllSources = "-MSLP -EUAR -EUAD -CLOSE";
constexpr auto kSettings = R"(MSLPsources="\"New Zealand\""
EumetsatNewNaming=true
WantedEuArSectors=CTOT
EuDAUsername=demo
EuDAPassword=demo
EuDASatellites=M5
EuDAChannel=IR
EuDAFormats="OPEN_MTP.Z,OPEN_MTP.bz2"
EuDAUncompres=true
EuDA%20passive=true
)";

const auto Now = [] { return TSystemClock({}).UtcNow(); };

/// The program with these settings, and two servers to ask.
struct TCustomer : TPlace {
  /// `time_out` in seconds.
  TCustomer(int http_port, int ftp_port, const std::string& time_out)
      : TPlace("http://127.0.0.1:" + std::to_string(http_port), "127.0.0.1:" + std::to_string(ftp_port),
               kSettings + ("Timeout=" + time_out + "\n")) {
    Folder().Write("bin/EuDAFiles.txt", DataFiles[0] + "," + DataFiles[1]);
    Folder().Write("bin/EuArchive.txt", "CTOT_12,CTOT_24");
  }
  const std::string DataFiles[2] = {
      FormatDateTime("'FES_'yyyy-mm-dd'_1200_M5_IR.OPEN_MTP.Z'", Now() - 48h),
      FormatDateTime("'FES_'yyyy-mm-dd'_1230_M5_IR.OPEN_MTP.bz2'", Now() - 48h)};
  std::string Ledger() const { return Text("bin/SkyreelTransfers.txt"); }
  /// The output files with their times.
  std::map<fs::path, TDateTime> Files() const {
    std::map<fs::path, TDateTime> files;
    for (const auto& [name, size] : Folder().Tree())
      if (name.starts_with("home/Skyreel/") && name.find("~skyreel") == std::string::npos)
        files[Folder() / name] = GetFileDateTime(Folder() / name);
    return files;
  }
};

class Process : public ::testing::Test {
 protected:
  void SetUp() override {
    // Other files are wanted from midnight on.
    if ((Now() + 3min).Midnight() != Now().Midnight()) GTEST_SKIP();
  }

  /// Learns which files, so many, a run brings that nothing disturbs, and empties the output folders.
  void Learn(std::size_t count, const std::string& switches = kAllSources) {
    TRun run(place_, switches);
    EXPECT_EQ(run.Wait(kLongEnough), 0) << run.Output();
    whole_ = place_.Files();
    EXPECT_EQ(whole_.size(), count) << run.Output();
    for (const auto& [path, time] : whole_) known_.insert(ReadWholeFile(path));
    for (const std::string& name : place_.DataFiles) known_.insert(*archive_.Find("/M5/" + name)->Content);
    fs::remove_all(place_.Folder() / "home/Skyreel");
  }
  /// The files that are neither whole nor noted as cut.
  std::string Unsound() const {
    std::string found;
    for (const auto& [path, time] : place_.Files())
      if (!known_.contains(ReadWholeFile(path)) && place_.Ledger().find(path) == std::string::npos)
        found += path.string() + " has " + std::to_string(FileSizeOf(path)) + " bytes\n";
    return found;
  }
  void ExpectAll(const std::string& output) const {
    EXPECT_EQ(place_.Files(), whole_) << output;
    EXPECT_EQ(Unsound() + place_.Leftovers() + place_.Ledger(), "") << output;
  }
  /// Runs the program, which goes on where the run before it was killed. False once it has come to its end;
  /// the output folders are empty then.
  bool KillBefore(const std::string& call, unsigned number) {
    TRun run(place_, kAllSources,
             "LD_PRELOAD=" SKYREEL_KILL_BEFORE " KILL_BEFORE='" + call + " " + std::to_string(number) + "'");
    const bool killed = run.Wait(kLongEnough) == -SIGKILL;
    EXPECT_EQ(Unsound(), "") << "before " << call << " " << number;
    if (killed) return true;
    ExpectAll(run.Output());
    fs::remove_all(place_.Folder() / "home/Skyreel");
    return false;
  }

  demo::TDemoArchive archive_{[] { return Now().Midnight(); }};
  const demo::TTcpServer http_{0, [this](demo::TConnection& client) { demo::ServeHttp(archive_, client); }};
  const demo::TTcpServer ftp_{0, [this](demo::TConnection& client) { demo::ServeFtp(archive_, client); }};
  const TCustomer place_{http_.Port(), ftp_.Port(), "100"};
  std::map<fs::path, TDateTime> whole_;
  std::set<std::string> known_;
};

TEST_F(Process, KilledBeforeAnyRenameOrWriteLosesNothing) {
  if (*SKYREEL_KILL_BEFORE == '\0') GTEST_SKIP();
  Learn(12);
  unsigned number = 1;
  while (KillBefore("rename", number)) ++number;
  EXPECT_GT(number, 5u);
  std::random_device random;
  for (int kills = 0; kills < 8;) kills += KillBefore("write", 1 + random() % 40);
  EXPECT_FALSE(KillBefore("write", 0));
}

TEST_F(Process, AFileBeyondTheUsersSizeLimitCostsNoOtherFile) {
  TRun run(place_, "-EUAR -EUAD -CLOSE", "prlimit --fsize=60000");
  EXPECT_EQ(run.Wait(kLongEnough), 3);
  EXPECT_NE(run.Output().find(place_.DataFiles[0] + " - not saved: File too large\n"), std::string::npos);
  EXPECT_NE(run.Output().find(".jpg - OK\n"), std::string::npos) << run.Output();
  EXPECT_NE(place_.Text("bin/SkyreelReport.txt"), "");
}

TEST_F(Process, TwoCopiesAtOnceFetchAllTogether) {
  Learn(12);
  TRun first(place_, kAllSources), second(place_, kAllSources);
  ASSERT_EQ(first.Wait(kLongEnough), 0) << first.Output();
  ASSERT_EQ(second.Wait(kLongEnough), 0) << second.Output();
  ExpectAll(first.Output() + second.Output());
}

TEST_F(Process, AClockSetByADayDuringARunCostsNoFile) {
  if (*SKYREEL_FAKETIME == '\0') GTEST_SKIP();
  // The same charts are wanted on every day.
  Learn(8, "-MSLP -CLOSE");
  const fs::path time = place_.Folder().Write("time", "+0");
  TRun run(place_, "-MSLP -CLOSE",
           "FAKETIME_TIMESTAMP_FILE=$PWD/time FAKETIME_NO_CACHE=1 DONT_FAKE_MONOTONIC=1 NO_FAKE_STAT=1 "
           "LD_PRELOAD=" SKYREEL_FAKETIME);
  int changes = 0;
  while (!run.Wait(50ms)) WriteFileWhole(time, ++changes % 2 != 0 ? "+1d" : "-1d");
  EXPECT_EQ(run.Wait(0s), 0);
  EXPECT_GE(changes, 5);
  ExpectAll(run.Output());
}

TEST(ProcessStop, EndsEachWaitWithReportAndSettings) {
  const std::string half =
      "HTTP/1.0 200 OK\r\nLast-Modified: Thu, 26 Nov 2026 00:00:00 GMT\r\nContent-Length: 9\r\n\r\nhalf";
  const std::string fetch =
      "220 Ready\n<line>331 Password\n<line>230 In\n<line>200 OK\n<line>PASV\n<line>150 Here\n";
  // The switch, what the server sends before it falls silent, and what the data server (PASV) sends: the run
  // waits for a header, the rest of a body, an FTP reply, the first byte of a file, the rest of a file.
  const std::tuple<std::string, std::string, std::string> waits[] = {{"-EUAR", "", ""},
                                                                     {"-EUAR", half, ""},
                                                                     {"-EUAD", "220 Ready\n", ""},
                                                                     {"-EUAD", fetch, ""},
                                                                     {"-EUAD", fetch, "half"}};
  std::vector<std::jthread> threads;
  for (const auto& wait : waits) {
    threads.emplace_back([&wait] {
      const auto& [source, replies, sent] = wait;
      SCOPED_TRACE(source + replies + sent);
      std::atomic<int> silences = 0;
      const TScriptedServer data(sent + "<stall>");
      const TScriptedServer server([&, &text = replies](TScriptedServer::TPeer& peer) {
        peer.Play(ReplaceAll(text, "PASV", PasvReply(data.Port())));
        ++silences;
        peer.Play("<stall>");
      });
      const TCustomer place(server.Port(), server.Port(), "5");
      TRun run(place, source + " -CLOSE");
      EXPECT_TRUE(WaitUntil(kLongEnough, [&] { return silences > 0; }));
      run.Signal(SIGTERM);
      EXPECT_EQ(run.Wait(kLongEnough), 5) << run.Output();
      EXPECT_EQ(silences, 1) << "asked for more\n" << run.Output();
      EXPECT_NE(place.Text(kSettingsFile).find("\nTimeout=5\n"), std::string::npos);
      EXPECT_NE(place.Text("bin/SkyreelReport.txt").find("Skyreel - V"), std::string::npos);
      for (const auto& [path, time] : place.Files())
        EXPECT_NE(place.Ledger().find(path), std::string::npos) << path << " is not noted";
      EXPECT_EQ(place.Leftovers(), "");
    });
  }
}

TEST(ProcessStart, FetchesNothingForAVersionOrWithSettingsThatItCannotRead) {
  const TPlace place("", "", "");
  TRun version(place, "--version");
  EXPECT_EQ(version.Wait(kLongEnough), 0);
  EXPECT_EQ(version.Output(), "Skyreel " SKYREEL_VERSION "\n");
  const std::string settings = ReplaceAll(place.Text(kSettingsFile), "BackDays=2", "BackDays=many");
  place.Folder().Write(kSettingsFile, settings);
  TRun unreadable(place, "-GOES -CLOSE");
  EXPECT_EQ(unreadable.Wait(kLongEnough), 1);
  EXPECT_TRUE(unreadable.Output().starts_with("Skyreel: The setting \"BackDays\" in "))
      << unreadable.Output();
  EXPECT_EQ(place.Text(kSettingsFile), settings);
}

}  // namespace
}  // namespace skyreel::test
