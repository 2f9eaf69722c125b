#include "journal/journal.h"

#include <algorithm>
#include <utility>

namespace skyreel {

namespace {

constexpr auto kFlushInterval = std::chrono::seconds(2);
constexpr std::size_t kBatch = 1'000;
constexpr std::size_t kMostWaiting = 10'000;
constexpr auto kKept = std::chrono::days(366);
/// At most so many rows are pruned after a run. More would keep the user waiting.
constexpr std::int64_t kMostPruned = 20'000;
/// At the end of a run another copy may write for so long.
constexpr auto kLongPatience = std::chrono::seconds(5);
constexpr std::size_t kLongestText = 4'000;
constexpr std::int64_t kFailingRuns = 3;

constexpr std::array<std::string_view, kJournalOutcomes> kWords = {"new",     "updated", "present", "not yet",
                                                                   "missing", "failed",  "refused"};

TJournalOutcome OutcomeOf(std::string_view word) {
  const auto found = std::ranges::find(kWords, word);
  return found == kWords.end() ? TJournalOutcome::Failed
                               : static_cast<TJournalOutcome>(found - kWords.begin());
}

std::string_view Short(const std::string& text) {
  return std::string_view(text).substr(0, kLongestText);
}

}  // namespace

std::string_view OutcomeWord(TJournalOutcome outcome) {
  return kWords.at(static_cast<std::size_t>(outcome));
}

bool TSourceRun::Failed() const {
  return Of(TJournalOutcome::Failed) > 0 && Of(TJournalOutcome::New) + Of(TJournalOutcome::Updated) == 0;
}

TJournal::TJournal(std::filesystem::path file, const TClock& clock)
    : clock_(clock), file_(std::move(file), clock) {}

TJournal::~TJournal() {
  file_.OnProblem = nullptr;  // what it refers to may be gone
  Flush();
}

void TJournal::SetOnProblem(std::function<void(const std::string& text)> on_problem) {
  file_.OnProblem = std::move(on_problem);
}

void TJournal::BeginRun(const std::string& what) {
  Flush();
  run_ = std::make_shared<TRun>();
  Write([run = run_, what, began = clock_.UtcNow().UnixTime()](TDatabase& database) {
    database.Prepared("INSERT INTO runs(what, began) VALUES(?, ?)").Run(what, began);
    run->Id = database.LastRow();
  });
}

void TJournal::Add(const TJournalEntry& entry) {
  TSourceRun& source = Count(entry.Source, entry.Outcome, 1,
                             entry.Outcome <= TJournalOutcome::Present ? entry.SlotTime : TDateTime());
  source.Bytes += entry.Bytes;
  if (entry.Outcome == TJournalOutcome::Present) return;
  Write([run = run_, at = clock_.UtcNow().UnixTime(), entry](TDatabase& database) {
    const std::string path = PathColumn(entry.Path);
    if (entry.Outcome <= TJournalOutcome::Updated)
      database.Prepared("DELETE FROM stored WHERE path = ? AND source <> ?").Run(path, entry.Source);
    database
        .Prepared(
            "INSERT INTO files(run, at, source, product, slot, address, path, bytes, seconds, outcome, "
            "reason, etag, last_modified) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .Run(run->Id, at, entry.Source, entry.Product, ToColumn(entry.SlotTime), Short(entry.Address), path,
             entry.Bytes, entry.Seconds, OutcomeWord(entry.Outcome), Short(entry.Reason), Short(entry.ETag),
             Short(entry.LastModified));
  });
}

void TJournal::CountPresent(const std::string& source, std::int64_t files, TDateTime newest_slot) {
  Count(source, TJournalOutcome::Present, files, newest_slot);
}

TSourceRun& TJournal::Count(const std::string& source, TJournalOutcome outcome, std::int64_t files,
                            TDateTime slot) {
  TSourceRun& counts = run_->Sources[source];
  counts.At = clock_.UtcNow();
  counts.NewestSlot = std::max(counts.NewestSlot, slot);
  counts.Files.at(static_cast<std::size_t>(outcome)) += files;
  run_->Changed.insert(source);
  return counts;
}

void TJournal::Write(std::function<void(TDatabase& database)> change) {
  if (waiting_.size() == kMostWaiting) waiting_.pop_front();
  waiting_.push_back(std::move(change));
  if (waiting_.size() % kBatch == 0 || std::chrono::steady_clock::now() - last_flush_ >= kFlushInterval)
    Flush();
}

bool TJournal::Flush() {
  last_flush_ = std::chrono::steady_clock::now();
  WriteCounts();
  if (waiting_.empty()) return true;
  const bool written = file_.Use([this](TDatabase& database) {
    TTransaction transaction(database);
    for (const auto& change : waiting_) change(database);
    transaction.Commit();
  });
  if (written) waiting_.clear();
  return written;
}

void TJournal::WriteCounts() {
  for (const std::string& source : std::exchange(run_->Changed, {})) {
    waiting_.push_back([run = run_, source, counts = run_->Sources[source]](TDatabase& database) {
      const auto& [anew, updated, present, not_yet, missing, failed, refused] = counts.Files;
      database
          .Prepared(
              "INSERT OR REPLACE INTO run_sources(run, source, at, newest_slot, new, updated, present, "
              "not_yet, missing, failed, refused, bytes) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
          .Run(run->Id, source, counts.At.UnixTime(), ToColumn(counts.NewestSlot), anew, updated, present,
               not_yet, missing, failed, refused, counts.Bytes);
    });
  }
}

void TJournal::EndRun(int exit_code) {
  file_.SetPatience(kLongPatience);
  Write([run = run_, ended = clock_.UtcNow().UnixTime(), exit_code](TDatabase& database) {
    database.Prepared("UPDATE runs SET ended = ?, exit = ? WHERE id = ?")
        .Run(ended, std::int64_t{exit_code}, run->Id);
  });
  Prune();
  Flush();
  file_.SetPatience({});
}

void TJournal::Prune() {
  Write([before = (clock_.UtcNow() - kKept).UnixTime()](TDatabase& database) {
    database.Prepared("DELETE FROM files WHERE id IN (SELECT id FROM files WHERE at < ? ORDER BY at LIMIT ?)")
        .Run(before, kMostPruned);
    database.Prepared("DELETE FROM run_sources WHERE run IN (SELECT id FROM runs WHERE began < ?)")
        .Run(before);
    database.Prepared("DELETE FROM runs WHERE began < ?").Run(before);
  });
}

void TJournal::Ask(const std::function<void(TDatabase& database)>& question) {
  Flush();
  answered_ = file_.Use(question);
}

std::int64_t TJournal::RunNumber() {
  Flush();
  return run_->Id;
}

std::int64_t TJournal::NewestRun() {
  std::int64_t run = 0;
  Ask([&run](TDatabase& database) {
    TStatement newest(database, "SELECT max(id) FROM runs");
    newest.Next();
    run = newest.Number(0);
  });
  return run;
}

std::vector<TJournalRow> TJournal::Rows(const TJournalQuery& query) {
  std::string sql =
      "SELECT id, run, at, source, product, slot, address, path, bytes, seconds, outcome, reason, etag, "
      "last_modified FROM files WHERE at >= ?1";
  if (query.Run != 0) sql += " AND run = ?2";
  if (!query.Source.empty()) sql += " AND source = ?3";
  if (query.BeforeId != 0) sql += " AND (at, id) < (SELECT at, id FROM files WHERE id = ?4)";
  if (query.AfterId != 0) sql += " AND id > ?5";
  sql += " ORDER BY at DESC, id DESC LIMIT ?6";
  std::vector<TJournalRow> rows;
  Ask([&](TDatabase& database) {
    rows.clear();
    TStatement found(database, sql);
    found.With(query.Since.UnixTime(), query.Run, query.Source, query.BeforeId, query.AfterId, query.Limit);
    while (found.Next()) {
      TJournalRow& row = rows.emplace_back();
      row.Id = found.Number(0);
      row.Run = found.Number(1);
      row.At = TimeOf(found, 2);
      row.Source = found.Text(3);
      row.Product = found.Text(4);
      row.SlotTime = TimeOf(found, 5);
      row.Address = found.Text(6);
      row.Path = found.Text(7);
      row.Bytes = found.Number(8);
      row.Seconds = found.Real(9);
      row.Outcome = OutcomeOf(found.Text(10));
      row.Reason = found.Text(11);
      row.ETag = found.Text(12);
      row.LastModified = found.Text(13);
    }
  });
  return rows;
}

std::vector<TSlotOutcome> TJournal::LastTries(const std::string& source, const std::string& product,
                                              TDateTime since) {
  std::vector<TSlotOutcome> tries;
  Ask([&](TDatabase& database) {
    tries.clear();
    // SQLite takes the other columns from the row that has the maximum.
    TStatement found(database,
                     "SELECT slot, outcome, reason, path, max(id) FROM files "
                     "WHERE source = ? AND product = ? AND slot >= ? GROUP BY slot");
    found.With(source, product, since.UnixTime());
    while (found.Next())
      tries.push_back({TimeOf(found, 0), OutcomeOf(found.Text(1)), found.Text(2), found.Text(3)});
  });
  return tries;
}

std::vector<TArrival> TJournal::Arrivals(const std::string& source, const std::string& product,
                                         std::int64_t limit) {
  std::string sql =
      "SELECT source, product, slot, path, MAX(id) FROM files WHERE outcome IN ('new', 'updated')";
  if (!source.empty()) sql += " AND source = ?1";
  if (!product.empty()) sql += " AND product = ?2";
  sql += " GROUP BY path ORDER BY COALESCE(slot, at) DESC, MAX(id) DESC LIMIT ?3";
  std::vector<TArrival> files;
  Ask([&](TDatabase& database) {
    files.clear();
    TStatement found(database, sql);
    found.With(source, product, limit);
    while (found.Next()) files.push_back({found.Text(0), found.Text(1), TimeOf(found, 2), found.Text(3)});
  });
  return files;
}

std::map<std::string, std::set<std::string>> TJournal::ArrivedProducts() {
  std::map<std::string, std::set<std::string>> products;
  Ask([&](TDatabase& database) {
    products.clear();
    TStatement found(database,
                     "SELECT DISTINCT source, product FROM files WHERE outcome IN ('new', 'updated')");
    while (found.Next()) products[found.Text(0)].insert(found.Text(1));
  });
  return products;
}

std::vector<TSourceRun> TJournal::LastRuns(const std::string& source, std::int64_t count) {
  std::vector<TSourceRun> runs;
  Ask([&](TDatabase& database) {
    runs.clear();
    TStatement found(
        database,
        "SELECT at, newest_slot, bytes, new, updated, present, not_yet, missing, failed, refused "
        "FROM run_sources WHERE source = ? ORDER BY run DESC LIMIT ?");
    found.With(source, count);
    while (found.Next()) {
      TSourceRun& run = runs.emplace_back();
      run.At = TimeOf(found, 0);
      run.NewestSlot = TimeOf(found, 1);
      run.Bytes = found.Number(2);
      for (int column = 3; std::int64_t & files : run.Files) files = found.Number(column++);
    }
  });
  return runs;
}

std::optional<TSourceRun> TJournal::LastRun(const std::string& source) {
  return FirstOf(LastRuns(source, 1));
}

const char* HealthText(TSourceHealth health) {
  switch (health) {
    case TSourceHealth::NeverRun:
      return "never run";
    case TSourceHealth::Fresh:
      return "fresh";
    case TSourceHealth::Late:
      return "late";
    case TSourceHealth::Failing:
      break;
  }
  return "failing";
}

TSourceHealth TJournal::Health(const std::string& source, TDateTime::TSpan stale) {
  const std::vector<TSourceRun> runs = LastRuns(source, kFailingRuns);
  if (runs.empty()) return TSourceHealth::NeverRun;
  if (runs.size() == kFailingRuns && std::ranges::all_of(runs, &TSourceRun::Failed))
    return TSourceHealth::Failing;
  const auto seen =
      std::ranges::find_if(runs, [](const TSourceRun& run) { return !run.NewestSlot.IsZero(); });
  if (stale.count() > 0 && (seen == runs.end() || runs.front().At - seen->NewestSlot > stale))
    return TSourceHealth::Late;
  return TSourceHealth::Fresh;
}

}  // namespace skyreel
