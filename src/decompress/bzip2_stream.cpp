#include "decompress/bzip2_stream.h"

#include <algorithm>
#include <limits>
#include <string>

#include "base/files.h"
#include "decompress/memory_stream.h"
#include "decompress/uncompress.h"

namespace skyreel {

namespace {

constexpr std::int64_t kCopyChunk = 32768;
constexpr std::int64_t kSkipChunk = 4096;

template <typename TError>
void Check(int result) {
  if (result < 0) throw TError("error " + std::to_string(result));
}

[[noreturn]] void ThrowInvalidOperation() {
  throw EBZDecompressionError("Invalid stream operation");
}

}  // namespace

TBZDecompressionStream::TBZDecompressionStream(TStream& source) : TCustomBZip2Stream(source) {
  Start();
}

TBZDecompressionStream::~TBZDecompressionStream() {
  BZ2_bzDecompressEnd(&record_);
}

void TBZDecompressionStream::Start() {
  record_ = {};
  record_.next_in = buffer_.data();
  stream_ended_ = false;
  Check<EBZDecompressionError>(BZ2_bzDecompressInit(&record_, 0, 0));
}

std::int64_t TBZDecompressionStream::Delivered() const {
  return static_cast<std::int64_t>(std::uint64_t{record_.total_out_hi32} << 32 | record_.total_out_lo32);
}

std::int64_t TBZDecompressionStream::Read(char* buffer, std::int64_t count) {
  // The library counts in 32 bits.
  const std::int64_t wanted = std::clamp<std::int64_t>(count, 0, std::numeric_limits<int>::max());
  record_.next_out = buffer;
  record_.avail_out = static_cast<unsigned>(wanted);
  if (source_.Position() != source_position_) source_.Seek(source_position_, TSeekOrigin::Beginning);
  while (record_.avail_out > 0) {
    if (record_.avail_in == 0) {
      const std::int64_t got = source_.Read(buffer_.data(), static_cast<std::int64_t>(buffer_.size()));
      if (got == 0) break;
      source_position_ = source_.Position();
      record_.next_in = buffer_.data();
      record_.avail_in = static_cast<unsigned>(got);
    }
    const int result = BZ2_bzDecompress(&record_);
    Check<EBZCompressionError>(result);
    stream_ended_ = result == BZ_STREAM_END;
    Fire(OnChunkDecoded, *this);
  }
  return wanted - record_.avail_out;
}

std::int64_t TBZDecompressionStream::Write(const char*, std::int64_t) {
  ThrowInvalidOperation();
}

std::int64_t TBZDecompressionStream::Seek(std::int64_t offset, TSeekOrigin origin) {
  if (offset == 0 && origin == TSeekOrigin::Beginning) {
    Check<EBZDecompressionError>(BZ2_bzDecompressEnd(&record_));
    Start();
    source_position_ = source_.Seek(0, TSeekOrigin::Beginning);
    return 0;
  }
  std::int64_t distance = offset;
  if (origin == TSeekOrigin::Beginning && offset > Delivered()) {
    distance = offset - Delivered();
  } else if (origin != TSeekOrigin::Current || offset < 0) {
    ThrowInvalidOperation();
  }
  std::array<char, kSkipChunk> discarded;
  while (distance > 0) {
    const std::int64_t got = Read(discarded.data(), std::min(distance, kSkipChunk));
    if (got == 0) break;
    distance -= got;
  }
  return Delivered();
}

bool DecompressBz2File(const std::filesystem::path& path, const TEventHook& let_events_through,
                       std::int64_t output_limit) {
  if (FileSizeOf(path) < 0) return false;
  const std::filesystem::path target = UncompressedName(path);
  TMemoryStream output;
  {
    TFileStream source(path);
    TBZDecompressionStream stream(source);
    stream.OnChunkDecoded = [&](TCustomBZip2Stream&) {
      if (let_events_through) let_events_through();
    };
    for (;;) {
      if (output.Capacity() - output.Size() < kCopyChunk) {
        output.Reserve(std::max(output.Capacity() * 2, std::int64_t{4} << 20));
      }
      const std::int64_t got = stream.Read(output.Data() + output.Size(), kCopyChunk);
      if (got == 0) break;
      output.SetSize(output.Size() + got);
      if (output.Size() > output_limit) {
        throw EDecompressError("File decodes to more than " + std::to_string(output_limit) + " bytes");
      }
    }
    // The library reports no cut-off file. An empty file is allowed.
    if (!stream.StreamEnded() && source.Position() > 0) Check<EBZCompressionError>(BZ_UNEXPECTED_EOF);
  }
  const TDateTime time = GetFileDateTime(path);
  WriteFileWhole(target, output.View());
  if (output.Size() == 0) return false;
  if (!time.IsZero()) SetFileDateTime(target, time);
  return true;
}

}  // namespace skyreel
