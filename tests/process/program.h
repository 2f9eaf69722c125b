#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace skyreel::test {

/// The program in a folder of its own, with a home, settings and a temporary folder there.
class TPlace {
 public:
  /// Throws std::runtime_error when the program does not know one of the settings (lines "Name=value").
  TPlace(const std::string& http_root, const std::string& ftp_root, const std::string& settings);

  std::filesystem::path Out() const { return folder_ / "home/Skyreel"; }
  std::filesystem::path Bin() const { return folder_ / "bin"; }
  std::filesystem::path Folder() const { return folder_.Path(); }
  /// The lines of the report; none when there is no report.
  std::vector<std::string> Report() const;
  std::string Settings() const;
  /// The absolute paths noted in the transfer ledger.
  std::string Ledger() const;
  /// Temporary files, folders and locks anywhere in the folder, a line each.
  std::string Leftovers() const;

 private:
  TTempFolder folder_;
};

/// One run of a place's program.
class TRun {
 public:
  /// `environment`: "NAME=value", added to what cron would give it.
  TRun(const TPlace& place, const std::string& switches, std::vector<std::string> environment = {});
  ~TRun();
  TRun(const TRun&) = delete;
  TRun& operator=(const TRun&) = delete;

  pid_t Process() const { return process_; }
  void Signal(int number) const;
  /// The exit code, or minus the number of the signal that ended it; none when it goes on beyond the time.
  std::optional<int> Wait(std::chrono::milliseconds limit);
  /// What it wrote to its standard outputs.
  std::string Output() const;

 private:
  std::filesystem::path output_;
  pid_t process_;
  std::optional<int> result_;
};

}  // namespace skyreel::test
