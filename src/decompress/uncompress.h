#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "decompress/memory_stream.h"

namespace skyreel {

/// The data is not a .Z stream, is damaged, or decodes to more than is allowed.
class EDecompressError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The name of the decompressed file: `path` without its extension ("a.Z" gives "a"). Throws EDecompressError
/// for a name without an extension: the output would replace its own source.
std::filesystem::path UncompressedName(const std::filesystem::path& path);

/// Decodes the format of the Unix `compress` program (".Z", LZW). Keeps its table from one call to the next;
/// the table grows with the input, up to 256 KiB.
class TUncompressor {
 public:
  static constexpr std::int64_t kDefaultOutputLimit = std::int64_t{1} << 30;
  static constexpr std::int64_t kLargestOutputLimit = std::int64_t{1} << 31;

  /// Decodes all of `input` and makes the result the content of `output`. Throws EDecompressError for a bad
  /// signature, too many bits, an undefined code, and more output than OutputLimit; then `output` is empty.
  /// The format has no end mark: a cut-off input decodes up to its last complete code.
  void Decompress(std::string_view input, TMemoryStream& output);

  /// The most output in bytes, up to kLargestOutputLimit: a few kilobytes of input can decode to gigabytes.
  std::int64_t OutputLimit = kDefaultOutputLimit;

 private:
  /// Makes room for the entries of an input of `input_size` bytes.
  void PrepareTable(std::size_t input_size);
  void Decode(std::string_view input, int maximum_bits, bool block_mode, TMemoryStream& output);

  /// The position in the output of each code's string. Codes and their strings come in the same order, so a
  /// string ends one byte behind the start of the next code's. Positions count from the 256 single-byte
  /// strings, which are kept just before the output; each of these ends where the next one starts.
  std::unique_ptr<std::uint32_t[]> table_;
  std::size_t table_size_ = 0;
};

/// Decodes the file "name.Z" to "name" in the same folder, with the date and time of the compressed file,
/// which stays. Writes nothing until all is decoded, then replaces an older file as a whole. False, and
/// nothing is written, when the file is missing or decodes to nothing. Throws EDecompressError,
/// std::system_error, ERangeError.
bool UncompressFile(const std::filesystem::path& path);

}  // namespace skyreel
