// Reads the first picture of a TIFF file with libtiff: its colours as the library converts them, or the
// samples themselves where they have more than 8 bits and the receiver wants them.

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

/// The fewest rows that the library decodes at a time.
constexpr std::uint32_t kBandRows = 64;
/// The library's largest allocation is the largest picture at four bytes a pixel.
constexpr tmsize_t kMostMemory = TExtBitmap::kLargestPixelCount * 4 + (1 << 20);

/// The file, the position in it, and the library's first error message.
struct TSource {
  TPictureBytes& Bytes;
  toff_t Position = 0;
  char Message[200] = {};
};

TSource& Of(thandle_t handle) {
  return *static_cast<TSource*>(handle);
}

toff_t OnSize(thandle_t handle) {
  return static_cast<toff_t>(Of(handle).Bytes.Size());
}

tmsize_t OnRead(thandle_t handle, void* buffer, tmsize_t count) {
  TSource& source = Of(handle);
  const std::size_t taken = source.Bytes.Read(static_cast<std::int64_t>(source.Position), buffer,
                                              static_cast<std::size_t>(std::max<tmsize_t>(count, 0)));
  source.Position += taken;
  return static_cast<tmsize_t>(taken);
}

toff_t OnSeek(thandle_t handle, toff_t offset, int origin) {
  TSource& source = Of(handle);
  if (origin == SEEK_CUR) offset += source.Position;
  if (origin == SEEK_END) offset += OnSize(handle);
  return source.Position = offset;
}

int OnError(TIFF*, void* source, const char*, const char* format, std::va_list arguments) {
  char* const message = static_cast<TSource*>(source)->Message;
  if (message[0] == '\0') std::vsnprintf(message, sizeof(TSource::Message), format, arguments);
  return 1;
}

int OnWarning(TIFF*, void*, const char*, const char*, std::va_list) {
  return 1;
}

struct TFree {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
  void operator()(TIFFRGBAImage* image) const { TIFFRGBAImageEnd(image); }
};

[[noreturn]] void Fail(const TSource& source) {
  throw EInvalidGraphic(std::string("TIFF: ") +
                        (source.Message[0] != '\0' ? source.Message : "file is corrupt"));
}

/// Copies the first `channels` of the `stride` samples of each pixel.
template <typename T>
void Convert(const std::uint8_t* from, std::size_t pixels, std::size_t stride, std::size_t channels,
             float* to) {
  for (std::size_t x = 0; x < pixels; ++x, from += stride * sizeof(T)) {
    for (std::size_t i = 0; i < channels; ++i) {
      T sample;
      std::memcpy(&sample, from + i * sizeof(T), sizeof(T));
      *to++ = static_cast<float>(sample);
    }
  }
}
using TConvert = decltype(&Convert<float>);

/// Nothing for samples that are read as colours, or not at all.
TConvert ConvertFor(std::uint16_t format, std::uint16_t bits) {
  if (format == SAMPLEFORMAT_IEEEFP) {
    return bits == 32 ? Convert<float> : bits == 64 ? Convert<double> : nullptr;
  }
  if (format == SAMPLEFORMAT_INT) {
    return bits == 16 ? Convert<std::int16_t> : bits == 32 ? Convert<std::int32_t> : nullptr;
  }
  if (format != SAMPLEFORMAT_UINT) return nullptr;
  return bits == 16 ? Convert<std::uint16_t> : bits == 32 ? Convert<std::uint32_t> : nullptr;
}

