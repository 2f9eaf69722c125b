#pragma once

#include <string_view>
#include <vector>

#include "image/ext_bitmap.h"

namespace skyreel {

/// One picture that is made of equal tiles, which may come in any order.
class TTileGrid {
 public:
  /// Both numbers are 1 or more.
  TTileGrid(int columns, int rows);

  /// Decodes the content of a picture file and copies it to its place; column and row count from 0, and
  /// `extension` is as for LoadImageFromMemory. The first tile says how large all are. Throws EInvalidGraphic
  /// for a damaged tile, one of another size, or when the whole picture would have more pixels than a bitmap
  /// may have; the last before it takes memory for them.
  void Put(int column, int row, std::string_view extension, std::string_view data);

  /// The whole picture, 24 bits. Throws EInvalidGraphic while a tile is missing.
  const TExtBitmap& Picture() const;

 private:
  int columns_;
  int rows_;
  std::vector<bool> placed_;
  TExtBitmap picture_{TPixelFormat::Bits24};
};

}  // namespace skyreel
