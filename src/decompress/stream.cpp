#include "decompress/stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/exceptions.h"

namespace skyreel {

std::int64_t TViewStream::Read(char* buffer, std::int64_t count) {
  const std::int64_t left = std::max<std::int64_t>(static_cast<std::int64_t>(data_.size()) - position_, 0);
  const std::int64_t taken = std::clamp<std::int64_t>(count, 0, left);
  if (taken > 0) std::memcpy(buffer, data_.data() + position_, static_cast<std::size_t>(taken));
  position_ += taken;
  return taken;
}

std::int64_t TViewStream::Write(const char*, std::int64_t) {
  throw ERangeError("Stream is for reading only");
}

std::int64_t TViewStream::Seek(std::int64_t offset, TSeekOrigin origin) {
  std::int64_t from = 0;
  if (origin == TSeekOrigin::Current) from = position_;
  if (origin == TSeekOrigin::End) from = static_cast<std::int64_t>(data_.size());
  if (offset < -from) throw ERangeError("Seek to before the beginning");
  return position_ = from + offset;
}

TFileStream::TFileStream(const std::filesystem::path& path)
    : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (descriptor_.Get() < 0) Fail(errno);
}

void TFileStream::Fail(int error) const {
  throw std::system_error(error, std::generic_category(), path_.string());
}

std::int64_t TFileStream::Read(char* buffer, std::int64_t count) {
  std::int64_t have = 0;
  while (have < count) {
    const ssize_t got = ::read(descriptor_.Get(), buffer + have, static_cast<std::size_t>(count - have));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) Fail(errno);
    if (got == 0) break;
    have += got;
  }
  return have;
}

std::int64_t TFileStream::Write(const char*, std::int64_t) {
  Fail(EBADF);
}

std::int64_t TFileStream::Seek(std::int64_t offset, TSeekOrigin origin) {
  const int whence = origin == TSeekOrigin::Beginning ? SEEK_SET
                     : origin == TSeekOrigin::Current ? SEEK_CUR
                                                      : SEEK_END;
  const off_t position = ::lseek(descriptor_.Get(), offset, whence);
  if (position < 0) Fail(errno);
  return position;
}

}  // namespace skyreel
