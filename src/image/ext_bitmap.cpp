#include "image/ext_bitmap.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace skyreel {

void TExtBitmap::SetSize(std::int64_t width, std::int64_t height) {
  const std::int64_t most = std::numeric_limits<int>::max() / 4;
  if (width < 0 || height < 0 || width > most || height > most) {
    throw EInvalidGraphic("Impossible picture size");
  }
  if (width * height > PixelLimit) {
    throw EInvalidGraphic("Picture of " + std::to_string(width) + " x " + std::to_string(height) +
                          " pixels is too large");
  }
  const std::size_t bytes = static_cast<std::size_t>(width * height * BytesPerPixel());
  pixels_ = bytes > 0 ? std::make_unique_for_overwrite<std::uint8_t[]>(bytes) : nullptr;
  width_ = static_cast<int>(width);
  height_ = static_cast<int>(height);
}

TRowWish TExtBitmap::Begin(const TPictureFacts& facts) {
  SetSize(facts.Width, facts.Height);
  TRowWish wish;
  wish.Grey = format_ == TPixelFormat::Bits8;
  return wish;
}

void TExtBitmap::SetRowFromGrey(int y, const std::uint8_t* grey) {
  std::uint8_t* to = ScanLine(y);
  if (format_ == TPixelFormat::Bits8) {
    std::memcpy(to, grey, static_cast<std::size_t>(width_));
    return;
  }
  for (int x = 0; x < width_; ++x, to += BytesPerPixel()) to[0] = to[1] = to[2] = grey[x];
}

void TExtBitmap::SetRowFromRgb(int y, const std::uint8_t* rgb, int stride) {
  std::uint8_t* to = ScanLine(y);
  for (int x = 0; x < width_; ++x, to += BytesPerPixel(), rgb += stride) {
    if (format_ == TPixelFormat::Bits8) {
      // ITU-R BT.601 luminance.
      to[0] = static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
    } else {
      to[0] = rgb[2];
      to[1] = rgb[1];
      to[2] = rgb[0];
    }
  }
}

void GammaCorrect(TExtBitmap& bitmap, float exponent) {
  if (bitmap.PixelFormat() != TPixelFormat::Bits8) {
    throw EInvalidGraphicOperation("Error: GammaCorrect called without 8-bit pixels.");
  }
  if (bitmap.IsEmpty() || !(exponent >= 0.2F && exponent <= 5.0F)) return;
  std::array<std::uint8_t, 256> table{};
  for (int i = 1; i < 256; ++i) {
    table[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(
        std::lround(255 * std::exp(std::log(i / 255.0) / static_cast<double>(exponent))));
  }
  for (int y = 0; y < bitmap.Height(); ++y) {
    std::uint8_t* const row = bitmap.ScanLine(y);
    for (int x = 0; x < bitmap.Width(); ++x) row[x] = table[row[x]];
  }
}

}  // namespace skyreel
