#pragma once

#include <filesystem>

#include "journal/journal.h"

namespace skyreel {

/// Asks the journal's file from a worker thread; the program's own journal belongs to another thread.
class TWorkerJournal {
 public:
  explicit TWorkerJournal(const std::filesystem::path& file) : Journal(file, clock_) {}

 private:
  const TSystemClock clock_{{}};

 public:
  TJournal Journal;
};

}  // namespace skyreel
