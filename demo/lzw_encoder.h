#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace skyreel {

/// How LzwEncode writes.
struct TLzwOptions {
  int MaximumBits = 16;   ///< widest code, 9 to 16
  bool BlockMode = true;  ///< code 256 clears the table
  /// In block mode: asked as each code is written, with the number of codes before it; true writes a clear
  /// code behind it. Without it the table is cleared where the classic program does: once it is full and the
  /// ratio of a further 10,000 bytes has fallen.
  std::function<bool(std::int64_t codes)> ClearAfter;
};

/// `data` in the format of the Unix `compress` program (".Z"). Unlike that program it also writes streams of
/// at most 9 bits that can be read back: where the full table makes readers widen to 10 bits, so does it.
/// Throws ERangeError for MaximumBits outside 9 to 16.
std::string LzwEncode(std::string_view data, const TLzwOptions& options = {});

}  // namespace skyreel
