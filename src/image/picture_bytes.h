#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace skyreel {

/// The bytes of a picture file, on the disk or in memory. A decoder reads them piece by piece.
class TPictureBytes {
 public:
  /// The caller keeps `data`.
  explicit TPictureBytes(std::string_view data)
      : data_(data), size_(static_cast<std::int64_t>(data.size())) {}
  /// Throws std::system_error.
  explicit TPictureBytes(const std::filesystem::path& path);

  std::int64_t Size() const { return size_; }
  /// Reads up to `count` bytes at the place `at`. Returns how many: fewer at the end, and where the disk
  /// fails.
  std::size_t Read(std::int64_t at, void* buffer, std::size_t count) noexcept;
  /// Throws std::system_error when a Read failed.
  void Check() const;

 private:
  std::string_view data_;
  std::filesystem::path path_;
  TDescriptor file_;
  std::int64_t size_ = 0;
  int error_ = 0;
};

}  // namespace skyreel
