#pragma once

#include <string>

#include "image/ext_bitmap.h"
#include "image/picture_bytes.h"
#include "image/row_sink.h"

namespace skyreel {

/// The decoders. They throw EInvalidGraphic or std::bad_alloc for a damaged file, after they have delivered
/// the rows that could be read.
void ReadBmp(TRowSink& sink, TPictureBytes& bytes);
void ReadGif(TRowSink& sink, TPictureBytes& bytes);
void ReadJpeg(TRowSink& sink, TPictureBytes& bytes);
void ReadPng(TRowSink& sink, TPictureBytes& bytes);
void ReadTiff(TRowSink& sink, TPictureBytes& bytes);

/// The encoders return a whole file: one grey channel for a bitmap of 8 bits, colour for one of 24 bits;
/// there are no others. `quality` is 1 to 100; an empty comment is left out. They throw EInvalidGraphic or
/// std::bad_alloc.
std::string EncodeJpeg(const TExtBitmap& bitmap, int quality, const std::string& comment);
std::string EncodePng(const TExtBitmap& bitmap);

}  // namespace skyreel
