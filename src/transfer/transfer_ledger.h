#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace skyreel {

/// The end of a noted path that is a temporary name: such a file of a copy that was killed is rubbish.
inline constexpr std::string_view kPartSuffix = ".part";

/// How a noted transfer ended.
enum class TTransferEnd {
  Whole,      ///< the file is complete
  Cut,        ///< something was written to the file, which is perhaps not complete
  Untouched,  ///< nothing was written: an older file is still as it was
};

/// Knows which final names are being written or were left half-written. A transfer that writes straight to
/// its final name is noted here first, and the note goes when the file is whole. So later runs never take a
/// file that a reset, a full disk or a kill cut short for a complete one.
///
/// The notes stand in one small file, a line each: who writes, a blank, the absolute path with its control
/// characters and '%' as %XX. Who writes is "-" for a transfer that has ended, otherwise boot, process number
/// and start time of the copy of the program that runs it. A copy that no longer runs has ended, too. The
/// file is replaced whole under a lock, so several copies may use it, and a kill leaves it readable. Lines
/// that make no sense are skipped.
///
/// Not for use from several threads.
class TTransferLedger {
 public:
  /// Removes the temporary files that killed copies left in the folder of `file`, and those that they noted.
  explicit TTransferLedger(std::filesystem::path file);
  /// For questions alone: changes nothing on the disk.
  static TTransferLedger ToRead(std::filesystem::path file) { return {std::move(file), ""}; }

  /// Notes that `path` is about to be written. False, and nothing noted, while another running copy of the
  /// program writes it: this one must leave it alone. A note that cannot be saved is kept in memory only, and
  /// OnProblem gets the reason.
  [[nodiscard]] bool Begin(const std::filesystem::path& path);
  /// Ends what Begin began. The note goes after a whole transfer whose file is on the disk by then, and after
  /// an untouched file that was not noted before; otherwise it stays.
  void End(const std::filesystem::path& path, TTransferEnd end);

  /// The absolute paths that any copy has noted.
  std::vector<std::filesystem::path> Noted();
  /// Whether any copy has noted `path`.
  bool IsNoted(const std::filesystem::path& path);
  /// Whether `path` is a regular file that is not noted: complete, as far as this program knows. A file that
  /// another copy is writing is not present.
  bool Present(const std::filesystem::path& path);

  /// Gets one line, once, when notes cannot be saved (a read-only folder, a full disk).
  std::function<void(TTransferLedger& sender, const std::string& text)> OnProblem;

 private:
  /// Who writes, by encoded path.
  using TNotes = std::map<std::string, std::string, std::less<>>;
  /// Identifies one version of the file; each version is a new file.
  struct TVersion {
    dev_t Device = 0;
    ino_t Inode = 0;
    std::int64_t Size = -1, Seconds = 0, Nanoseconds = 0;
    bool operator==(const TVersion&) const = default;
  };

  TTransferLedger(std::filesystem::path file, std::string self)
      : file_(std::move(file)), self_(std::move(self)) {}
  TVersion CurrentVersion() const;
  void Refresh();
  void RemoveParts();
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
