#include "decompress/stream.h"

#include <unistd.h>

#include <cerrno>

#include "base/exceptions.h"
#include "base/files.h"

namespace skyreel {

TFileStream::TFileStream(std::filesystem::path path)
    : path_(std::move(path)), descriptor_(OpenToRead(path_)) {}

std::int64_t TFileStream::Read(char* buffer, std::int64_t count) {
  const std::int64_t got = ReadAll(descriptor_.Get(), buffer, count);
  if (got < 0) ThrowErrno(path_.string());
  return got;
}

std::int64_t TFileStream::Write(const char*, std::int64_t) {
  errno = EBADF;
  ThrowErrno(path_.string());
}

std::int64_t TFileStream::Seek(std::int64_t offset, TSeekOrigin origin) {
  int whence = SEEK_SET;
  if (origin == TSeekOrigin::Current) whence = SEEK_CUR;
  if (origin == TSeekOrigin::End) whence = SEEK_END;
  const off_t position = ::lseek(descriptor_.Get(), offset, whence);
  if (position < 0) ThrowErrno(path_.string());
  return position;
}

}  // namespace skyreel
