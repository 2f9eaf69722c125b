#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace skyreel {

/// How a noted transfer ended.
enum class TTransferEnd {
  Whole,      ///< the file is complete
  Cut,        ///< something was written to the file, and it is not known to be complete
  Untouched,  ///< nothing was written: what was there before is still what it was
};

/// Which final names are being written, or were left half-written. A transfer that writes straight to its
/// final name is noted here before it writes, and the note goes when it has ended whole. So a file that a
/// reset, a full disk or a kill left behind never passes for a complete one in later runs.
///
/// The notes stand in one small file, a line each: who writes, a blank, the absolute path with its control
/// characters and '%' as %XX. Who writes is "-" for a transfer that has ended, else boot, process number
/// and start time of the copy of the program that runs it; a copy that is gone has ended too. The file is
/// replaced whole under a lock, so several copies may use it, and a kill leaves it readable. Lines that make
/// no sense are passed over.
///
/// Not for use from several threads.
class TTransferLedger {
 public:
  /// Removes what killed copies left beside `file` while they wrote it.
  explicit TTransferLedger(std::filesystem::path file);

  /// Notes that `path` is about to be written. False, and nothing noted, while another running copy of the
  /// program writes it: this one must leave it alone. When the note cannot be saved it is kept in memory
  /// only, and OnProblem is told.
  [[nodiscard]] bool Begin(const std::filesystem::path& path);
  /// Ends what Begin began. Only after a whole transfer whose file is on the disk by then, or an untouched
  /// file that was not noted before, does the note go.
  void End(const std::filesystem::path& path, TTransferEnd end);

  /// Whether `path` is noted, by whichever copy.
  bool IsNoted(const std::filesystem::path& path);
  /// Whether `path` is a regular file that is not noted: complete, as far as this program knows. A file that
  /// another copy is just writing is not (Begin then refuses, so the two do not write over each other).
  bool Present(const std::filesystem::path& path);

  /// Told once, in one line, that notes cannot be saved (a read-only folder, a full disk).
  std::function<void(TTransferLedger& sender, const std::string& text)> OnProblem;

 private:
  /// Who writes, by encoded path.
  using TNotes = std::map<std::string, std::string, std::less<>>;
  /// Tells one version of the file from the next: each is a new file.
  struct TVersion {
    dev_t Device = 0;
    ino_t Inode = 0;
    std::int64_t Size = -1, Seconds = 0, Nanoseconds = 0;
    bool operator==(const TVersion&) const = default;
  };

  TVersion CurrentVersion() const;
  void Refresh();
  bool Change(const std::function<bool(TNotes&)>& change);

  std::filesystem::path file_;
  std::string self_;
  TNotes notes_;  ///< as read from the version of the file below
  TVersion version_;
  std::set<std::string> unsaved_;       ///< notes that could not be saved
  std::set<std::string> noted_before_;  ///< running transfers whose path was noted when they began
  bool told_ = false;
};

}  // namespace skyreel
