#pragma once

#include <string>
#include <string_view>

#include "demo/picture.h"

namespace skyreel::demo {

// Each returns a whole file in memory, and throws std::runtime_error when the library fails.

std::string EncodeJpeg(const TPicture& picture);
std::string EncodeGif(const TPicture& picture);
std::string EncodeTiff(const TPicture& picture, bool lzw);
/// `level`: the block size in units of 100,000 bytes, 1 to 9.
std::string CompressBz2(std::string_view data, int level = 1);
/// A zip archive that holds `data`, not compressed, under one name.
std::string StoreZip(std::string_view name, std::string_view data, TDateTime time);

}  // namespace skyreel::demo
