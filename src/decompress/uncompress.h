#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "decompress/memory_stream.h"

namespace skyreel {

/// Data that is no .Z stream or a damaged one, or that decodes to more than was allowed.
class EDecompressError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The name beside which a decompressed file stands: `path` without its extension ("a.Z" gives "a").
/// Throws EDecompressError for a name without one, since the output would replace its own source.
std::filesystem::path UncompressedName(const std::filesystem::path& path);

/// Decoder for the format of the Unix `compress` program (".Z", LZW). Its tables are kept from one call to
/// the next; they grow with the input, to 256 KiB at most.
class TUncompressor {
 public:
  static constexpr std::int64_t kDefaultOutputLimit = std::int64_t{1} << 30;
  static constexpr std::int64_t kLargestOutputLimit = std::int64_t{1} << 31;

  /// Decodes the whole of `input`. `output` ends with exactly the decoded bytes; what it held goes. Throws
  /// EDecompressError for a bad signature, too many bits, a code that stands for nothing yet, and an output
  /// larger than OutputLimit; `output` is empty then. The format has no end mark: an input that was cut
  /// decodes up to its last complete code.
  void Decompress(std::string_view input, TMemoryStream& output);

  /// Bytes that an input may decode to, up to kLargestOutputLimit: a few kilobytes of input can stand for
  /// gigabytes.
  std::int64_t OutputLimit = kDefaultOutputLimit;

 private:
  /// Room for the entries that `input_size` bytes can make.
  void PrepareTable(std::size_t input_size);
  void Decode(std::string_view input, int maximum_bits, bool block_mode, TMemoryStream& output);

  /// Where in the output the string of each code stands. Codes are made in the order of their strings, so
  /// that a string ends one byte behind the place where the next code's begins. Positions count from the 256
  /// single-byte strings, which are kept just before the output and end right where the next one begins.
  std::unique_ptr<std::uint32_t[]> table_;
  std::size_t table_size_ = 0;
};

/// Decodes the file "name.Z" into "name" beside it, which gets the date and time of the compressed file.
/// Nothing is written before the decode has ended, and the file appears whole, in place of an older one.
/// True when an output was written; false when the file is missing, or decodes to nothing and nothing is
/// written. The compressed file stays. Throws EDecompressError, std::system_error, ERangeError.
bool UncompressFile(const std::filesystem::path& path);

}  // namespace skyreel
