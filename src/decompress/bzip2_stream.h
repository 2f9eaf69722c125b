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
/// The library refused data: "error -4" is a data error, "error -5" no bzip2 data, "error -7" a stream cut
/// off.
class EBZCompressionError : public EBZip2Error {
 public:
  using EBZip2Error::EBZip2Error;
};
/// The stream was misused, or the library could not be started.
class EBZDecompressionError : public EBZip2Error {
 public:
  using EBZip2Error::EBZip2Error;
};

/// What streams over the bzip2 library share: the source, and the library's record of one stream.
class TCustomBZip2Stream : public TStream {
 public:
  /// `source` stays the caller's, and must outlive the stream.
  explicit TCustomBZip2Stream(TStream& source) : source_(source), source_position_(source.Position()) {}
  TCustomBZip2Stream(const TCustomBZip2Stream&) = delete;
  TCustomBZip2Stream& operator=(const TCustomBZip2Stream&) = delete;

  /// After each step of the library, at most 64 KiB of input or as much output as was asked for.
  std::function<void(TCustomBZip2Stream&)> OnChunkDecoded;

 protected:
  TStream& source_;
  std::int64_t source_position_;  ///< where it was last left: others may move it between reads
  bz_stream record_{};
  std::array<char, 65536> buffer_;
};

/// The decompressed bytes of one bzip2 stream, for reading.
class TBZDecompressionStream : public TCustomBZip2Stream {
 public:
  /// Throws EBZDecompressionError "error %d" when the library cannot be started.
  explicit TBZDecompressionStream(TStream& source);
  ~TBZDecompressionStream() override;

  /// Returns fewer bytes than asked for only at the end of the source: bytes behind the bzip2 stream's end, a
  /// second stream included, throw EBZCompressionError "error -1" (kept: the compression class, also here).
  std::int64_t Read(char* buffer, std::int64_t count) override;
  /// Always throws EBZDecompressionError "Invalid stream operation".
  std::int64_t Write(const char* buffer, std::int64_t count) override;
  /// To the beginning, which decodes anew, or forward: from the current position, or from the beginning to
  /// beyond it. Everything else throws EBZDecompressionError "Invalid stream operation". Returns the bytes
  /// delivered so far.
  std::int64_t Seek(std::int64_t offset, TSeekOrigin origin) override;

  /// The bzip2 stream has been decoded to its end mark. False at the end of a source that was cut off.
  bool StreamEnded() const { return stream_ended_; }

 private:
  void Start();
  std::int64_t Delivered() const;

  bool stream_ended_ = false;
};

/// Decodes the file "name.bz2" into "name" beside it, which gets the date and time of the compressed file.
/// Nothing is written before the decode has ended whole, and the file appears whole, in place of an older
/// one. True when it holds at least one byte; an empty compressed file makes an empty file and gives false,
/// as a missing one does, which makes none. The compressed file stays. `let_events_through` is called while
/// it decodes. Throws EBZip2Error ("error -7" for a file that was cut off), EDecompressError when more than
/// `output_limit` bytes come out, std::system_error.
bool DecompressBz2File(const std::filesystem::path& path, const TEventHook& let_events_through = {},
                       std::int64_t output_limit = std::int64_t{1} << 30);

}  // namespace skyreel
