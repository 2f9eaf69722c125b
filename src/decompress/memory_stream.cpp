#include "decompress/memory_stream.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include "base/descriptor.h"
#include "base/exceptions.h"

namespace skyreel {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

/// Address space for `bytes`, on a huge page's boundary so that huge pages fit; no memory yet.
char* MapAligned(std::size_t bytes) {
  const std::size_t wide = bytes + kHugePage;
  void* const mapped =
      ::mmap(nullptr, wide, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
  char* const start = static_cast<char*>(mapped);
  const std::size_t before = (kHugePage - reinterpret_cast<std::uintptr_t>(start) % kHugePage) % kHugePage;
  if (before > 0) ::munmap(start, before);
  ::munmap(start + before + bytes, wide - before - bytes);
  return start + before;
}

}  // namespace

TMemoryStream::~TMemoryStream() {
  if (data_ != nullptr) ::munmap(data_ - kHeadroom, mapped_);
}

void TMemoryStream::Reserve(std::int64_t capacity) {
  const std::size_t wanted = static_cast<std::size_t>(capacity);
  if (data_ != nullptr && wanted <= capacity_) return;
  if (capacity < 0 || wanted > (std::size_t{1} << 46)) throw std::bad_alloc();
  const std::size_t unit = wanted < kHugePage ? 4096 : kHugePage;
  const std::size_t bytes = (wanted + kHeadroom + kSlack + unit - 1) / unit * unit;
  char* target = MapAligned(bytes);
  if (data_ != nullptr) {
    char* const old = data_ - kHeadroom;
    // One piece again, or the system cannot move it in one.
    if (huge_ > 0) ::madvise(old, mapped_, MADV_HUGEPAGE);
    void* const wanted_place = target;
    if (::mremap(old, mapped_, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, wanted_place) == MAP_FAILED) {
      std::memcpy(target, old, kHeadroom + capacity_);
      ::munmap(old, mapped_);
      huge_ = 0;
    } else if (huge_ > 0) {
      huge_ = bytes;
    }
  }
  data_ = target + kHeadroom;
  mapped_ = bytes;
  capacity_ = bytes - kHeadroom - kSlack;
}

void TMemoryStream::ExpectSize(std::int64_t size) {
  Reserve(size);
  const std::size_t whole = (static_cast<std::size_t>(size) + kHeadroom + kSlack) / kHugePage * kHugePage;
  if (whole <= huge_) return;
  ::madvise(data_ - kHeadroom, std::min(whole, mapped_), MADV_HUGEPAGE);  // refused, it only costs time
  huge_ = whole;
}

void TMemoryStream::SetSize(std::int64_t size) {
  Reserve(size);
  size_ = static_cast<std::size_t>(size);
}

void TMemoryStream::LoadFromFile(const std::filesystem::path& path, std::int64_t limit) {
  const auto fail = [&path](int error) {
    throw std::system_error(error, std::generic_category(), path.string());
  };
  Clear();
  const TDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0) fail(errno);
  struct stat info {};
  if (::fstat(file.Get(), &info) != 0) fail(errno);
  if (!S_ISREG(info.st_mode)) fail(EINVAL);
  if (info.st_size > limit) throw ERangeError(path.string() + " is too large");
  ExpectSize(info.st_size);
  std::size_t have = 0;
  while (have < static_cast<std::size_t>(info.st_size)) {
    const ssize_t got = ::read(file.Get(), data_ + have, static_cast<std::size_t>(info.st_size) - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(errno);
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  size_ = have;
}

}  // namespace skyreel
