// Windows bitmap: a file header of 14 bytes (BM, file size, reserved, offset of the pixels), an information
// header (12 bytes in old files, otherwise 40 or more), channel masks for BI_BITFIELDS, a palette of blue,
// green, red (and a fourth byte in newer files), then the rows, padded to four bytes. Rows go from bottom to
// top unless the height is negative. Numbers are little endian. There are 1, 4, 8, 16, 24 or 32 bits per
// pixel; 4 and 8 bits may be run-length encoded.

#include <algorithm>
#include <array>
#include <bit>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

constexpr std::uint32_t kUncompressed = 0;
constexpr std::uint32_t kRuns8 = 1;
constexpr std::uint32_t kRuns4 = 2;
constexpr std::uint32_t kBitFields = 3;
constexpr std::size_t kFileHeader = 14;

[[noreturn]] void Fail(const char* what) {
  throw EInvalidGraphic(std::string("BMP: ") + what);
}

std::uint32_t Number(const std::uint8_t* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value |= std::uint32_t{bytes[i]} << (8 * i);
  return value;
}

/// Numbers anywhere in the file.
class TNumbers {
 public:
  explicit TNumbers(TPictureBytes& bytes) : bytes_(bytes) {}
  std::uint32_t Get(std::size_t at, std::size_t count) {
    if (at < start_ || at - start_ + count > read_) {
      start_ = at;
      read_ = bytes_.Read(static_cast<std::int64_t>(at), window_.data(), window_.size());
      if (read_ < count) Fail("file is cut off");
    }
    return Number(window_.data() + (at - start_), count);
  }
  std::uint8_t Byte(std::size_t at) { return static_cast<std::uint8_t>(Get(at, 1)); }

 private:
  TPictureBytes& bytes_;
  std::array<std::uint8_t, 4096> window_{};
  std::size_t start_ = 0, read_ = 0;
};

/// One channel of a 16- or 32-bit pixel.
struct TChannel {
  std::uint32_t Mask = 0;
  std::uint8_t Value(std::uint32_t pixel) const {
    if (Mask == 0) return 0;
    const int shift = std::countr_zero(Mask);
    const std::uint64_t most = Mask >> shift;
    return static_cast<std::uint8_t>(((pixel & Mask) >> shift) * std::uint64_t{255} / most);
  }
};

using TColour = std::array<std::uint8_t, 3>;  // red, green, blue

class TBmp {
 public:
  explicit TBmp(TPictureBytes& bytes) : bytes_(bytes), numbers_(bytes) {}

  void Read(TRowSink& sink) {
    ReadHeader();
    const TRowWish wish = sink.Begin({.Kind = "BMP", .Width = width_, .Height = height_});
    if (width_ == 0 || height_ == 0) Fail("picture is empty");
    if (compression_ == kRuns8 || compression_ == kRuns4) {
      ReadRuns(sink);
    } else {
      ReadRows(sink, wish);
    }
  }

 private:
  void ReadHeader() {
    if (numbers_.Get(0, 2) != 0x4D42) Fail("bad signature");
    pixels_ = numbers_.Get(10, 4);
    const std::size_t header = numbers_.Get(kFileHeader, 4);
    const bool old = header == 12;
    if (!old && (header < 40 || header > 4096)) Fail("unknown kind of header");
    std::size_t colours = 0;
    if (old) {
      width_ = numbers_.Get(18, 2);
      height_ = numbers_.Get(20, 2);
      bits_ = numbers_.Get(24, 2);
    } else {
      width_ = static_cast<std::int32_t>(numbers_.Get(18, 4));
      height_ = static_cast<std::int32_t>(numbers_.Get(22, 4));
      bits_ = numbers_.Get(28, 2);
      compression_ = numbers_.Get(30, 4);
      colours = numbers_.Get(46, 4);
    }
    top_down_ = height_ < 0;
    if (top_down_) height_ = -height_;
    std::uint32_t other = kUncompressed;
    if (bits_ == 4) other = kRuns4;
    if (bits_ == 8) other = kRuns8;
    if (bits_ == 16 || bits_ == 32) other = kBitFields;
    if (compression_ != kUncompressed && compression_ != other) Fail("unknown compression");
    std::size_t palette = kFileHeader + header;
    switch (bits_) {
      case 1:
      case 4:
      case 8:
        if (colours == 0 || colours > (1U << bits_)) colours = std::size_t{1} << bits_;
        for (std::size_t i = 0; i < colours; ++i, palette += old ? 3 : 4) {
          palette_[i] = {numbers_.Byte(palette + 2), numbers_.Byte(palette + 1), numbers_.Byte(palette)};
        }
        break;
      case 24:
        break;
      case 16:
      case 32:
        if (compression_ == kBitFields) {
          // Longer headers hold the masks at the same place.
          for (std::size_t i = 0; i < 3; ++i) channels_[i].Mask = numbers_.Get(kFileHeader + 40 + 4 * i, 4);
        } else if (bits_ == 16) {
          channels_ = {{{0x7C00}, {0x03E0}, {0x001F}}};
        } else {
          channels_ = {{{0xFF0000}, {0x00FF00}, {0x0000FF}}};
        }
        break;
      default:
        Fail("bad number of bits per pixel");
    }
  }

