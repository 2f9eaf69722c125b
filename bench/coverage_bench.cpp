// The coverage of a year of a described source with a picture every 10 minutes: 52,560 files on the disk and as
// many rows of the journal among 500,000.
#include <benchmark/benchmark.h>

#include <fstream>

#include "base/files.h"
#include "catalogue/coverage.h"
#include "catalogue/description_reader.h"

namespace skyreel {
namespace {

constexpr std::string_view kSource = R"(format = 1
id = "org.example.sat"
title = "Sat"
licence = { name = "none", use = "any" }
[time]
every = "10m"
[get]
url = "https://example.org/{%Y%j%H%M}.jpg"
type = "image/jpeg"
[keep]
folder = "Satellites/Sat/{%Y-%m-%d}"
name = "sat_{%Y%m%d_%H%M}.jpg"
)";
constexpr int kDays = 365;
const TDateTime kNow = TDateTime::FromDate(2026, 11, 26, 23, 59);

/// Set by hand.
class TBenchClock : public TClock {
 public:
  TDateTime UtcNow() const override { return Now; }
  void Sleep(std::chrono::milliseconds) override {}

  TDateTime Now = kNow;
};

void BM_CoverageOfAYear(benchmark::State& state) {
  std::string name = (std::filesystem::temp_directory_path() / "skyreel-bench-XXXXXX").string();
  const std::filesystem::path folder = ::mkdtemp(name.data()), output = folder / "out";
  const TDescription source = ReadDescription(kSource, "bench").Description.value();
  TBenchClock clock;
  {
    TJournal journal(folder / "Journal.sqlite", clock);
    journal.BeginRun("-X");
    const auto expected = ExpectationOf(source, {}, kNow, kDays, {}).Files;
    for (auto file = expected.rbegin(); file != expected.rend(); ++file) {
      clock.Now = file->Slot;
      TJournalEntry entry{.Source = source.Id, .SlotTime = file->Slot, .Path = output / file->Path};
      entry.Outcome = TJournalOutcome::New;
      journal.Add(entry);
      entry.Source = "org.example.other";
      for (int i = 0; i < 8; ++i) journal.Add(entry);
      ForceDirectories(entry.Path.parent_path());
      std::ofstream(entry.Path) << "x";
    }
    journal.EndRun(0);
  }
  clock.Now = kNow;
  int whole = 0;
  for (auto _ : state) {
    TJournal journal(folder / "Journal.sqlite", clock);
    TCoverageRequest request{.Now = kNow, .Days = kDays, .Output = output};
    request.Expected = ExpectationOf(source, {}, kNow, kDays, {});
    request.Tries = journal.LastTries(source.Id, "", kNow - std::chrono::days(kDays));
    whole = MakeCoverage(std::move(request)).Counts().front();
  }
  state.counters["whole"] = whole;
  std::filesystem::remove_all(folder);
}
BENCHMARK(BM_CoverageOfAYear)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace skyreel

BENCHMARK_MAIN();
