// The program as a process of its own, killed, stopped, run twice at once and under a clock that jumps,
// against a server in this process. SKYREEL_KILLS: how many times it is killed at random; by default 8, and
// 50 where the page of faults is made.

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <functional>
#include <future>
#include <random>
#include <thread>

#include "base/clock.h"
#include "base/descriptor.h"
#include "base/files.h"
#include "base/text.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "process/file_server.h"
#include "process/program.h"
#include "support/reliability_rows.h"

namespace skyreel::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::StartsWith;

/// How many times the program is killed at random in all.
int KillCount() {
  if (const char* const wanted = std::getenv("SKYREEL_KILLS")) return ToInteger(wanted);
  return std::getenv("SKYREEL_RELIABILITY_ROWS") != nullptr ? 50 : 8;
}

TDateTime DaysAgo(int days) {
  return TSystemClock({}).UtcNow().Midnight() - std::chrono::days(days);
}

/// What is asked for, what the server has of it, and what is on disk when all has come.
struct TJob {
  struct TResult {
    TFile File;
    bool Stays = true;  ///< false: a compressed file, which goes when it is decoded
  };
  std::string Switches, Settings = "Timeout=5\n";
  TFiles Served;
  std::map<std::string, TResult> Tree;  ///< below the output folders

  void Add(const std::string& url, const std::string& local, TFile file, bool stays = true) {
    Served[url] = file;
    Tree[local] = {std::move(file), stays};
  }
};

