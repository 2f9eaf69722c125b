// The program as a process of its own, killed, stopped, run twice at once and under a clock that jumps,
// against a server in this process. SKYREEL_KILLS: how many times it is killed at random; by default 10.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <functional>
#include <future>
#include <random>
#include <regex>
#include <thread>

#include "base/clock.h"
#include "base/descriptor.h"
#include "base/files.h"
#include "base/text.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "process/file_server.h"
#include "process/program.h"

namespace skyreel::test {
namespace {

namespace fs = std::filesystem;

/// Under a sanitizer nothing else can be preloaded.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kCanPreload = false;
#else
constexpr bool kCanPreload = true;
#endif
constexpr auto kLongEnough = 180s;

int KillCount() {
  if (const char* const wanted = std::getenv("SKYREEL_KILLS")) return ToInteger(wanted);
  return 10;
}

TDateTime DaysAgo(int days) {
  return TSystemClock({}).UtcNow().Midnight() - std::chrono::days(days);
}

/// What is asked for, what the server has of it, and what is on disk when all has come.
struct TJob {
  std::string Switches, Settings = "Timeout=5\n";
  TFiles Served;
  TFiles Tree;     ///< below the output folders
  TFiles Passing;  ///< compressed files, which go when they are decoded

  /// Charts and the image archive's whole discs: both ways to fetch over HTTP.
  TJob& Http(int times) {
    Switches += "-MSLP -EUAR ";
    // With a day in hand for a midnight passed through, and one for a clock that is set forward.
    Settings +=
        "BackDays=4\nMSLPsources=\"\\\"New Zealand\\\"\"\nEumetsatNewNaming=true\nEumetsatMsgName=1\n"
        "WantedEuArSectors=CTOT\nWantedEuArProducts=\n";
    unsigned seed = 0;
    for (TDateTime time = DaysAgo(2); times-- > 0; time = time + 6h) {
      const std::string folder = DateFolder(time), hhnn = FormatDateTime("hhnn", time);
      for (const std::string series : {"swp_", "tnz_"}) {
        Served["/data/" + series + hhnn + "_anal.gif"] =
            Tree["Bracknell/" + folder + "nz_" + series + hhnn + ".gif"] = {SomeBytes(400'000, ++seed), time};
      }
      Served[FormatDateTime("'/~idds/images/out/SDDI-'yyyymmdd-hhnn'-BNW-09-VIS006-00-800.jpg'", time)] =
          Tree["EumetsatArchive/" + folder + "CTOT_" + std::to_string(100 + time.Parts().Hour * 2).substr(1) +
               ".jpg"] = {SomeBytes(700'000, ++seed), time};
    }
    return *this;
  }

  /// A product of the station's order page: written straight to its final name, as charts are.
  TJob& Pdus() {
    const TDateTime time = DaysAgo(1) + 12h;
    const std::string name = FormatDateTime("yymmddhhnn'VIS'", time), folder = DateFolder(time);
    Switches += "-PDUS ";
    Settings +=
        "VisibleTabs=\"\\\"Weather data\\\",\\\"Archive Direct\\\",Eumetsat,PDUS\"\nDundeePdusUsername=demo\n"
        "DundeePdusPassword=\">?75\"\nWantedPdusEurope=\"\\\"1200, Meteosat Europe, Visible\\\"\"\n";
    Served["/abin/filesorder?s=Date"] = {
        "<a href=\"/abin/pdus?f=" + name + "\">1200, Meteosat Europe, Visible</a>\n", time};
    Served["/abin/pdus?f=" + name] =
        Tree["PDUS/" + folder + name + ".pdu"] = {SomeBytes(1'000'000, 31), time};
    return *this;
  }

  /// A compressed area over FTP, of a day that is asked for whether or not midnight passes.
  TJob& Msfc() {
    const TDateTime time = DaysAgo(1) + 12h;
    Switches += "-MSFC ";
    Settings +=
        "VisibleTabs=MSFC\nBackDays=3\nMSFCchannel=IR\nMSFCslots=1200\nMSFCUncompres=true\nMSFCpassive="
        "true\n";
    const std::string name = FormatDateTime("'ME7-'yyyymmddhhnn'.ir1.ara'", time);
    const std::string local = "MSFC/" + std::string(DateFolder(time)) + name;
    const TFile area = Tree[local] = {SomeBytes(6'321'008, 41), time};
    Served["/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/" + name + ".Z"] =
        Passing[local + ".Z"] = {LzwEncode(area.Content), time};
    return *this;
  }

  /// Two pictures over FTP, one of them compressed.
  TJob& Ftp() {
    // Whatever the time of day, this slot alone is wanted of the one day in question.
    TDateTime time = TSystemClock({}).UtcNow().RoundedDown(1h) - 36h;
    if (time.Parts().Hour == 0) time = time - 1h;
    Switches += "-EUAD ";
    Settings +=
        "BackDays=1\nEuDAUsername=demo\nEuDAPassword=demo\nEuDASatellites=M7\nEuDAChannel=IR\n"
        "EuDAUncompres=true\nEuDAFormats=\"GIF,OPEN_MTP.bz2\"\nEuDA%20passive=true\nEuDAmet7interval=6\n"
        "EuDAmet7start=" +
        std::to_string(time.Parts().Hour * 2 - 1) + "\n";
    const std::string name = FormatDateTime("'FES_'yyyy-mm-dd_hhnn'_M7_IR.'", time);
    const std::string local = "EumetsatArchiveDirect/" + std::string(DateFolder(time)) + name;
    const TFile image{SomeBytes(6475860, 51), time};
    Served["/M7/" + name + "GIF"] = Tree[local + "GIF"] = {SomeBytes(1'500'000, 52), time};
    Served["/M7/" + name + "OPEN_MTP.bz2"] =
        Passing[local + "OPEN_MTP.bz2"] = {demo::CompressBz2(image.Content), time};
    Tree[local + "OPEN_MTP"] = image;
    return *this;
  }
};

/// A job, a server that has its files, and a program with its settings.
struct TScene {
  explicit TScene(TJob job, TStall stall = TStall::Nowhere, const std::string& http_root = "")
      : Job(std::move(job)),
        Server(Job.Served, stall),
        Place(http_root.empty() ? Server.HttpRoot() : http_root, Server.FtpRoot(), Job.Settings) {}
  const TJob Job;
  const TFileServer Server;
  const TPlace Place;

  /// What must never be there: files under a final name that differ from the server's and are not noted as
  /// cut, and files that nobody asked for.
  std::string Unsound() const {
    std::string found;
    if (!fs::exists(Place.Out())) return found;
    for (const auto& entry : fs::recursive_directory_iterator(Place.Out())) {
      const std::string name = fs::relative(entry.path(), Place.Out());
      if (!entry.is_regular_file() || name.find("~skyreel") != std::string::npos) continue;
      const TFiles& files = Job.Passing.contains(name) ? Job.Passing : Job.Tree;
      const auto file = files.find(name);
      if (file == files.end() || (ReadWholeFile(entry.path()) != file->second.Content &&
                                  Place.Ledger().find(entry.path()) == std::string::npos)) {
        found += name + " has " + std::to_string(entry.file_size()) + " bytes\n";
      }
    }
    return found;
  }

  /// What must not be there, or is missing, at the end of it all.
  std::string Incomplete() const {
    std::string found = Unsound() + Place.Leftovers() + Place.Ledger();
    for (const auto& [name, file] : Job.Tree) {
      const fs::path path = Place.Out() / name;
      if (FileSizeOf(path) < 0 || ReadWholeFile(path) != file.Content) {
        found += name + " is not there or not whole\n";
      } else if (GetFileDateTime(path) != file.Time) {
        found += name + FormatDateTime("' is of 'yyyy-mm-dd hh:nn:ss", GetFileDateTime(path)) + "\n";
      }
    }
    return found;
  }

  /// A run that nothing disturbs.
  void RunToTheEnd() const {
    TRun run(Place, Job.Switches + "-CLOSE");
    ASSERT_EQ(run.Wait(kLongEnough), 0) << run.Output();
    EXPECT_EQ(Incomplete(), "") << run.Output();
  }
};

bool WaitUntil(const std::function<bool()>& condition) {
  for (int n = 0; n < 15000 && !condition(); ++n) std::this_thread::sleep_for(2ms);
  return condition();
}

/// As many times as `share` in ten kills.
void KillAtRandom(TJob job, int share, std::chrono::milliseconds span) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TScene scene(std::move(job));
  const int count = KillCount() * share / 10;
  for (int kills = 0; kills < count;) {
    const int before = scene.Server.Events();
    TRun run(scene.Place, scene.Job.Switches + "-CLOSE");
    ASSERT_TRUE(WaitUntil([&] { return scene.Server.Events() > before; })) << run.Output();
    auto code = run.Wait(span * static_cast<int>(random() % 1000) / 1000);
    if (!code) {
      run.Signal(SIGKILL);
      code = run.Wait(kLongEnough);
    }
    if (code == -SIGKILL) {
      ++kills;
      ASSERT_EQ(scene.Unsound(), "") << "after kill " << kills;
      continue;
    }
    // It was faster; the next one begins anew.
    ASSERT_EQ(code, 0) << run.Output();
    ASSERT_EQ(scene.Incomplete(), "") << run.Output();
    fs::remove_all(scene.Place.Out());
  }
  scene.RunToTheEnd();
}

TEST(Process, KilledAtRandomOverHttp) {
  KillAtRandom(TJob().Http(2).Pdus(), 4, 2000ms);
}

TEST(Process, KilledAtRandomOverFtp) {
  KillAtRandom(TJob().Ftp(), 4, 5000ms);
}

TEST(Process, KilledAtRandomWhileAnAreaComes) {
  KillAtRandom(TJob().Msfc(), 2, 4000ms);
}

TEST(Process, KilledBeforeEachRename) {
  if (!kCanPreload) GTEST_SKIP();
  const TScene scene(TJob().Ftp().Http(1).Pdus());
  // All of them where many kills are asked for, else every fifth.
  const int step = KillCount() < 50 ? 5 : 1;
  std::optional<int> code;
  int at = 1;
  for (; code != 0; at += step) {
    fs::remove_all(scene.Place.Out());
    TRun run(scene.Place, scene.Job.Switches + "-CLOSE",
             "LD_PRELOAD=" SKYREEL_KILL_AT_RENAME " KILL_AT_RENAME=" + std::to_string(at));
    code = run.Wait(kLongEnough);
    ASSERT_TRUE(code == 0 || code == -SIGKILL) << run.Output();
    ASSERT_EQ(scene.Unsound(), "") << "before rename " << at;
  }
  EXPECT_GT(at, 10);
  scene.RunToTheEnd();
}

/// A port whose queue of connections is full, so that connecting to it takes for ever.
class TFullPort {
 public:
  TFullPort() {
    socklen_t size = sizeof address_;
    auto* generic = reinterpret_cast<sockaddr*>(&address_);
    EXPECT_EQ(::bind(listener_.Get(), generic, size), 0);
    EXPECT_EQ(::listen(listener_.Get(), 0), 0);
    EXPECT_EQ(::getsockname(listener_.Get(), generic, &size), 0);
    EXPECT_EQ(::connect(filler_.Get(), generic, size), 0);
  }
  std::string Root() const { return "http://127.0.0.1:" + std::to_string(ntohs(address_.sin_port)); }
  /// Somebody is trying to connect.
  bool IsAskedFor() const {
    char pattern[24];
    std::snprintf(pattern, sizeof pattern, "0100007F:%04X 02", ntohs(address_.sin_port));
    std::ifstream table("/proc/net/tcp");
    return std::string(std::istreambuf_iterator<char>(table), {}).find(pattern) != std::string::npos;
  }

 private:
  TDescriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  TDescriptor filler_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_in address_{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
};

struct TWaitCase {
  const char* Wait;
  TStall Stall;
  bool Ftp;
  const char* Settings = "";
};
constexpr const char* kConnecting = "the connection";
constexpr TWaitCase kWaits[] = {
    {kConnecting, TStall::Nowhere, false},
    {"the list of images", TStall::Listing, false, "EumetsatNewNaming=false\n"},
    {"the header of a reply", TStall::Header, false},
    {"the rest of a body", TStall::Body, false},
    {"the greeting", TStall::Greeting, true},
    {"the answer to a command", TStall::Login, true},
    {"the first byte of a file", TStall::Data, true},
    {"the rest of a file", TStall::Body, true},
    {"the end of the pause between two files", TStall::Nowhere, true},
};

struct TStopped {
  std::string Problems;     ///< what is wrong after the stop
  std::string Lines, Disk;  ///< as the page of faults tells them
};

const std::regex kTime("20\\d\\d-?\\d\\d-?\\d\\d([-_]\\d{4})?");

/// Sends SIGTERM during the wait.
TStopped Stop(const TWaitCase& c, const TFullPort& full_port) {
  TJob job = c.Ftp ? TJob().Ftp() : TJob().Http(1);
  job.Settings += c.Settings;
  const TScene scene(std::move(job), c.Stall, c.Wait == kConnecting ? full_port.Root() : "");
  const TPlace& place = scene.Place;
  TRun run(place, c.Ftp ? "-EUAD -CLOSE" : "-EUAR -CLOSE");
  const auto& [image, file] = *std::prev(scene.Job.Tree.end(), c.Ftp ? 2 : 1);
  const auto size = static_cast<std::int64_t>(file.Content.size());
  const bool waits = WaitUntil([&] {
    if (c.Wait == kConnecting) return full_port.IsAskedFor();
    return c.Stall == TStall::Nowhere ? FileSizeOf(place.Out() / image) == size : scene.Server.Events() > 1;
  });
  run.Signal(SIGTERM);
  // The wait's own time-out is 5 s.
  if (!waits || run.Wait(20s) != 0)
    return {"it did not wait there, or not end in time\n" + run.Output(), "", ""};

  TStopped stopped{scene.Unsound() + place.Leftovers(), "", "nothing"};
  auto& [problems, lines, disk] = stopped;
  if (place.Text("home/.config/Quenmoor/Skyreel.conf").find("\nTimeout=5\n") == std::string::npos)
    problems += "the settings are gone\n";
  for (const std::string& line : SplitLines(place.Report())) {
    // The times differ from run to run, and with the time of day how many pictures are asked for.
    const std::string plain = "\"" + std::regex_replace(line, kTime, "(time)") + "\"";
    if (lines.find(plain) == std::string::npos) lines += (lines.empty() ? "" : ", ") + plain;
  }
  if (lines.find("\"Skyreel - V") == std::string::npos) problems += "no report: " + lines + "\n";
  if (FileSizeOf(place.Out() / image) == size) disk = "the file, whole";
  if (!place.Ledger().empty()) disk = "a short file, noted as cut";
  return stopped;
}

TEST(Process, StartsThatFetchNothing) {
  const std::string file = "home/.config/Quenmoor/Skyreel.conf";
  const TPlace place("", "", "");
  TRun version(place, "--version");
  EXPECT_EQ(version.Wait(kLongEnough), 0);
  EXPECT_EQ(version.Output(), "Skyreel " SKYREEL_VERSION "\n");
  const std::string settings = ReplaceAll(place.Text(file), "BackDays=2", "BackDays=many");
  WriteFileWhole(place.Folder() / file, settings);
  TRun unreadable(place, "-GOES -CLOSE");
  EXPECT_EQ(unreadable.Wait(kLongEnough), 1);
  EXPECT_TRUE(unreadable.Output().starts_with("Skyreel: The setting \"BackDays\" in "))
      << unreadable.Output();
  EXPECT_EQ(place.Text(file), settings);
}

TEST(Process, StoppedInEachWait) {
  const TFullPort full_port;
  std::vector<std::future<TStopped>> outcomes;
  for (const TWaitCase& c : kWaits)
    outcomes.push_back(std::async(std::launch::async, Stop, std::cref(c), std::cref(full_port)));
  // In their own order, whichever ended first.
  for (std::size_t i = 0; i < std::size(kWaits); ++i) {
    const TWaitCase& c = kWaits[i];
    const TStopped stopped = outcomes[i].get();
    EXPECT_EQ(stopped.Problems, "") << c.Wait;
  }
}

TEST(Process, TwoCopiesAtOnce) {
  const TScene scene(TJob().Ftp().Http(2));
  TRun first(scene.Place, scene.Job.Switches + "-CLOSE"), second(scene.Place, scene.Job.Switches + "-CLOSE");
  ASSERT_EQ(first.Wait(kLongEnough), 0) << first.Output();
  ASSERT_EQ(second.Wait(kLongEnough), 0) << second.Output();
  EXPECT_EQ(scene.Incomplete(), "") << first.Output() << second.Output();
  const std::string report = ReplaceAll(scene.Place.Report(), "\r", "");
  EXPECT_TRUE(report == first.Output() || report == second.Output()) << report;
  for (const TRun* const run : {&first, &second})
    EXPECT_TRUE(SplitLines(run->Output()).back().starts_with("Skyreel - V")) << run->Output();
}

TEST(Process, ClockSetDuringARun) {
  const std::string library = SKYREEL_FAKETIME;
  if (!kCanPreload || library.empty()) GTEST_SKIP() << "faketime is not installed";
  const TScene scene(TJob().Http(2));
  const fs::path time = scene.Place.Folder() / "time";
  WriteFileWhole(time, "+0");
  TRun run(scene.Place, scene.Job.Switches + "-CLOSE",
           "FAKETIME_TIMESTAMP_FILE=$PWD/time FAKETIME_NO_CACHE=1 DONT_FAKE_MONOTONIC=1 NO_FAKE_STAT=1 "
           "LD_PRELOAD=" +
               library);
  ASSERT_TRUE(WaitUntil([&] { return scene.Server.Events() > 0; })) << run.Output();
  int changes = 0;
  while (!run.Wait(100ms) && changes < 1000) WriteFileWhole(time, ++changes % 2 != 0 ? "+1d" : "-1d");
  EXPECT_EQ(run.Wait(0s), 0) << run.Output();
  EXPECT_GE(changes, 5);
  EXPECT_EQ(scene.Incomplete(), "") << run.Output();
  EXPECT_EQ(run.Output().find("timed out"), std::string::npos) << run.Output();
}

}  // namespace
}  // namespace skyreel::test
