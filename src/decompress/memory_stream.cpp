#include "decompress/memory_stream.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "base/files.h"

namespace skyreel {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

/// Address space for `bytes`, aligned for huge pages; takes no memory yet.
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
    // The whole range with the same advice, or the system cannot move it in one piece.
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
  ::madvise(data_ - kHeadroom, std::min(whole, mapped_), MADV_HUGEPAGE);  // a refusal only costs time
  huge_ = whole;
}

void TMemoryStream::SetSize(std::int64_t size) {
  Reserve(size);
  size_ = static_cast<std::size_t>(size);
}

void TMemoryStream::LoadFromFile(const std::filesystem::path& path, std::int64_t limit) {
  Clear();
  size_ = ReadWholeFile(path, limit, [this](std::size_t size) {
    ExpectSize(static_cast<std::int64_t>(size));
    return data_;
  });
}

}  // namespace skyreel
