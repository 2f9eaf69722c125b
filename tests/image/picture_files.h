#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace skyreel::test {

using TRgb = std::array<std::uint8_t, 3>;

/// A picture to be written: its size, and the colour of each pixel.
struct TPicture {
  int Width = 0;
  int Height = 0;
  std::function<TRgb(int x, int y)> Pixel;
};

/// Colours that all differ in every channel from row to row and column to column.
TPicture ColourPicture(int width = 37, int height = 23);
TPicture GreyPicture(int width = 37, int height = 23);

// Files in memory, made by the libraries' own writers. Where `grey` is true, the first channel is written.
std::string PngFile(const TPicture& picture, bool grey, bool interlaced = false, int bits = 8);
/// With alpha 255 where x + y is even, else 0.
std::string TransparentPngFile(const TPicture& picture);
/// Colours are reduced to 216 (six steps of 51 a channel).
std::string GifFile(const TPicture& picture, bool interlaced, int left = 0, int top = 0);
std::string TiffFile(const TPicture& picture, bool grey, int compression);
/// Header of 40 bytes, palette or masks, pixels as they stand in the file.
std::string BmpFile(int width, int height, std::uint32_t bits, std::uint32_t compression,
                    const std::string& palette, const std::string& pixels);
/// Uncompressed, 24 bits; a negative height in the header when `top_down`.
std::string BmpFile(const TPicture& picture, bool top_down = false);
/// Little-endian bytes.
std::string Number(std::uint32_t value, int bytes);

}  // namespace skyreel::test
