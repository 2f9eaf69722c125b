#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "base/clock.h"
#include "base/files.h"
#include "journal/database.h"

namespace skyreel {

/// The journal's database file: opens it at its first use, brings its tables up to date, and deals with every
/// fault, so that a fault costs the journal alone.
class TJournalFile {
 public:
  /// The clock outlives the object.
  TJournalFile(std::filesystem::path file, const TClock& clock) : file_(std::move(file)), clock_(clock) {}

  /// Calls `action` with the open database; it may call it again with a new file after damage was found.
  /// False when that failed. Never throws EDatabaseError.
  bool Use(const std::function<void(TDatabase& database)>& action);
  bool Exists() const { return FileSizeOf(file_) >= 0; }
  /// How long a use waits while another process writes, at least kPatience. A longer wait in vain is a fault;
  /// after kPatience the caller tries again later.
  void SetPatience(std::chrono::milliseconds patience);
  static constexpr std::chrono::milliseconds kPatience{250};

  /// From now on a damaged file stays as it is.
  void LeaveDamaged() { leaves_damaged_ = true; }

  /// Gets a sentence about each fault, each sentence once.
  std::function<void(const std::string& text)> OnProblem;

 private:
  void Open();
  void BringUpToDate();
  bool MoveAside();
  void TellUnusable(const std::string& reason);
  void Tell(const std::string& text);

  const std::filesystem::path file_;
  const TClock& clock_;
  std::unique_ptr<TDatabase> database_;
  std::pair<dev_t, ino_t> opened_{};  ///< identifies the file that is open
  std::chrono::milliseconds patience_ = kPatience;
  bool leaves_damaged_ = false;
  bool off_ = false;  ///< the file must be left alone
  std::set<std::string> told_;
};

}  // namespace skyreel
