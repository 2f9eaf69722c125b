// journal_bench <file> make : writes a journal of 1,000,000 files, a year of runs every six hours.
// journal_bench <file>      : asks it for a month, and prints the best times in microseconds.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "journal/journal.h"
#include "journal/source_memory.h"

using namespace skyreel;

namespace {

constexpr std::int64_t kRows = 1'000'000;
constexpr int kSources = 20;
const TDateTime kEnd = TDateTime::FromDate(2026, 11, 1);
const TDateTime kMonth = kEnd - std::chrono::days(30);

/// Set by hand.
class TBenchClock : public TClock {
 public:
  TDateTime UtcNow() const override { return Now; }
  void Sleep(std::chrono::milliseconds) override {}

  TDateTime Now = kEnd;
};

void Make(TJournal& journal, TBenchClock& clock) {
  constexpr std::int64_t kRuns = 365 * 4;
  for (std::int64_t run = 0, row = 0; run < kRuns; ++run) {
    clock.Now = kEnd - std::chrono::hours(6) * (kRuns - run);
    journal.BeginRun("-X");
    for (; row < kRows * (run + 1) / kRuns; ++row) {
      TJournalEntry entry;
      entry.Source = "org.example.source" + std::to_string(row % kSources);
      entry.Product = "product " + std::to_string(row % 7);
      entry.SlotTime = clock.Now - std::chrono::minutes(10);
      const std::string name = FormatDateTime("yyyy/mm/dd/hhnn_", clock.Now) + std::to_string(row) + ".jpg";
      entry.Address = "https://pictures.example.org/" + name;
      entry.Path = "/home/user/Skyreel/Live/" + name;
      entry.Bytes = 400'000;
      entry.Outcome = row % 11 == 0 ? TJournalOutcome::Missing : TJournalOutcome::New;
      entry.ETag = "\"" + std::to_string(row) + "\"";
      entry.LastModified = "Thu, 26 Nov 2026 12:00:00 GMT";
      journal.Add(entry);
    }
    journal.EndRun(0);
  }
}

void Measure(const char* what, const std::function<void()>& question) {
  std::int64_t best = INT64_MAX;
  for (int round = 0; round < 9; ++round) {
    const auto start = std::chrono::steady_clock::now();
    question();
    best = std::min<std::int64_t>(best,
                                  (std::chrono::steady_clock::now() - start) / std::chrono::microseconds(1));
  }
  std::printf("%s %lld\n", what, static_cast<long long>(best));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  TBenchClock clock;
  TJournal journal(argv[1], clock);
  journal.SetOnProblem([](const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); });
  if (argc > 2) {
    Make(journal, clock);
    return 0;
  }
  const std::string source = "org.example.source3";
  TJournalQuery last{.Since = kMonth, .Limit = 1'000'000};
  last.BeforeId = (journal.Rows(last).end() - 500)->Id;
  last.Limit = 500;
  Measure("first", [&] { journal.Rows({.Since = kMonth, .Limit = 500}); });
  Measure("last", [&] { journal.Rows(last); });
  Measure("source", [&] { journal.Rows({.Source = source, .Since = kMonth, .Limit = 500}); });
  Measure("missed", [&] { TSourceMemory(journal, source).Missed(kMonth); });
}
