#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace skyreel {

/// Bytes in memory that can grow to gigabytes without being copied: the system moves the pages. Large
/// expected sizes use huge pages, since the first touch of 4 KiB pages costs more time than decoding into
/// them. Unused memory takes address space only. Clear keeps the memory for the next use.
class TMemoryStream {
 public:
  /// Bytes before the content, free for a decoder's own use.
  static constexpr std::size_t kHeadroom = 256;
  /// Bytes behind the reserved ones that wide copies may read and overwrite.
  static constexpr std::size_t kSlack = 64;

  TMemoryStream() = default;
  ~TMemoryStream();
  TMemoryStream(const TMemoryStream&) = delete;
  TMemoryStream& operator=(const TMemoryStream&) = delete;

  /// The first byte of the content. Reserve can move it. Null before the first Reserve.
  char* Data() { return data_; }
  std::int64_t Size() const { return static_cast<std::int64_t>(size_); }
  std::int64_t Capacity() const { return static_cast<std::int64_t>(capacity_); }
  std::string_view View() const { return {data_, size_}; }

  /// Makes room for at least `capacity` bytes; keeps content and headroom. Throws std::bad_alloc.
  void Reserve(std::int64_t capacity);
  /// A hint that the content will probably reach `size` bytes. Huge pages are used up to there, as far as
  /// they fit whole, so that none stays nearly empty.
  void ExpectSize(std::int64_t size);
  /// Makes the content `size` bytes long. Bytes beyond the old size hold what was written there.
  void SetSize(std::int64_t size);
  void Clear() { size_ = 0; }

  /// Makes a whole file the content. Throws std::system_error, or ERangeError for more than `limit` bytes.
  void LoadFromFile(const std::filesystem::path& path, std::int64_t limit);

 private:
  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::size_t mapped_ = 0;  ///< bytes mapped, from data_ - kHeadroom
  std::size_t huge_ = 0;    ///< how many of these may be in huge pages
};

}  // namespace skyreel
