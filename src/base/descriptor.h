#pragma once

#include <string_view>

namespace skyreel {

/// Owns one file descriptor (file, socket, timer) and closes it at the latest when it goes out of scope.
class TDescriptor {
 public:
  TDescriptor() = default;
  explicit TDescriptor(int fd) : fd_(fd) {}
  ~TDescriptor() { Close(); }
  TDescriptor(TDescriptor&& other) noexcept : fd_(other.Release()) {}
  TDescriptor& operator=(TDescriptor&& other) noexcept;

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }
  /// Gives the descriptor away; the caller closes it.
  int Release();
  /// Closes now. False, with errno set, when the system lost something that was written to it.
  bool Close();

 private:
  int fd_ = -1;
};

/// Writes all of `data`, in as many calls as it takes. False, with errno set, when that is not possible.
bool WriteAll(int fd, std::string_view data);

}  // namespace skyreel
