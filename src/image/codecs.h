#pragma once

#include <string>
#include <string_view>

#include "image/ext_bitmap.h"

namespace skyreel {

/// The decoders. They decode a whole file in memory into `bitmap`. They throw EInvalidGraphic
/// or std::bad_alloc; then the bitmap is undefined.
void ReadBmp(TExtBitmap& bitmap, std::string_view data);
void ReadGif(TExtBitmap& bitmap, std::string_view data);
void ReadJpeg(TExtBitmap& bitmap, std::string_view data);
void ReadPng(TExtBitmap& bitmap, std::string_view data);
void ReadTiff(TExtBitmap& bitmap, std::string_view data);

/// The encoders return a whole file: one grey channel for a bitmap of 8 bits, colour for one of 24 bits;
/// there are no others. `quality` is 1 to 100; an empty comment is left out. They throw EInvalidGraphic or
/// std::bad_alloc.
std::string EncodeJpeg(const TExtBitmap& bitmap, int quality, const std::string& comment);
std::string EncodePng(const TExtBitmap& bitmap);

}  // namespace skyreel
