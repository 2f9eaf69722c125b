#pragma once

#include <QTimer>
#include <filesystem>
#include <string>
#include <vector>

#include "app/batch_record.h"
#include "base/clock.h"
#include "journal/journal.h"
#include "transfer/file_result.h"
#include "transfer/run_record.h"
#include "transfer/transfer_context.h"

namespace skyreel {

TJournalOutcome JournalOutcome(TFileState state);

/// Writes runs and what became of their files into the journal. A fault of the journal becomes one status
/// line.
class TJournalRecorder {
 public:
  /// `clock`: nullptr for the computer's. Clock and display outlive the object.
  TJournalRecorder(const std::filesystem::path& file, const TClock* clock, TStatusDisplay& display);

  /// `what` is run: a source, or the ids of several.
  void BeginRun(const std::string& what);
  void Record(const TFileResult& result);
  /// With the records of all sources of the run, and the exit code that they give.
  void EndRun(const std::vector<TRunRecord>& records, TExitCode code);
  TJournal& Journal() { return journal_; }

 private:
  const TSystemClock own_clock_{{}};
  TJournal journal_;
  QTimer flush_timer_;
};

}  // namespace skyreel
