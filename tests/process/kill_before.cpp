// Preloaded into the program: KILL_BEFORE="rename 3" kills it just before its third rename, and "write 3"
// before its third write to a file. Little else changes the disk.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

static void Count(const char* call) {
  static std::atomic<int> count = 0;
  const char* const wanted = ::getenv("KILL_BEFORE");
  if (::strncmp(wanted, call, ::strlen(call)) == 0 && ++count == ::atoi(wanted + ::strlen(call)))
    ::kill(::getpid(), SIGKILL);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  Count("rename");
  return ::renameat(AT_FDCWD, from, AT_FDCWD, to);
}

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  struct stat info;
  if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode)) Count("write");
  return ::syscall(SYS_write, descriptor, data, size);
}
