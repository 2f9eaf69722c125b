// Reads the first picture of a TIFF file with libtiff.

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

/// The file in memory, the position in it, and the library's first error message.
struct TSource {
  std::string_view Data;
  toff_t Position = 0;
  char Message[200] = {};
};

TSource& Of(thandle_t handle) {
  return *static_cast<TSource*>(handle);
}

tmsize_t OnRead(thandle_t handle, void* buffer, tmsize_t count) {
  TSource& source = Of(handle);
  if (source.Position >= source.Data.size() || count <= 0) return 0;
  const std::size_t taken =
      std::min<std::size_t>(source.Data.size() - source.Position, static_cast<std::size_t>(count));
  std::memcpy(buffer, source.Data.data() + source.Position, taken);
  source.Position += taken;
  return static_cast<tmsize_t>(taken);
}

toff_t OnSeek(thandle_t handle, toff_t offset, int origin) {
  TSource& source = Of(handle);
  if (origin == SEEK_CUR) offset += source.Position;
  if (origin == SEEK_END) offset += source.Data.size();
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
};

[[noreturn]] void Fail(const TSource& source) {
  throw EInvalidGraphic(std::string("TIFF: ") +
                        (source.Message[0] != '\0' ? source.Message : "file is corrupt"));
}

}  // namespace

void ReadTiff(TExtBitmap& bitmap, std::string_view data) {
  TSource source{data};
  const std::unique_ptr<TIFFOpenOptions, TFree> options(TIFFOpenOptionsAlloc());
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), OnError, &source);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), OnWarning, nullptr);
  // The library's largest allocation is the whole picture at four bytes a pixel.
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(),
                                      static_cast<tmsize_t>(bitmap.PixelLimit * 4 + (1 << 20)));
  const std::unique_ptr<TIFF, TFree> tiff(TIFFClientOpenExt(
      "picture", "rm", &source, OnRead, [](thandle_t, void*, tmsize_t) -> tmsize_t { return 0; }, OnSeek,
      [](thandle_t) { return 0; }, [](thandle_t handle) -> toff_t { return Of(handle).Data.size(); }, nullptr,
      nullptr, options.get()));
  if (tiff == nullptr) Fail(source);

  std::uint32_t width = 0;
  std::uint32_t height = 0;
  if (TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width) != 1 ||
      TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height) != 1 || width == 0 || height == 0) {
    Fail(source);
  }
  bitmap.SetSize(width, height);
  char reason[1024] = {};
  if (TIFFRGBAImageOK(tiff.get(), reason) == 0) throw EInvalidGraphic(std::string("TIFF: ") + reason);
  const auto pixels = std::make_unique_for_overwrite<std::uint32_t[]>(std::size_t{width} * height);
  if (TIFFReadRGBAImageOriented(tiff.get(), width, height, pixels.get(), ORIENTATION_TOPLEFT, 1) == 0)
    Fail(source);

  std::vector<std::uint8_t> row(std::size_t{width} * 3);
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint32_t pixel = pixels[std::size_t{y} * width + x];
      row[x * 3] = static_cast<std::uint8_t>(TIFFGetR(pixel));
      row[x * 3 + 1] = static_cast<std::uint8_t>(TIFFGetG(pixel));
      row[x * 3 + 2] = static_cast<std::uint8_t>(TIFFGetB(pixel));
    }
    bitmap.SetRowFromRgb(static_cast<int>(y), row.data());
  }
}

}  // namespace skyreel