class TReader {
 public:
  TReader(TRowSink& sink, TPictureBytes& bytes) : sink_(sink), source_{bytes} {
    const std::unique_ptr<TIFFOpenOptions, TFree> options(TIFFOpenOptionsAlloc());
    if (options == nullptr) throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), OnError, &source_);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), OnWarning, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostMemory);
    tiff_.reset(TIFFClientOpenExt(
        "picture", "rm", &source_, OnRead, [](thandle_t, void*, tmsize_t) -> tmsize_t { return 0; }, OnSeek,
        [](thandle_t) { return 0; }, OnSize, nullptr, nullptr, options.get()));
    if (tiff_ == nullptr) Fail(source_);
  }

  void Read() {
    if (TIFFGetField(tiff_.get(), TIFFTAG_IMAGEWIDTH, &width_) != 1 ||
        TIFFGetField(tiff_.get(), TIFFTAG_IMAGELENGTH, &height_) != 1 || width_ == 0 || height_ == 0) {
      Fail(source_);
    }
    tiled_ = TIFFIsTiled(tiff_.get()) != 0;
    std::uint32_t rows = height_;
    TIFFGetFieldDefaulted(tiff_.get(), tiled_ ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, &rows);
    unit_ = std::clamp(rows, 1U, height_);
    const std::uint16_t orientation = Field(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    upside_down_ = orientation == ORIENTATION_BOTRIGHT || orientation == ORIENTATION_BOTLEFT ||
                   orientation == ORIENTATION_RIGHTBOT || orientation == ORIENTATION_LEFTBOT;
    // The library decodes a strip or a tile at once, and a band of the picture is as high as one.
    const std::uint64_t piece = tiled_ ? TIFFTileSize64(tiff_.get()) : TIFFStripSize64(tiff_.get());
    const auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() / 2);
    wish_ =
        sink_.Begin({.Kind = "TIFF",
                     .Width = width_,
                     .Height = height_,
                     .WholeBytes = static_cast<std::int64_t>(
                         std::min(most, piece) + std::uint64_t{width_} * Band() * sizeof(std::uint32_t))});
    const std::uint16_t photometric = Field(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    grey_ = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    const TConvert convert =
        ConvertFor(Field(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT), Field(TIFFTAG_BITSPERSAMPLE, 1));
    if (wish_.Samples && convert != nullptr && (grey_ || photometric == PHOTOMETRIC_RGB)) {
      ReadSamples(convert, photometric == PHOTOMETRIC_MINISWHITE ? -1.0F : 1.0F);
    } else {
      ReadColours();
    }
    if (!whole_) Fail(source_);
  }

 private:
  std::uint16_t Field(ttag_t tag, std::uint16_t value) {
    TIFFGetFieldDefaulted(tiff_.get(), tag, &value);
    return value;
  }

  /// Rows that are read together: whole strips or rows of tiles.
  std::uint32_t Band() const { return unit_ * std::max(1U, kBandRows / unit_); }

  /// Calls read(first, count) for each needed band, in the order of the picture, and put(i, y) for its rows;
  /// `first` and `i` count in the file's direction.
  template <typename TRead, typename TPut>
  void ForEachBand(const TRead& read, const TPut& put) {
    const std::uint32_t bands = (height_ - 1) / Band() + 1;
    for (std::uint32_t i = 0; i < bands; ++i) {
      const std::uint32_t first = (upside_down_ ? bands - 1 - i : i) * Band();
      const std::uint32_t count = std::min(Band(), height_ - first);
      const auto top = static_cast<int>(upside_down_ ? height_ - first - count : first);
      if (top >= wish_.EndRow || top + static_cast<int>(count) <= wish_.FirstRow) continue;
      read(first, count);
      for (std::uint32_t row = 0; row < count; ++row) put(row, top + static_cast<int>(row), count);
    }
  }

  void ReadColours() {
    char reason[1024] = {};
    if (TIFFRGBAImageOK(tiff_.get(), reason) == 0) throw EInvalidGraphic(std::string("TIFF: ") + reason);
    TIFFRGBAImage image;
    if (TIFFRGBAImageBegin(&image, tiff_.get(), 1, reason) == 0)
      throw EInvalidGraphic(std::string("TIFF: ") + reason);
    const std::unique_ptr<TIFFRGBAImage, TFree> end(&image);
    image.req_orientation = ORIENTATION_TOPLEFT;
    std::vector<std::uint32_t> pixels(std::size_t{width_} * std::min(Band(), height_));
    std::vector<std::uint8_t> row(std::size_t{width_} * (grey_ ? 1 : 3));
    const auto read = [&](std::uint32_t first, std::uint32_t count) {
      image.row_offset = static_cast<int>(first);
      image.stoponerr = 1;
      if (TIFFRGBAImageGet(&image, pixels.data(), width_, count) != 0) return;
      // Once more for what can be read of it.
      whole_ = false;
      image.stoponerr = 0;
      std::ranges::fill(pixels, 0U);
      TIFFRGBAImageGet(&image, pixels.data(), width_, count);
    };
    const auto put = [&](std::uint32_t i, int y, std::uint32_t) {
      const std::uint32_t* const from = &pixels[std::size_t{i} * width_];
      std::uint8_t* to = row.data();
      for (std::size_t x = 0; x < width_; ++x) {
        *to++ = static_cast<std::uint8_t>(TIFFGetR(from[x]));
        if (grey_) continue;
        *to++ = static_cast<std::uint8_t>(TIFFGetG(from[x]));
        *to++ = static_cast<std::uint8_t>(TIFFGetB(from[x]));
      }
      if (grey_) {
        sink_.SetRowFromGrey(y, row.data());
      } else {
        sink_.SetRowFromRgb(y, row.data());
      }
    };
    ForEachBand(read, put);
  }

  void ReadSamples(TConvert convert, float sign) {
    const bool apart = Field(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    const std::size_t stride = apart ? 1 : Field(TIFFTAG_SAMPLESPERPIXEL, 1);
    // Of several planes, and of grey ones, the first is shown.
    const std::size_t channels = !grey_ && stride >= 3 ? 3 : 1;
    const std::size_t line = width_ * channels;
    std::uint32_t tile_width = width_, tile_height = 1;
    if (tiled_) {
      TIFFGetField(tiff_.get(), TIFFTAG_TILEWIDTH, &tile_width);
      TIFFGetField(tiff_.get(), TIFFTAG_TILELENGTH, &tile_height);
    }
    const std::size_t tile_line = tile_width * stride * Field(TIFFTAG_BITSPERSAMPLE, 1) / 8;
    std::vector<float> band(line * std::min(Band(), height_));
    const tmsize_t size = tiled_ ? TIFFTileSize(tiff_.get()) : TIFFScanlineSize(tiff_.get());
    std::vector<std::uint8_t> piece(static_cast<std::size_t>(std::max<tmsize_t>(size, 0)));
    if (piece.empty() || piece.size() < tile_line * tile_height) Fail(source_);
    const auto read_rows = [&](std::uint32_t first, std::uint32_t count) {
      for (std::uint32_t i = 0; i < count; ++i) {
        if (TIFFReadScanline(tiff_.get(), piece.data(), first + i, 0) < 0) {
          whole_ = false;
          i += unit_ - 1 - (first + i) % unit_;  // to the next strip
        } else {
          convert(piece.data(), width_, stride, channels, &band[i * line]);
        }
      }
    };
    const auto read_tiles = [&](std::uint32_t first, std::uint32_t count) {
      for (std::uint32_t y = 0; y < count; y += unit_) {
        for (std::uint32_t x = 0; x < width_; x += tile_width) {
          if (TIFFReadTile(tiff_.get(), piece.data(), x, first + y, 0, 0) < 0) {
            whole_ = false;
            continue;
          }
          for (std::uint32_t i = 0; i < std::min(unit_, count - y); ++i)
            convert(&piece[i * tile_line], std::min(tile_width, width_ - x), stride, channels,
                    &band[(y + i) * line + x * channels]);
        }
      }
    };
    const auto read = [&](std::uint32_t first, std::uint32_t count) {
      std::ranges::fill(band, std::numeric_limits<float>::quiet_NaN());
      if (tiled_) {
        read_tiles(first, count);
      } else {
        read_rows(first, count);
      }
      for (float& sample : band) sample = std::isfinite(sample) ? sample * sign : std::nanf("");
    };
    const auto put = [&](std::uint32_t i, int y, std::uint32_t count) {
      const std::uint32_t row = upside_down_ ? count - 1 - i : i;
      sink_.SetRowFromSamples(y, &band[row * line], static_cast<int>(channels));
    };
    ForEachBand(read, put);
  }

  TRowSink& sink_;
  TSource source_;
  std::unique_ptr<TIFF, TFree> tiff_;
  std::uint32_t width_ = 0, height_ = 0;
  std::uint32_t unit_ = 1;  ///< rows of a strip or a tile
  bool tiled_ = false, upside_down_ = false, grey_ = false, whole_ = true;
  TRowWish wish_;
};

}  // namespace

void ReadTiff(TRowSink& sink, TPictureBytes& bytes) {
  TReader(sink, bytes).Read();
}

}  // namespace skyreel
