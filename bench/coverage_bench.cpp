// The coverage of a year of a described source with a picture every 10 minutes: 52,560 files on the disk and
// as many rows of the journal among 500,000.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <fstream>

#include "app/coverage_table.h"
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

/// The files and the journal, made once.
class TYear {
 public:
  TYear() {
    TBenchClock clock;
    TJournal journal(JournalFile, clock);
    journal.BeginRun("-X");
    const auto expected = ExpectationOf(Source, {}, kNow, kDays, {}).Files;
    for (auto file = expected.rbegin(); file != expected.rend(); ++file) {
      clock.Now = file->Slot;
      TJournalEntry entry{.Source = Source.Id, .SlotTime = file->Slot, .Path = Output / file->Path};
      entry.Outcome = TJournalOutcome::New;
      journal.Add(entry);
      entry.Product = "other";
      for (int i = 0; i < 8; ++i) journal.Add(entry);
      ForceDirectories(entry.Path.parent_path());
      std::ofstream(entry.Path) << "x";
    }
    journal.EndRun(0);
  }
  ~TYear() { std::filesystem::remove_all(folder_); }

 private:
  std::string name_ = (std::filesystem::temp_directory_path() / "skyreel-bench-XXXXXX").string();
  const std::filesystem::path folder_ = ::mkdtemp(name_.data());

 public:
  const TDescription Source = ReadDescription(kSource, "bench").Description.value();
  const std::filesystem::path Output = folder_ / "out", JournalFile = folder_ / "Journal.sqlite";
};

void BM_CoverageOfAYear(benchmark::State& state) {
  static const TYear year;
  const TBenchClock clock;
  int whole = 0;
  for (auto _ : state) {
    TJournal journal(year.JournalFile, clock);
    TCoverageRequest request{.Now = kNow, .Days = kDays, .Output = year.Output};
    request.Expected = ExpectationOf(year.Source, {}, kNow, kDays, {});
    request.Tries = journal.LastTries(year.Source.Id, "", kNow - std::chrono::days(kDays));
    whole = MakeCoverage(std::move(request)).Counts().front();
  }
  state.counters["cells"] = whole;
}
BENCHMARK(BM_CoverageOfAYear)->Unit(benchmark::kMillisecond);

void BM_RepaintCoverage(benchmark::State& state) {
  const TDescription source = ReadDescription(kSource, "bench").Description.value();
  TCoverageModel model;
  TCoverageTable table(model);
  TCoverageRequest request{.Now = kNow, .Days = kDays, .Output = "/nowhere"};
  request.Expected = ExpectationOf(source, {}, kNow, kDays, {});
  model.Show(MakeCoverage(std::move(request)));
  table.resize(1600, 1000);
  table.show();
  if (state.range(0) == 1) table.selectAll();
  QApplication::processEvents();
  for (auto _ : state) table.viewport()->repaint();
  state.counters["cells"] = (table.rowAt(table.viewport()->height() - 1) + 1) * model.columnCount();
}
BENCHMARK(BM_RepaintCoverage)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace skyreel

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
