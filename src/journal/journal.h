#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "journal/journal_file.h"

namespace skyreel {

/// What became of a file that was asked for. After the first three the file is there. The journal stores the
/// word of OutcomeWord.
enum class TJournalOutcome {
  New,      ///< stored, and was not there before
  Updated,  ///< stored in place of other bytes
  Present,  ///< was there already
  NotYet,   ///< the server does not have it, and may still get it
  Missing,  ///< the server does not have it, and it is overdue
  Failed,   ///< could not be fetched whole, or not stored
  Refused,  ///< its name, address or size is against the rules
};
inline constexpr std::size_t kJournalOutcomes = 7;
/// "new", "updated", "present", "not yet", "missing", "failed", "refused".
std::string_view OutcomeWord(TJournalOutcome outcome);

/// One file that was asked for. A time of zero is an unknown one. Fractions of a second in times, and what is
/// beyond 4,000 bytes of a text, are not kept.
struct TJournalEntry {
  std::string Source{};          ///< the tab's caption of a built-in source, else the id of the description
  std::string Product{};         ///< the user's choice
  TDateTime SlotTime{};          ///< of the picture, UTC
  std::string Address{};         ///< without user name and password
  std::filesystem::path Path{};  ///< absolute when the journal gives it back
  std::int64_t Bytes = 0;        ///< received
  double Seconds = 0;            ///< from the request to the end
  TJournalOutcome Outcome = TJournalOutcome::Failed;
  std::string Reason{};                ///< why there is no new file
  std::string ETag{}, LastModified{};  ///< as the server sent them
};

/// An entry as the journal gives it back.
struct TJournalRow : TJournalEntry {
  std::int64_t Id = 0;
  std::int64_t Run = 0;
  TDateTime At;  ///< when it was added
};

/// Which rows are wanted: all that meet every condition.
struct TJournalQuery {
  std::int64_t Run = 0;  ///< 0: of every run
  std::string Source{};  ///< empty: of every source
  TDateTime Since{};     ///< added at this time or later
  std::int64_t BeforeId =
      0;                     ///< only rows that follow this one in the order of the answer; 0: from the first
  std::int64_t AfterId = 0;  ///< only rows that were added after this one
  std::int64_t Limit = 500;
};

/// What became of the last try to fetch one slot.
struct TSlotOutcome {
  TDateTime SlotTime;
  TJournalOutcome Outcome = TJournalOutcome::Failed;
  std::string Reason{};
  std::filesystem::path Path{};
};

/// A file that was stored, as it came last.
struct TArrival {
  std::string Source, Product;
  TDateTime SlotTime;  ///< zero: unknown
  std::filesystem::path Path;
};

/// One source's part in a run.
struct TSourceRun {
  TDateTime At;          ///< when the last file of the source was counted
  TDateTime NewestSlot;  ///< of the files that are there, new and old; zero without files
  std::array<std::int64_t, kJournalOutcomes> Files{};  ///< by outcome
  std::int64_t Bytes = 0;

  std::int64_t Of(TJournalOutcome outcome) const { return Files.at(static_cast<std::size_t>(outcome)); }
  /// Something failed, and nothing new came.
  bool Failed() const;
};

enum class TSourceHealth {
  NeverRun,
  Fresh,
  Late,     ///< at the last run its newest file was older than it should be
  Failing,  ///< the last three runs failed
};
/// "never run", "fresh", "late", "failing".
const char* HealthText(TSourceHealth health);

/// What became of runs and files, kept for a year in one database file. Files that were present are counted,
/// not kept as rows. Several copies of the program may use the file at once. A damaged file is renamed to
/// "<name>.damaged-<date>" and begun anew; one from a newer version is left alone. While the file cannot be
/// used, rows wait in memory (the latest 10,000), and questions get empty answers. No operation throws for
/// that.
class TJournal {
 public:
  /// Opens the file, and creates its folder, at the first operation. The clock outlives the journal.
  TJournal(std::filesystem::path file, const TClock& clock);
  /// Writes what is left; tells nothing.
  ~TJournal();
  TJournal(const TJournal&) = delete;
  TJournal& operator=(const TJournal&) = delete;

  /// Leaves a damaged file to another journal, which tells the user what it did with it.
  void LeaveDamaged() { file_.LeaveDamaged(); }
  /// Gets a sentence about each fault of the file, each sentence once.
  void SetOnProblem(std::function<void(const std::string& text)> on_problem);

  // --- One run at a time. Rows wait in memory for at most 1,000 others, or until an operation finds that two
  // seconds have passed; a program that waits for longer calls Flush.

  /// `what` was run: switches, or a source.
  void BeginRun(const std::string& what);
  void Add(const TJournalEntry& entry);
  /// Counts files that were there already; the newest of them has this slot time (zero: unknown). With 0
  /// files it tells that the source took part in the run.
  void CountPresent(const std::string& source, std::int64_t files, TDateTime newest_slot = {});
  /// False when rows still wait.
  bool Flush();
  void EndRun(int exit_code);

  // --- Questions. They see all that was added.

  /// Whether there is a file to ask. The other questions make one.
  bool FileExists() const { return file_.Exists(); }

  /// The number of the current run, or else of the last one; 0 before the first.
  std::int64_t RunNumber();
  /// The number of the newest run of any copy of the program; 0 before the first.
  std::int64_t NewestRun();
  /// False when the last question could not be put, and so had an empty answer.
  bool Answered() const { return answered_; }
  /// The newest rows first.
  std::vector<TJournalRow> Rows(const TJournalQuery& query);
  /// The last try of each slot from this time on, in the order of their times.
  std::vector<TSlotOutcome> LastTries(const std::string& source, const std::string& product, TDateTime since);
  /// The stored files of a source and its product, each path once, the newest images first. Empty: of all.
  std::vector<TArrival> Arrivals(const std::string& source, const std::string& product, std::int64_t limit);
  /// The sources that have stored files, each with its products.
  std::map<std::string, std::set<std::string>> ArrivedProducts();
  /// The last run in which the source took part.
  std::optional<TSourceRun> LastRun(const std::string& source);
  /// `stale` is the age from which the newest file is late; zero: never.
  TSourceHealth Health(const std::string& source, TDateTime::TSpan stale);

  // --- For TSourceMemory.

  TDateTime Now() const { return clock_.UtcNow(); }
  /// Keeps a change for the next Flush. It may be called again when the first try failed.
  void Write(std::function<void(TDatabase& database)> change);
  /// Writes what waits, and asks.
  void Ask(const std::function<void(TDatabase& database)>& question);

 private:
  struct TRun {
    std::int64_t Id = 0;
    std::map<std::string, TSourceRun> Sources;
    std::set<std::string> Changed;  ///< the sources whose counts are not yet written
  };
  TSourceRun& Count(const std::string& source, TJournalOutcome outcome, std::int64_t files, TDateTime slot);
  void WriteCounts();
  void Prune();
  std::vector<TSourceRun> LastRuns(const std::string& source, std::int64_t count);

  const TClock& clock_;
  TJournalFile file_;
  std::shared_ptr<TRun> run_ = std::make_shared<TRun>();
  std::deque<std::function<void(TDatabase&)>> waiting_;
  std::chrono::steady_clock::time_point last_flush_{};
  bool answered_ = true;
};

}  // namespace skyreel
