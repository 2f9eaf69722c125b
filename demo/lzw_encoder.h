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
  /// In block mode: called for each code with the number of codes before it; a clear code follows when it
  /// returns true. When not set, the table is cleared as in the classic program: once it is full and the
  /// ratio of another 10,000 bytes has fallen.
  std::function<bool(std::int64_t codes)> ClearAfter;
};

/// Packs `data` in the format of the Unix `compress` program (".Z"). Unlike that program it also writes
/// streams of at most 9 bits that can be read back: it widens to 10 bits where readers do, at the full table.
/// Throws ERangeError for MaximumBits outside 9 to 16.
std::string LzwEncode(std::string_view data, const TLzwOptions& options = {});

}  // namespace skyreel
