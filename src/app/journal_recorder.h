#pragma once

#include <QTimer>
#include <filesystem>

#include "base/clock.h"
#include "journal/journal.h"
#include "sources/source_table.h"
#include "transfer/file_result.h"
#include "transfer/transfer_context.h"

namespace skyreel {

/// Writes the jobs of the built-in sources into the journal. A fault of the journal becomes one status line.
class TJournalRecorder {
 public:
  /// `clock`: nullptr for the computer's. Clock and display outlive the object.
  TJournalRecorder(const std::filesystem::path& file, const TClock* clock, TStatusDisplay& display);

  void BeginRun(const TSource& source);
  void Record(const TFileResult& result);
  void EndRun();

 private:
  const TSystemClock own_clock_{{}};
  TJournal journal_;
  QTimer flush_timer_;
  bool failed_ = false;  ///< a file of this run
};

}  // namespace skyreel
