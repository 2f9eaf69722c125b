#pragma once

#include <cstdint>
#include <string_view>

namespace skyreel {

/// Owns one file descriptor (file, socket, timer) and closes it when it goes out of scope.
class TDescriptor {
 public:
  TDescriptor() = default;
  explicit TDescriptor(int fd) : fd_(fd) {}
  ~TDescriptor() { Close(); }
  TDescriptor(TDescriptor&& other) noexcept : fd_(other.Release()) {}
  TDescriptor& operator=(TDescriptor&& other) noexcept;

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }
  /// Hands the descriptor to the caller, who closes it.
  int Release();
  /// Closes it now. False, with errno set, when the system lost written data.
  bool Close();

 private:
  int fd_ = -1;
};

/// Reads until `size` bytes have arrived or the file ends. Returns how many; -1, with errno set, on failure.
std::int64_t ReadAll(int fd, char* data, std::int64_t size);
/// Writes all of `data`. False, with errno set, on failure.
bool WriteAll(int fd, std::string_view data);

}  // namespace skyreel
