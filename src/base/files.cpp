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

/// The system only returns the mask when a new one is set.
mode_t UserMask() {
  static const mode_t mask = [] {
    const mode_t found = ::umask(0);
    ::umask(found);
    return found;
  }();
  return mask;
}

/// Sets the modification time and keeps the time of the last access.
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

/// Writes a temporary file with `write` and renames it to `path`. `write` returns false, with errno set, when
/// it fails. The file has its permissions from the start.
template <typename TWrite>
void ReplaceFile(const fs::path& path, unsigned permissions, TWrite write) {
  auto [name, file] = MakeTemporary(path);
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
  // With a trailing separator the last component is empty.
  fs::create_directories(folder.has_filename() ? folder : folder.parent_path());
}

fs::path ExistingPart(fs::path path) {
  std::error_code error;
  while (!fs::exists(path, error) && path.has_relative_path()) path = path.parent_path();
  return path;
}

fs::path PlatformPath(std::string_view backslash_path) {
  return ReplaceAll(backslash_path, "\\", std::string(1, fs::path::preferred_separator));
}

fs::path DateFolder(TDateTime time) {
  return PlatformPath(FormatDateTime("yyyy\\mm\\dd\\", time));
}

TDescriptor OpenToRead(const fs::path& path) {
  TDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.IsOpen()) ThrowErrno(path.string());
  return file;
}

std::string ReadWholeFile(const fs::path& path, std::int64_t limit) {
  std::string data;
  data.resize(ReadWholeFile(path, limit, [&data](std::size_t size) {
    data.resize(size);
    return data.data();
  }));
  return data;
}

std::size_t ReadWholeFile(const fs::path& path, std::int64_t limit,
                          const std::function<char*(std::size_t size)>& room) {
  const TDescriptor file = OpenToRead(path);
  struct stat info {};
  if (::fstat(file.Get(), &info) != 0) ThrowErrno(path.string());
  if (!S_ISREG(info.st_mode)) throw std::system_error(EINVAL, std::generic_category(), path.string());
  if (info.st_size > limit) throw ERangeError(path.string() + " is too large");
  const std::int64_t got = ReadAll(file.Get(), room(static_cast<std::size_t>(info.st_size)), info.st_size);
  if (got < 0) ThrowErrno(path.string());
  return static_cast<std::size_t>(got);
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
  // A file system without locks: RemoveAbandoned cannot lock the file either.
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

TTemporary MakeTemporary(const fs::path& path) {
  // Its name is short: that of `path` may already be as long as the file system allows.
  for (;;) {
    std::string name = (path.parent_path() / kTemporaryName).string();
    TDescriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file.IsOpen()) ThrowErrno(path.string());
    if (LockNew(file.Get(), name)) return {std::move(name), std::move(file)};
  }
}

std::string FileHash(const fs::path& path) {
  const TDescriptor file = OpenToRead(path);
  std::uint64_t sum = 14695981039346656037U;
  std::int64_t size = 0;
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    const ssize_t got = ::read(file.Get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) ThrowErrno(path.string());
    if (got == 0) break;
    for (ssize_t i = 0; i < got; ++i)
      sum = (sum ^ static_cast<unsigned char>(buffer[static_cast<std::size_t>(i)])) * 1099511628211U;
    size += got;
  }
  char text[48];
  std::snprintf(text, sizeof text, "%lld-%016llx", static_cast<long long>(size),
                static_cast<unsigned long long>(sum));
  return text;
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
