#pragma once

#include <string_view>

#include "image/ext_bitmap.h"

namespace skyreel {

/// The decoders, one file each. They decode a whole file in memory into `bitmap`. They throw EInvalidGraphic
/// or std::bad_alloc; then the bitmap is undefined.
void ReadBmp(TExtBitmap& bitmap, std::string_view data);
void ReadGif(TExtBitmap& bitmap, std::string_view data);
void ReadJpeg(TExtBitmap& bitmap, std::string_view data);
void ReadPng(TExtBitmap& bitmap, std::string_view data);
void ReadTiff(TExtBitmap& bitmap, std::string_view data);

}  // namespace skyreel
