#include "base/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// It can only be read by setting it; nothing in this program sets it for good.
mode_t UserMask() {
  static const mode_t mask = [] {
    const mode_t found = ::umask(0);
    ::umask(found);
    return found;
  }();
  return mask;
}

/// The times of a file that was modified at `time`; when it was read last stays.
std::array<timespec, 2> ModifiedAt(TDateTime time) {
  timespec stamp{};
  stamp.tv_sec = time.UnixTime();
  stamp.tv_nsec = static_cast<long>((time - TDateTime::FromUnixTime(stamp.tv_sec)).count() * 1'000'000);
  return {{{0, UTIME_OMIT}, stamp}};
}

bool IsNamedLike(std::string_view name, std::string_view pattern) {
  return std::equal(name.begin(), name.end(), pattern.begin(), pattern.end(),
                    [](char c, char p) { return p == 'X' ? IsLetterOrDigit(c) : c == p; });
}

/// A new file beside `path`, locked so that it is not taken for one that a killed program left; its name is
/// put into `name`. Unique per process and call, since several copies of the program may write beside each
/// other; short, since the name beside which it stands may already be as long as the file system allows.
TDescriptor MakeTemporary(const fs::path& path, std::string& name) {
  for (;;) {
    name = (path.parent_path() / kTemporaryName).string();
    TDescriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file.IsOpen()) ThrowErrno(path.string());
    if (LockNew(file.Get(), name)) return file;
  }
}

/// Makes the file `path` by way of a temporary one that `write` fills; `write` returns false, with errno set,
/// when it failed. The file has its permissions before there is anything in it.
template <typename TWrite>
void ReplaceFile(const fs::path& path, unsigned permissions, TWrite write) {
  std::string name;
  TDescriptor file = MakeTemporary(path, name);
  // This second descriptor keeps the lock until the rename; the first must be closed to see a full disk.
  const TDescriptor lock(::fcntl(file.Get(), F_DUPFD_CLOEXEC, 0));
  bool whole = ::fchmod(file.Get(), permissions & ~UserMask()) == 0 && write(file.Get());
  whole = file.Close() && whole;
  if (!whole || std::rename(name.c_str(), path.c_str()) != 0) {
    const int error = errno;
    ::unlink(name.c_str());
    errno = error;
    ThrowErrno(path.string());
  }
}

/// Copies the content and the modification time. False, with errno set, when that fails.
bool CopyAll(int from, int to) {
  std::array<char, 64 * 1024> buffer;
  for (off_t at = 0;;) {
    const ssize_t got = ::pread(from, buffer.data(), buffer.size(), at);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    if (!WriteAll(to, {buffer.data(), static_cast<std::size_t>(got)})) return false;
    at += got;
  }
  struct stat info {};
  if (::fstat(from, &info) != 0) return false;
  const timespec times[] = {{0, UTIME_OMIT}, info.st_mtim};
  return ::futimens(to, times) == 0;
}

}  // namespace

std::int64_t FileSizeOf(const fs::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return -1;
  return info.st_size;
}

bool SetFileDateTime(const fs::path& path, TDateTime time) {
  return ::utimensat(AT_FDCWD, path.c_str(), ModifiedAt(time).data(), 0) == 0;
}

bool SetFileDateTime(int descriptor, TDateTime time) {
  return ::futimens(descriptor, ModifiedAt(time).data()) == 0;
}

TDateTime GetFileDateTime(const fs::path& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return TDateTime();
  return TDateTime::FromUnixTime(info.st_mtim.tv_sec) + TDateTime::TSpan(info.st_mtim.tv_nsec / 1'000'000);
}

void ForceDirectories(const fs::path& folder) {
  // A trailing separator would make the last component empty.
  fs::create_directories(folder.has_filename() ? folder : folder.parent_path());
}

fs::path PlatformPath(std::string_view backslash_path) {
  return ReplaceAll(backslash_path, "\\", std::string(1, fs::path::preferred_separator));
}

fs::path DateFolder(TDateTime time) {
  return PlatformPath(FormatDateTime("yyyy\\mm\\dd\\", time));
}

std::string ReadWholeFile(const fs::path& path, std::int64_t limit) {
  const TDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat info {};
  if (!file.IsOpen() || ::fstat(file.Get(), &info) != 0) ThrowErrno(path.string());
  if (!S_ISREG(info.st_mode)) throw std::system_error(EINVAL, std::generic_category(), path.string());
  if (info.st_size > limit) throw ERangeError(path.string() + " is too large");
  std::string data(static_cast<std::size_t>(info.st_size), '\0');
  std::size_t have = 0;
  while (have < data.size()) {
    const ssize_t got = ::read(file.Get(), data.data() + have, data.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) ThrowErrno(path.string());
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  data.resize(have);
  return data;
}

bool TryLock(int descriptor, const fs::path& path) {
  struct stat locked {
  }, named{};
  if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0 || ::fstat(descriptor, &locked) != 0) return false;
  if (::stat(path.c_str(), &named) == 0 && named.st_ino == locked.st_ino && named.st_dev == locked.st_dev)
    return true;
  errno = EWOULDBLOCK;
  return false;
}

bool LockNew(int descriptor, const fs::path& path) {
  // On a file system without locks nobody removes it.
  return TryLock(descriptor, path) || errno != EWOULDBLOCK;
}

void RemoveAbandoned(const fs::path& folder, std::string_view pattern) {
  std::error_code ignored;
  for (fs::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
    const fs::path& path = entry->path();
    if (!IsNamedLike(path.filename().native(), pattern)) continue;
    const TDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!file.IsOpen() || ::fstat(file.Get(), &info) != 0 || info.st_uid != ::geteuid()) continue;
    if (TryLock(file.Get(), path)) fs::remove_all(path, ignored);
  }
}

void WriteFileWhole(const fs::path& path, std::string_view data, unsigned permissions) {
  ReplaceFile(path, permissions, [data](int file) { return WriteAll(file, data); });
}

bool FlushToDisk(const fs::path& path) {
  const TDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.IsOpen() && ::fsync(file.Get()) == 0;
}

void MoveFileWhole(int descriptor, const fs::path& from, const fs::path& to) {
  if (::fchmod(descriptor, 0666 & ~UserMask()) == 0 && std::rename(from.c_str(), to.c_str()) == 0) return;
  ReplaceFile(to, 0666, [descriptor](int file) { return CopyAll(descriptor, file); });
}

}  // namespace skyreel
