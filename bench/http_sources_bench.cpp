// How long the HTTP sources take to find out what to fetch.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/files.h"
#include "bench_context.h"
#include "sources/eu_archive.h"
#include "sources/goes_gsfc.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> AllItems() {
  std::vector<std::string> items = EuArchiveSectorItems();
  items.insert(items.end(), EuArchiveProductItems().begin(), EuArchiveProductItems().end());
  return items;
}

/// The wanted list of 90 days for all 70 items.
void BM_ArchiveWantedList(benchmark::State& state) {
  const bool new_naming = state.range(0) != 0;
  const std::vector<std::string> items = AllItems();
  const TDateTime today = TDateTime::FromDate(2005, 11, 10);
  std::size_t images = 0;
  for (auto _ : state) {
    std::vector<TEuArchiveImage> list;
    for (const std::string& item : items) {
      for (int back = 0; back < 90; ++back) {
        const TDateTime day = today - std::chrono::days(back);
        for (TEuArchiveImage& image :
             new_naming ? EuArchiveNewImages(item, day, 0) : EuArchiveOldImages(item, day)) {
          list.push_back(std::move(image));
        }
      }
    }
    images = list.size();
  }
  state.counters["images"] = static_cast<double>(images);
}
BENCHMARK(BM_ArchiveWantedList)->ArgName("new")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

/// A listing page of 50 MB, full of frames that name nothing wanted, or of slashes.
void BM_ArchiveHostileListing(benchmark::State& state) {
  std::string page = "frame0\n";
  const std::string piece = state.range(0) == 0 ? "frame00 = \"/x\";\n" : "////////////////";
  while (page.size() < 50'000'000) page += piece;
  for (auto _ : state) {
    std::vector<TEuArchiveImage> images = EuArchiveOldImages("C1D", TDateTime::FromDate(2005, 11, 10));
    KeepListedImages(page, "http://server", images);
    benchmark::DoNotOptimize(images);
  }
}
BENCHMARK(BM_ArchiveHostileListing)->ArgName("slashes")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

constexpr int kDays = 90;

/// A folder with the files of a run, which have a size but no content. It is removed at the end.
class TFiledRun {
 public:
  TFiledRun() {
    std::string pattern = (fs::temp_directory_path() / "skyreel_benchXXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    folder_ = pattern;
    context_.emplace(folder_);
    context_->Context.Shared.BackDays = kDays;
    // A request would fail at once and count as a line.
    for (const TServerSetting& server : {kGoesServer, kEuArchiveNewServer})
      context_->Context.Servers.Set(server, "https://nowhere");
  }
  ~TFiledRun() { fs::remove_all(folder_); }
  TFiledRun(const TFiledRun&) = delete;
  TFiledRun& operator=(const TFiledRun&) = delete;

  std::string OutputPath() const { return (folder_ / "out/").string(); }
  TDateTime Today() const { return context_->Clock.UtcNow().Midnight(); }
  void Add(const fs::path& relative, std::uintmax_t size) {
    const fs::path path = OutputPath() / relative;
    if (path.parent_path() != parent_) fs::create_directories(parent_ = path.parent_path());
    std::ofstream(path).close();
    fs::resize_file(path, size);
    ++files_;
  }
  template <typename TJob, typename TSettings>
  void Measure(benchmark::State& state, const TSettings& settings) {
    for (auto _ : state) TJob(context_->Context, settings).Run();
    state.counters["files"] = files_;
    state.counters["asked"] = context_->Display.Lines;
  }

 private:
  fs::path folder_;
  fs::path parent_;
  std::optional<bench::TBenchContext> context_;
  int files_ = 0;
};

/// GOES over 90 days, every half hour, all products, everything on disk.
void BM_GoesAllPresent(benchmark::State& state) {
  TFiledRun run;
  for (const char satellite : {'e', 'w'}) {
    for (const char* const sector : {"conus", "fulldisk", "overview"}) {
      for (const char* const channel : {"I01", "I04", "I03"}) {
        for (int slot = 0; slot < 48 * kDays; ++slot) {
          const TDateTime time = run.Today() - std::chrono::days(kDays - 1) +
                                 slot * std::chrono::minutes(30) -
                                 std::chrono::minutes(satellite == 'e' ? 15 : 0);
          run.Add(std::string("goes-") + satellite + "/" + sector + "/" + FormatDateTime("yymmddhhnn", time) +
                      (satellite == 'e' ? "G13" : "G15") + channel + ".tif",
                  20'000);
        }
      }
    }
  }
  TGoesSettings settings;
  settings.OutputPath = run.OutputPath();
  settings.Sectors = GoesProductItems();
  run.Measure<TGoesJob>(state, settings);
}
// A fixed number of rounds: the library would make the files anew each time it tries another number.
BENCHMARK(BM_GoesAllPresent)->Unit(benchmark::kMillisecond)->Iterations(3);

/// The archive by its new naming over 90 days, all items, everything on disk.
void BM_ArchiveAllPresent(benchmark::State& state) {
  TFiledRun run;
  TEuArchiveSettings settings;
  settings.OutputPath = run.OutputPath();
  settings.NewNaming = true;
  settings.Items = AllItems();
  for (int back = 0; back < kDays; ++back) {
    const TDateTime day = run.Today() - std::chrono::days(back);
    for (const std::string& item : settings.Items) {
      for (const TEuArchiveImage& image : EuArchiveNewImages(item, day, 0)) {
        run.Add(DateFolder(day) / (image.LocalName + ".jpg"), 10'000);
      }
    }
  }
  run.Measure<TEuArchiveJob>(state, settings);
}
BENCHMARK(BM_ArchiveAllPresent)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace skyreel

BENCHMARK_MAIN();
