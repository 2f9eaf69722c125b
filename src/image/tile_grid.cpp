#include "image/tile_grid.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "image/image_file.h"

namespace skyreel {

TTileGrid::TTileGrid(int columns, int rows)
    : columns_(columns),
      rows_(rows),
      placed_(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

void TTileGrid::Put(int column, int row, std::string_view extension, std::string_view data) {
  TExtBitmap tile(TPixelFormat::Bits24);
  tile.PixelLimit = picture_.PixelLimit / static_cast<std::int64_t>(placed_.size());
  LoadImageFromMemory(tile, extension, data);
  if (picture_.IsEmpty())
    picture_.SetSize(std::int64_t{columns_} * tile.Width(), std::int64_t{rows_} * tile.Height());
  if (tile.Width() * columns_ != picture_.Width() || tile.Height() * rows_ != picture_.Height()) {
    throw EInvalidGraphic("A tile of " + std::to_string(tile.Width()) + " x " +
                          std::to_string(tile.Height()) + " pixels does not fit the others");
  }
  const std::size_t bytes = static_cast<std::size_t>(tile.Width() * tile.BytesPerPixel());
  for (int y = 0; y < tile.Height(); ++y) {
    std::memcpy(picture_.ScanLine(row * tile.Height() + y) + static_cast<std::size_t>(column) * bytes,
                tile.ScanLine(y), bytes);
  }
  placed_[static_cast<std::size_t>(row * columns_ + column)] = true;
}

const TExtBitmap& TTileGrid::Picture() const {
  if (std::find(placed_.begin(), placed_.end(), false) != placed_.end())
    throw EInvalidGraphic("A tile is missing");
  return picture_;
}

}  // namespace skyreel
