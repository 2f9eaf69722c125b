#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "image/row_sink.h"

namespace skyreel {

/// A picture file cannot be read or written: corrupt, cut off, too large, unknown format.
class EInvalidGraphic : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
/// The operation does not work for this kind of bitmap.
class EInvalidGraphicOperation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Bits per pixel. 8: grey. 24: blue, green, red. 32: the same and an unused byte.
enum class TPixelFormat { Bits8 = 8, Bits24 = 24, Bits32 = 32 };

/// A picture in memory: rows from top to bottom, without padding or palette.
class TExtBitmap : public TRowSink {
 public:
  static constexpr std::int64_t kLargestPixelCount = 400'000'000;

  explicit TExtBitmap(TPixelFormat format) : format_(format) {}

  TPixelFormat PixelFormat() const { return format_; }
  int Width() const { return width_; }
  int Height() const { return height_; }
  bool IsEmpty() const { return width_ == 0 || height_ == 0; }
  int BytesPerPixel() const { return static_cast<int>(format_) / 8; }

  /// Sets the size in pixels; the pixels are undefined. Throws EInvalidGraphic, before it takes memory, for a
  /// negative side or more than PixelLimit pixels.
  void SetSize(std::int64_t width, std::int64_t height);
  std::uint8_t* ScanLine(int y) { return pixels_.get() + Offset(y); }
  const std::uint8_t* ScanLine(int y) const { return pixels_.get() + Offset(y); }

  // A decoder writes into the bitmap. Rows are converted to the pixel format (to grey by luminance).
  void SetRowFromGrey(int y, const std::uint8_t* grey) override;
  void SetRowFromRgb(int y, const std::uint8_t* rgb, int stride = 3) override;
  TRowWish Begin(const TPictureFacts& facts) override;

  std::int64_t PixelLimit = kLargestPixelCount;

 private:
  std::size_t Offset(int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_ * BytesPerPixel());
  }

  TPixelFormat format_;
  int width_ = 0;
  int height_ = 0;
  std::unique_ptr<std::uint8_t[]> pixels_;
};

/// Maps every pixel value v to 255 * (v / 255) ^ (1 / exponent), rounded to the nearest integer. Changes
/// nothing in an empty bitmap, or for an exponent outside 0.2 to 5. Throws EInvalidGraphicOperation unless
/// the bitmap has 8 bits per pixel.
void GammaCorrect(TExtBitmap& bitmap, float exponent);

}  // namespace skyreel
