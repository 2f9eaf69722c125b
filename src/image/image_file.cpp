#include "image/image_file.h"

#include "base/files.h"
#include "base/text.h"
#include "image/readers.h"

namespace skyreel {

namespace {

constexpr struct {
  const char* Extension;
  void (*Read)(TExtBitmap&, std::string_view);
} kReaders[] = {{".BMP", ReadBmp}, {".GIF", ReadGif},  {".JPG", ReadJpeg}, {".JPEG", ReadJpeg},
                {".PNG", ReadPng}, {".TIF", ReadTiff}, {".TIFF", ReadTiff}};

auto FindReader(std::string_view extension) {
  for (const auto& reader : kReaders) {
    if (SameText(reader.Extension, extension)) return reader.Read;
  }
  throw EInvalidGraphic("Unknown picture type \"" + std::string(extension) + "\"");
}

}  // namespace

void LoadImage(TExtBitmap& bitmap, const std::filesystem::path& path) {
  const std::string extension = path.extension().string();
  FindReader(extension);  // throws before the file is read
  LoadImageFromMemory(bitmap, extension, ReadWholeFile(path));
}

void LoadImageFromMemory(TExtBitmap& bitmap, std::string_view extension, std::string_view data) {
  const auto read = FindReader(extension);
  if (bitmap.PixelFormat() != TPixelFormat::Bits8 && bitmap.PixelFormat() != TPixelFormat::Bits24) {
    throw EInvalidGraphicOperation("Cannot load a picture into a bitmap of this pixel format");
  }
  TExtBitmap loaded(bitmap.PixelFormat());
  loaded.PixelLimit = bitmap.PixelLimit;
  read(loaded, data);
  bitmap = std::move(loaded);
}

}  // namespace skyreel
