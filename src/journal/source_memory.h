#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "journal/journal.h"

namespace skyreel {

/// A file that a described source has stored. A time of zero is an unknown one; fractions of a second are not
/// kept.
struct TStoredFile {
  std::string Source{};
  std::string Product{};
  TDateTime SlotTime{};  ///< UTC
  std::string Address{};
  std::filesystem::path Path{};  ///< absolute when the journal gives it back
  std::int64_t Bytes = 0;        ///< on the disk
  std::string Hash{};            ///< of the bytes as they came
  std::string ETag{}, LastModified{};
  std::string Stamp{};  ///< date and size as the server's listing shows them
};

/// A slot that the server did not have although it was overdue.
struct TMissedSlot {
  std::string Product;
  TDateTime SlotTime;
  std::int64_t Times = 0;  ///< how often it was missing; at least 1
  TDateTime LastAsked;

  /// When to ask again: 5, 15, 30, 60, 180, then every 360 minutes after the last time.
  TDateTime AskAgainAt() const;
};

/// What the journal remembers for one described source. Stored files are remembered until Forget, since a
/// file may be kept for longer than the journal's rows. A path belongs to the source that last stored it.
/// While the journal cannot be used, nothing is remembered; a deletion must then not happen.
class TSourceMemory {
 public:
  /// The journal outlives the object.
  TSourceMemory(TJournal& journal, std::string source) : journal_(journal), source_(std::move(source)) {}

  /// Replaces what was remembered of this path. `file.Source` is not used.
  void Remember(const TStoredFile& file);
  /// The file is gone.
  void Forget(const std::filesystem::path& path);

  /// The file of this path, whichever source stored it.
  std::optional<TStoredFile> At(const std::filesystem::path& path) const;
  /// The file that this product stored last from this address.
  std::optional<TStoredFile> Last(const std::string& product, const std::string& address) const;
  /// The files of slots before this time, the oldest first. Files of unknown slots are not among them.
  std::vector<TStoredFile> Before(TDateTime slot, std::int64_t limit) const;
  /// The missed slots from this time on.
  std::vector<TMissedSlot> Missed(TDateTime since) const;

 private:
  template <typename... TValues>
  std::vector<TStoredFile> Files(const std::string& condition, const TValues&... values) const;

  TJournal& journal_;
  const std::string source_;
};

}  // namespace skyreel
