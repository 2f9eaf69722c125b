#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace skyreel {

/// Bytes in memory that may grow to gigabytes without being copied: the system moves the pages, and large
/// amounts that are expected are asked for in huge pages, since touching fresh 4 KiB pages costs more than
/// decoding into them. Memory that is not yet used takes address space only. Clear keeps the memory for the
/// next use.
class TMemoryStream {
 public:
  /// Bytes before the content that a decoder may use for itself while it writes.
  static constexpr std::size_t kHeadroom = 256;
  /// Bytes behind the reserved ones that may be read and overwritten, so that wide copies may overshoot.
  static constexpr std::size_t kSlack = 64;

  TMemoryStream() = default;
  ~TMemoryStream();
  TMemoryStream(const TMemoryStream&) = delete;
  TMemoryStream& operator=(const TMemoryStream&) = delete;

  /// The content's first byte; moves when Reserve has to find more room. Null before the first Reserve.
  char* Data() { return data_; }
  std::int64_t Size() const { return static_cast<std::int64_t>(size_); }
  std::int64_t Capacity() const { return static_cast<std::int64_t>(capacity_); }
  std::string_view View() const { return {data_, size_}; }

  /// Room for at least `capacity` bytes; content and headroom are kept. Throws std::bad_alloc.
  void Reserve(std::int64_t capacity);
  /// The content will reach `size` bytes, as far as is known: huge pages are used up to there, where they fit
  /// whole, so that none is taken for a rest that stays empty. Only a hint.
  void ExpectSize(std::int64_t size);
  /// Makes the content `size` bytes long; bytes beyond the old size hold what was written there, or anything.
  void SetSize(std::int64_t size);
  void Clear() { size_ = 0; }

  /// Takes a whole file as the content. Throws std::system_error, or ERangeError when it holds more than
  /// `limit` bytes.
  void LoadFromFile(const std::filesystem::path& path, std::int64_t limit);

 private:
  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::size_t mapped_ = 0;  ///< bytes mapped from data_ - kHeadroom on
  std::size_t huge_ = 0;    ///< of these, bytes that may be in huge pages
};

}  // namespace skyreel
