#include "base/file_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/exceptions.h"
#include "base/files.h"

namespace skyreel {

TFileSink::TFileSink(std::string file_name) : name_(std::move(file_name)) {
  // With O_NONBLOCK the open fails for a pipe that nobody reads; otherwise it would hang.
  const auto open = [this](int more) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    return TDescriptor(::open(name_.c_str(), kFlags | more, 0666));
  };
  file_ = open(0);
  if (!file_.IsOpen() && errno == ELOOP && ::unlink(name_.c_str()) == 0) file_ = open(O_EXCL);
  // An empty file is not truncated: ext4 flushes every truncated file to the disk when it is closed.
  struct stat info {};
  if (!file_.IsOpen() || ::fstat(file_.Get(), &info) != 0) ThrowErrno(name_);
  if (info.st_size > 0 && ::ftruncate(file_.Get(), 0) != 0) ThrowErrno(name_);
}

std::size_t TFileSink::Write(std::string_view chunk) {
  if (!WriteAll(file_.Get(), chunk)) GiveUp();
  return chunk.size();
}

void TFileSink::Close() {
  if (!file_.Close()) GiveUp();
}

void TFileSink::GiveUp() {
  const int error = errno;
  // The name may also be a device, which stays.
  if (FileSizeOf(name_) >= 0) ::unlink(name_.c_str());
  errno = error;
  ThrowErrno(name_);
}

}  // namespace skyreel