  void ReadRows(TRowSink& sink, const TRowWish& wish) {
    const std::size_t width = static_cast<std::size_t>(width_);
    const std::size_t stride = (width * bits_ + 31) / 32 * 4;
    std::vector<std::uint8_t> line((width * bits_ + 7) / 8), rgb(width * 3);
    const auto end = std::min(height_, std::int64_t{wish.EndRow});
    bool cut = false;
    for (std::int64_t y = wish.FirstRow; y < end; ++y) {
      const std::int64_t row = top_down_ ? y : height_ - 1 - y;
      const auto start = static_cast<std::int64_t>(pixels_ + static_cast<std::size_t>(row) * stride);
      if (bytes_.Read(start, line.data(), line.size()) < line.size()) {
        // A cut file lacks the top rows of a picture that begins with its bottom row.
        cut = true;
        continue;
      }
      for (std::size_t x = 0; x < width; ++x) {
        std::copy_n(Pixel(line.data(), x).begin(), 3, rgb.begin() + static_cast<std::ptrdiff_t>(x * 3));
      }
      sink.SetRowFromRgb(static_cast<int>(y), rgb.data());
    }
    if (cut) Fail("file is cut off");
  }

  TColour Pixel(const std::uint8_t* line, std::size_t x) const {
    if (bits_ <= 8) {
      const std::size_t bit = x * bits_;
      return palette_[(unsigned{line[bit / 8]} >> (8 - bits_ - bit % 8)) & ((1U << bits_) - 1)];
    }
    const std::uint32_t pixel = Number(line + x * bits_ / 8, bits_ / 8);
    if (bits_ == 24) {
      return {static_cast<std::uint8_t>(pixel >> 16), static_cast<std::uint8_t>(pixel >> 8),
              static_cast<std::uint8_t>(pixel)};
    }
    return {channels_[0].Value(pixel), channels_[1].Value(pixel), channels_[2].Value(pixel)};
  }

  /// Pairs of bytes: a count and a colour, or 0 and a code. Code 0 ends the row, 1 ends the picture, 2 moves
  /// right and up by the next two bytes; a higher code is a number of pixels that follow, padded to two
  /// bytes. Skipped pixels have colour 0.
  void ReadRuns(TRowSink& sink) {
    if (top_down_) Fail("run lengths need rows from bottom to top");
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width_) * 3);
    const auto put = [&](std::size_t x, unsigned index) {
      if (x < static_cast<std::size_t>(width_)) std::copy_n(palette_[index].begin(), 3, &rgb[x * 3]);
    };
    const auto clear = [&] {
      for (std::size_t x = 0; x < static_cast<std::size_t>(width_); ++x) put(x, 0);
    };
    std::int64_t row = 0;
    std::size_t x = 0;
    std::size_t at = pixels_;
    const auto end_row = [&] {
      sink.SetRowFromRgb(static_cast<int>(height_ - 1 - row), rgb.data());
      ++row;
      clear();
    };
    const auto half = [&](std::size_t byte, std::size_t i) -> unsigned {
      if (bits_ == 8) return numbers_.Byte(byte);
      return i % 2 == 0 ? numbers_.Byte(byte) >> 4U : numbers_.Byte(byte) & 15U;
    };
    clear();
    while (row < height_) {
      const std::size_t count = numbers_.Byte(at);
      const std::size_t second = numbers_.Byte(at + 1);
      at += 2;
      if (count > 0) {
        for (std::size_t i = 0; i < count; ++i) put(x + i, half(at - 1, i));
        x += count;
      } else if (second == 0) {
        end_row();
        x = 0;
      } else if (second == 1) {
        while (row < height_) end_row();
      } else if (second == 2) {
        x += numbers_.Byte(at);
        for (std::size_t up = numbers_.Byte(at + 1); up > 0 && row < height_; --up) end_row();
        at += 2;
      } else {
        for (std::size_t i = 0; i < second; ++i) put(x + i, half(at + (bits_ == 8 ? i : i / 2), i));
        x += second;
        const std::size_t bytes = bits_ == 8 ? second : (second + 1) / 2;
        at += (bytes + 1) / 2 * 2;
      }
    }
  }

  TPictureBytes& bytes_;
  TNumbers numbers_;
  std::size_t pixels_ = 0;
  std::int64_t width_ = 0;
  std::int64_t height_ = 0;
  std::uint32_t bits_ = 0;
  std::uint32_t compression_ = kUncompressed;
  bool top_down_ = false;
  std::array<TColour, 256> palette_{};
  std::array<TChannel, 3> channels_{};
};

}  // namespace

void ReadBmp(TRowSink& sink, TPictureBytes& bytes) {
  TBmp(bytes).Read(sink);
}

}  // namespace skyreel
