#pragma once

#include <cstdint>
#include <filesystem>

#include "base/descriptor.h"

namespace skyreel {

enum class TSeekOrigin { Beginning, Current, End };

/// A sequence of bytes with a position.
class TStream {
 public:
  virtual ~TStream() = default;
  /// Reads up to `count` bytes at the position and moves it behind them. Returns how many bytes it read:
  /// fewer than `count` only at the end.
  virtual std::int64_t Read(char* buffer, std::int64_t count) = 0;
  /// Writes `count` bytes at the position. Returns how many bytes it wrote.
  virtual std::int64_t Write(const char* buffer, std::int64_t count) = 0;
  /// Moves the position. Returns the new one, counted from the beginning.
  virtual std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) = 0;
  std::int64_t Position() { return Seek(0, TSeekOrigin::Current); }
};

/// A file, for reading only. Failures throw std::system_error; Write always throws it.
class TFileStream : public TStream {
 public:
  explicit TFileStream(std::filesystem::path path);
  std::int64_t Read(char* buffer, std::int64_t count) override;
  std::int64_t Write(const char* buffer, std::int64_t count) override;
  std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) override;

 private:
  std::filesystem::path path_;
  TDescriptor descriptor_;
};

}  // namespace skyreel
