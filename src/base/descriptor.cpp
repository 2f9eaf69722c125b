#include "base/descriptor.h"

#include <unistd.h>

#include <cerrno>

namespace skyreel {

TDescriptor& TDescriptor::operator=(TDescriptor&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = other.Release();
  }
  return *this;
}

int TDescriptor::Release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

bool TDescriptor::Close() {
  const int fd = Release();
  return fd < 0 || ::close(fd) == 0;
}

std::int64_t ReadAll(int fd, char* data, std::int64_t size) {
  std::int64_t have = 0;
  while (have < size) {
    const ssize_t got = ::read(fd, data + have, static_cast<std::size_t>(size - have));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    have += got;
  }
  return have;
}

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(fd, data.data(), data.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    data.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace skyreel
