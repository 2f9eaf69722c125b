#pragma once

#include <bzlib.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "base/event.h"
#include "decompress/stream.h"

namespace skyreel {

class EBZip2Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
/// The library refused data: "error -4" means damaged data, "error -5" not bzip2 data, "error -7" a cut-off
/// stream.
class EBZCompressionError : public EBZip2Error {
 public:
  using EBZip2Error::EBZip2Error;
};
/// The stream was used in a way it does not support, or the library could not start.
class EBZDecompressionError : public EBZip2Error {
 public:
  using EBZip2Error::EBZip2Error;
};

/// A stream over the bzip2 library: the source and the library's record of one stream.
class TCustomBZip2Stream : public TStream {
 public:
  /// The caller owns `source`, which must outlive the stream.
  explicit TCustomBZip2Stream(TStream& source) : source_(source), source_position_(source.Position()) {}
  TCustomBZip2Stream(const TCustomBZip2Stream&) = delete;
  TCustomBZip2Stream& operator=(const TCustomBZip2Stream&) = delete;

  /// Called after each step of the library: at most 64 KiB of input or the requested output.
  std::function<void(TCustomBZip2Stream&)> OnChunkDecoded;

 protected:
  TStream& source_;
  std::int64_t source_position_;  ///< where the last read ended: others may move the source between reads
  bz_stream record_{};
  std::array<char, 65536> buffer_;
};

/// Reads the decompressed bytes of one bzip2 stream.
class TBZDecompressionStream : public TCustomBZip2Stream {
 public:
  /// Throws EBZDecompressionError "error %d" when the library cannot start.
  explicit TBZDecompressionStream(TStream& source);
  ~TBZDecompressionStream() override;

  /// Returns fewer than `count` bytes only at the end of the source. Bytes behind the end of the bzip2
  /// stream, also a second stream, throw EBZCompressionError "error -1" (kept: the compression class).
  std::int64_t Read(char* buffer, std::int64_t count) override;
  /// Always throws EBZDecompressionError "Invalid stream operation".
  std::int64_t Write(const char* buffer, std::int64_t count) override;
  /// Goes to the beginning, and decodes anew, or forward: from the current position, or from the beginning to
  /// beyond the current position. Everything else throws EBZDecompressionError "Invalid stream operation".
  /// Returns the bytes delivered so far.
  std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) override;

  /// Whether the end mark of the bzip2 stream was reached. Stays false for a source that is cut off.
  bool StreamEnded() const { return stream_ended_; }

 private:
  void Start();
  std::int64_t Delivered() const;

  bool stream_ended_ = false;
};

/// Decodes the file "name.bz2" to "name" in the same folder, with the date and time of the compressed file,
/// which stays. Writes nothing until all is decoded, then replaces an older file as a whole. Returns true
/// when the output holds at least one byte. An empty compressed file makes an empty output and returns false;
/// a missing one makes no output and returns false. Calls `let_events_through` while it decodes. Throws
/// EBZip2Error ("error -7" for a cut-off file), EDecompressError for more than `output_limit` bytes of
/// output, std::system_error.
bool DecompressBz2File(const std::filesystem::path& path, const TEventHook& let_events_through = {},
                       std::int64_t output_limit = std::int64_t{1} << 30);

}  // namespace skyreel
