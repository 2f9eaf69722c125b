#pragma once

#include <string_view>

#include "image/ext_bitmap.h"

namespace skyreel {

/// The decoders, one file each. They fill `bitmap` from a whole file in memory, or throw EInvalidGraphic
/// (also std::bad_alloc) and leave it in any state.
void ReadBmp(TExtBitmap& bitmap, std::string_view data);
void ReadGif(TExtBitmap& bitmap, std::string_view data);
void ReadJpeg(TExtBitmap& bitmap, std::string_view data);
void ReadPng(TExtBitmap& bitmap, std::string_view data);
void ReadTiff(TExtBitmap& bitmap, std::string_view data);

}  // namespace skyreel
