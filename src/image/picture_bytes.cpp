#include "image/picture_bytes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/exceptions.h"
#include "base/files.h"

namespace skyreel {

TPictureBytes::TPictureBytes(const std::filesystem::path& path) : path_(path), file_(OpenToRead(path)) {
  struct stat info {};
  if (::fstat(file_.Get(), &info) != 0) ThrowErrno(path.string());
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    ThrowErrno(path.string());
  }
  size_ = info.st_size;
}

std::size_t TPictureBytes::Read(std::int64_t at, void* buffer, std::size_t count) noexcept {
  if (at < 0 || at >= size_ || count == 0) return 0;
  count = static_cast<std::size_t>(std::min(static_cast<std::int64_t>(count), size_ - at));
  if (!file_.IsOpen()) {
    std::memcpy(buffer, data_.data() + at, count);
    return count;
  }
  std::size_t read = 0;
  while (read < count) {
    const ssize_t got = ::pread(file_.Get(), static_cast<char*>(buffer) + read, count - read,
                                at + static_cast<std::int64_t>(read));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) error_ = errno;
    if (got <= 0) break;
    read += static_cast<std::size_t>(got);
  }
  return read;
}

void TPictureBytes::Check() const {
  if (error_ == 0) return;
  errno = error_;
  ThrowErrno(path_.string());
}

}  // namespace skyreel
