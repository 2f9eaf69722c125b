#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

#include "base/descriptor.h"

namespace skyreel {

enum class TSeekOrigin { Beginning, Current, End };

/// A sequence of bytes with a position.
class TStream {
 public:
  virtual ~TStream() = default;
  /// Reads up to `count` bytes from the position on, which moves behind them. Returns how many; fewer than
  /// asked for only at the end.
  virtual std::int64_t Read(char* buffer, std::int64_t count) = 0;
  /// Writes `count` bytes at the position. Returns how many.
  virtual std::int64_t Write(const char* buffer, std::int64_t count) = 0;
  /// Moves the position; returns the new one, from the beginning.
  virtual std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) = 0;
  std::int64_t Position() { return Seek(0, TSeekOrigin::Current); }
};

/// Bytes in memory of somebody else, for reading. Write and a seek to before the beginning throw ERangeError.
class TViewStream : public TStream {
 public:
  explicit TViewStream(std::string_view data) : data_(data) {}
  std::int64_t Read(char* buffer, std::int64_t count) override;
  std::int64_t Write(const char* buffer, std::int64_t count) override;
  std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) override;

 private:
  std::string_view data_;
  std::int64_t position_ = 0;
};

/// A file, for reading. Failures throw std::system_error; Write always does.
class TFileStream : public TStream {
 public:
  explicit TFileStream(const std::filesystem::path& path);
  std::int64_t Read(char* buffer, std::int64_t count) override;
  std::int64_t Write(const char* buffer, std::int64_t count) override;
  std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) override;

 private:
  [[noreturn]] void Fail(int error) const;

  std::filesystem::path path_;
  TDescriptor descriptor_;
};

}  // namespace skyreel