/// The charts of New Zealand and the image archive's whole discs: both ways to fetch over HTTP.
void AddHttp(TJob& job, int count) {
  job.Switches += "-MSLP -EUAR ";
  // With a day in hand for a midnight passed through, and one for a clock that is set forward.
  job.Settings +=
      "BackDays=4\nMSLPsources=\"\\\"New Zealand\\\"\"\nEumetsatNewNaming=true\nEumetsatMsgName=1\n"
      "WantedEuArSectors=CTOT\nWantedEuArProducts=\n";
  unsigned seed = 0;
  for (TDateTime time = DaysAgo(2); count-- > 0; time = time + 6h) {
    const std::string folder = DateFolder(time), hhnn = FormatDateTime("hhnn", time);
    for (const std::string series : {"swp_", "tnz_"})
      job.Add("/data/" + series + hhnn + "_anal.gif", "Bracknell/" + folder + "nz_" + series + hhnn + ".gif",
              {SomeBytes(400'000, ++seed), time});
    job.Add(FormatDateTime("'/~idds/images/out/SDDI-'yyyymmdd-hhnn'-BNW-09-VIS006-00-800.jpg'", time),
            "EumetsatArchive/" + folder + "CTOT_" + std::to_string(100 + time.Parts().Hour * 2).substr(1) +
                ".jpg",
            {SomeBytes(700'000, ++seed), time});
  }
}

/// The FTP sources, with both kinds of compressed files.
void AddFtp(TJob& job, bool archive_direct) {
  const TDateTime noon = DaysAgo(1) + 12h, before = DaysAgo(2) + 12h;
  const std::string area = FormatDateTime("'ME7-'yyyymmddhhnn'.ir1.ara'", noon);
  const TFile image{SomeBytes(6321008, 50), noon};
  job.Switches += "-MSFC ";
  if (job.Settings.find("BackDays") == std::string::npos) job.Settings += "BackDays=2\n";
  job.Settings += "MSFCchannel=IR\nMSFCslots=1200\nMSFCUncompres=true\nMSFCpassive=true\n";
  const std::string folder = "MSFC/" + std::string(DateFolder(noon));
  job.Tree[folder + area] = {image};
  job.Add("/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/" + area + ".Z", folder + area + ".Z",
          {LzwEncode(image.Content), noon}, false);
  if (!archive_direct) return;
  job.Switches += "-EUAD ";
  job.Settings +=
      "EuDAUsername=demo\nEuDAPassword=demo\nEuDASatellites=M7\nEuDAChannel=IR\nEuDAFormats=\"GIF,OPEN_MTP."
      "bz2\"\n"
      "EuDAmet7start=23\nEuDAmet7interval=6\nEuDAUncompres=true\nEuDA%20passive=true\n";
  const std::string name = FormatDateTime("'FES_'yyyy-mm-dd'_1200_M7_IR.'", before);
  const std::string direct = "EumetsatArchiveDirect/" + std::string(DateFolder(before));
  const TFile data{SomeBytes(6475860, 51), before};
  job.Add("/M7/" + name + "GIF", direct + name + "GIF", {SomeBytes(1'500'000, 52), before});
  job.Tree[direct + name + "OPEN_MTP"] = {data};
  job.Add("/M7/" + name + "OPEN_MTP.bz2", direct + name + "OPEN_MTP.bz2",
          {demo::CompressBz2(data.Content), before}, false);
}

/// What may not be there: files under a final name that differ from the server's and are not noted as cut,
/// and files that nobody asked for.
std::string Unsound(const TPlace& place, const TJob& job) {
  std::string found;
  if (!fs::exists(place.Out())) return found;
  for (const auto& entry : fs::recursive_directory_iterator(place.Out())) {
    if (!entry.is_regular_file() || entry.path().filename().string().starts_with("~skyreel")) continue;
    const std::string name = fs::relative(entry.path(), place.Out());
    const auto expected = job.Tree.find(name);
    const bool whole =
        expected != job.Tree.end() && ReadWholeFile(entry.path()) == expected->second.File.Content;
    if (expected == job.Tree.end() || (!whole && place.Ledger().find(entry.path()) == std::string::npos))
      found += name + " has " + std::to_string(entry.file_size()) + " bytes\n";
  }
  return found;
}

/// What is missing, not whole or not stamped with its time.
std::string Incomplete(const TPlace& place, const TJob& job) {
  std::string found;
  for (const auto& [name, result] : job.Tree) {
    const fs::path path = place.Out() / name;
    if (!result.Stays) continue;
    if (FileSizeOf(path) < 0 || ReadWholeFile(path) != result.File.Content) {
      found += name + " is not there or not whole\n";
    } else if (GetFileDateTime(path) != result.File.Time) {
      found += name + FormatDateTime("' is of 'yyyy-mm-dd hh:nn:ss", GetFileDateTime(path)) + "\n";
    }
  }
  return found;
}

std::unique_ptr<TPlace> MakePlace(const TFileServer& server, const TJob& job) {
  return std::make_unique<TPlace>(server.HttpRoot(), server.FtpRoot(), job.Settings);
}

bool WaitUntil(const std::function<bool()>& condition) {
  for (int n = 0; n < 15000 && !condition(); ++n) std::this_thread::sleep_for(2ms);
  return condition();
}

/// A run that nothing disturbs: the set is complete afterwards and nothing else remains.
void ExpectCompleteRun(const TPlace& place, const TJob& job) {
  TRun run(place, job.Switches + "-CLOSE");
  ASSERT_EQ(run.Wait(180s), 0) << run.Output();
  EXPECT_EQ(Incomplete(place, job), "") << run.Output();
  EXPECT_EQ(Unsound(place, job), "");
  EXPECT_EQ(place.Leftovers(), "");
  EXPECT_EQ(place.Ledger(), "");
}

void KillAtRandom(const TJob& job, std::chrono::milliseconds span, const std::string& where) {
  const int count = KillCount() / 2;
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TFileServer server(job.Served);
  const auto place = MakePlace(server, job);
  for (int kills = 0; kills < count;) {
    const int before = server.Events();
    TRun run(*place, job.Switches + "-CLOSE");
    ASSERT_TRUE(WaitUntil([&] { return server.Events() > before; })) << run.Output();
    if (const auto code = run.Wait(span * static_cast<int>(random() % 1000) / 1000)) {
      // It was faster; the next one begins anew.
      ASSERT_EQ(code, 0) << run.Output();
      ASSERT_EQ(Incomplete(*place, job), "") << run.Output();
      fs::remove_all(place->Out());
      continue;
    }
    run.Signal(SIGKILL);
    ASSERT_EQ(run.Wait(10s), -SIGKILL);
    ++kills;
    ASSERT_EQ(Unsound(*place, job), "") << "after kill " << kills;
  }
  ExpectCompleteRun(*place, job);
  AddReliabilityRow("Process", "SIGKILL at " + std::to_string(count) + " random moments", where,
                    "nothing of the killed runs; the next run's own lines",
                    "no short file under a final name without its note; no temporary file after the next run",
                    "the next run completes the set");
}

TEST(Process, KilledAtRandomOverHttp) {
  TJob job;
  AddHttp(job, 2);
  KillAtRandom(job, 2000ms, "charts and EUMETSAT images (HTTP)");
}

TEST(Process, KilledAtRandomOverFtp) {
  TJob job;
  AddFtp(job, true);
  KillAtRandom(job, 5000ms, "EUMETSAT data and MSFC, uncompressing (FTP)");
}

TEST(Process, KilledBeforeEachRename) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "its runtime wants to be preloaded first";
#endif
  TJob job;
  AddHttp(job, 1);
  AddFtp(job, false);
  const TFileServer server(job.Served);
  const auto place = MakePlace(server, job);
  // All of them where many kills are asked for, else every fifth.
  const int step = KillCount() < 50 ? 5 : 1;
  int kills = 0;
  for (int at = 1;; at += step, ++kills) {
    fs::remove_all(place->Out());
    TRun run(*place, job.Switches + "-CLOSE",
             {"LD_PRELOAD=" SKYREEL_KILL_AT_RENAME, "KILL_AT_RENAME=" + std::to_string(at)});
    const auto code = run.Wait(180s);
    ASSERT_TRUE(code == 0 || code == -SIGKILL) << run.Output();
    ASSERT_EQ(Unsound(*place, job), "") << "before rename " << at;
    if (code == 0) break;
  }
  EXPECT_GT(kills, 1);
  ExpectCompleteRun(*place, job);
  AddReliabilityRow("Process", "SIGKILL before each rename of a run in turn",
                    "charts, EUMETSAT images, MSFC; ledger, report, settings",
                    "nothing of the killed runs; the next run's own lines",
                    "no short file under a final name without its note; no temporary file after the next run",
                    "the next run completes the set");
}

/// A port whose queue of connections is full, so that connecting to it takes for ever.
class TFullPort {
 public:
  TFullPort() {
    socklen_t size = sizeof address_;
    auto* generic = reinterpret_cast<sockaddr*>(&address_);
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
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
  sockaddr_in address_{};
};

TEST(Process, StoppedInEachWait) {
  struct TCase {
    const char* Wait;
    TStall Stall;
    bool Ftp;
    bool FullPort = false, OldNaming = false;
  };
  constexpr TCase cases[] = {
      {"connecting", TStall::Nowhere, false, true},
      {"the list of images", TStall::Listing, false, false, true},
      {"the header of a reply", TStall::Header, false},
      {"the rest of a body (HTTP)", TStall::Body, false},
      {"the greeting", TStall::Greeting, true},
      {"the answer to a command", TStall::Login, true},
      {"the first byte of a file", TStall::Data, true},
      {"the rest of a file (FTP)", TStall::Body, true},
      {"the pause between two files", TStall::Nowhere, true},
  };
  const TFullPort full_port;
  const auto stop = [&](const TCase& c) -> std::string {
    TJob job;
    c.Ftp ? AddFtp(job, false) : AddHttp(job, 1);
    job.Switches = c.Ftp ? "-MSFC " : "-EUAR ";
    if (c.Ftp) job.Settings += "MSFCslots=\"1200,1800\"\n";
    if (c.OldNaming) job.Settings += "EumetsatNewNaming=false\n";
    const TFileServer server(job.Served, c.Stall);
    const TPlace place(c.FullPort ? full_port.Root() : server.HttpRoot(), server.FtpRoot(), job.Settings);
    TRun run(place, job.Switches + "-CLOSE");
    const std::string first = job.Tree.rbegin()->first;
    const bool pause = c.Ftp && c.Stall == TStall::Nowhere;
    const auto waits = [&] {
      if (c.FullPort) return full_port.IsAskedFor();
      if (!pause) return server.Events() > 1;
      return FileSizeOf(place.Out() / first) ==
             static_cast<std::int64_t>(job.Tree[first].File.Content.size());
    };
    if (!WaitUntil(waits)) return "the wait was not reached: " + run.Output();
    run.Signal(SIGTERM);
    const auto begin = std::chrono::steady_clock::now();
    // The wait lasts as long as its time-out of 5 s, or that and a second where it has none, at the most.
    const auto code = run.Wait(20s);
    const auto took = std::chrono::steady_clock::now() - begin;
    std::string problems = Unsound(place, job) + place.Leftovers();
    if (code != 0 || (pause && took > 3s)) problems += "it did not end in time\n";
    if (place.Settings().find("\nTimeout=5\n") == std::string::npos) problems += "the settings are gone\n";
    std::vector<std::string> report = place.Report();
    if (report.empty() || !report.back().starts_with("Skyreel - V"))
      return problems + "no report\n" + run.Output();
    report.pop_back();
    std::string lines;
    for (const std::string& line : report) {
      // The addresses and dates in it differ from run to run.
      std::string plain = ReplaceAll(line, FormatDateTime("yyyymmdd", DaysAgo(c.Ftp ? 1 : 0)), "(date)");
      lines += (lines.empty() ? "\"" : ", \"") + plain + "\"";
    }
    std::string disk;
    for (const auto& [name, result] : job.Tree) {
      const std::int64_t size = FileSizeOf(place.Out() / name);
      if (size < 0) continue;
      disk += size == static_cast<std::int64_t>(result.File.Content.size()) ? "the file, whole"
                                                                            : "a short file, noted as cut";
    }
    AddReliabilityRow("Process", "SIGTERM in a wait for " + std::string(c.Wait),
                      c.Ftp ? "MSFC (FTP)" : "EUMETSAT images (HTTP)", lines.empty() ? "nothing" : lines,
                      disk.empty() ? "nothing" : disk,
                      "exit code 0 within the time-out, report and settings written");
    return problems;
  };
  std::vector<std::future<std::string>> outcomes;
  for (const TCase& c : cases) outcomes.push_back(std::async(std::launch::async, stop, c));
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(outcomes[i].get(), "") << cases[i].Wait;
}

TEST(Process, TwoCopiesAtOnce) {
  TJob job;
  AddHttp(job, 2);
  AddFtp(job, true);
  const TFileServer server(job.Served);
  const auto place = MakePlace(server, job);
  TRun first(*place, job.Switches + "-CLOSE"), second(*place, job.Switches + "-CLOSE");
  ASSERT_EQ(first.Wait(180s), 0) << first.Output();
  ASSERT_EQ(second.Wait(180s), 0) << second.Output();
  EXPECT_EQ(Incomplete(*place, job), "") << first.Output() << second.Output();
  EXPECT_EQ(place->Leftovers(), "");
  EXPECT_EQ(place->Ledger(), "");
  std::string report;
  for (const std::string& line : place->Report()) report += line + "\n";
  EXPECT_TRUE(report == first.Output() || report == second.Output()) << report;
  for (const TRun* run : {&first, &second})
    EXPECT_THAT(SplitLines(run->Output()).back(), StartsWith("Skyreel - V"));
  AddReliabilityRow("Process", "two copies at once", "all of the above, same folders",
                    "of a file in work: \"another copy of the program is fetching it\"",
                    "the whole set; an empty ledger; the report of the copy that ended last",
                    "both end with exit code 0");
}

TEST(Process, ClockSetDuringARun) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "its runtime wants to be preloaded first";
#endif
  const std::string library = SKYREEL_FAKETIME;
  if (library.empty()) GTEST_SKIP() << "faketime is not installed";
  TJob job;
  AddHttp(job, 2);
  const TFileServer server(job.Served);
  const auto place = MakePlace(server, job);
  const fs::path file = place->Folder() / "time";
  const auto set_clock = [&](const char* offset) { WriteFileWhole(file, offset); };
  set_clock("+0");
  TRun run(*place, job.Switches + "-CLOSE",
           {"LD_PRELOAD=" + library, "FAKETIME_TIMESTAMP_FILE=" + file.string(), "FAKETIME_NO_CACHE=1",
            "DONT_FAKE_MONOTONIC=1", "NO_FAKE_STAT=1"});
  ASSERT_TRUE(WaitUntil([&] { return server.Events() > 0; })) << run.Output();
  int changes = 0;
  const auto begin = std::chrono::steady_clock::now();
  while (!run.Wait(100ms) && changes < 300) set_clock(++changes % 2 != 0 ? "+1d" : "-1d");
  EXPECT_EQ(run.Wait(0s), 0) << run.Output();
  EXPECT_GE(changes, 8);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 60s);
  EXPECT_EQ(Incomplete(*place, job), "") << run.Output();
  EXPECT_EQ(run.Output().find("timed out"), std::string::npos) << run.Output();
  EXPECT_EQ(place->Leftovers(), "");
  AddReliabilityRow("Process", "the clock set forward and back by a day, ten times a second",
                    "charts and EUMETSAT images (HTTP)", "every file \"OK\"",
                    "the whole set, each file with its own time", "as usual; no time-out fires");
}

}  // namespace
}  // namespace skyreel::test
