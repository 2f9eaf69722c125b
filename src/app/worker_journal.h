#pragma once

#include <chrono>
#include <filesystem>

#include "journal/journal.h"

namespace skyreel {

/// What a view tells while another program has locked the journal, and after what time it asks again.
inline constexpr const char* kJournalBusy = "The journal is in use by another program; trying again";
inline constexpr auto kJournalRetry = std::chrono::seconds(1);

/// Asks the journal's file from a worker thread; the program's own journal belongs to another thread.
class TWorkerJournal {
 public:
  explicit TWorkerJournal(const std::filesystem::path& file) : Journal(file, clock_) {
    Journal.LeaveDamaged();
  }

 private:
  const TSystemClock clock_{{}};

 public:
  TJournal Journal;
};

}  // namespace skyreel
