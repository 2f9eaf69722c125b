#include "image/image_file.h"

#include "base/files.h"
#include "base/text.h"
#include "image/codecs.h"

namespace skyreel {

namespace {

constexpr int kQuality = 90;

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

void RequireSavable(const TExtBitmap& bitmap, const std::string& kind) {
  if (bitmap.PixelFormat() != TPixelFormat::Bits8 && bitmap.PixelFormat() != TPixelFormat::Bits24)
    throw EInvalidGraphic("Cannot save bitmap as " + kind + " with specified PixelFormat");
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

void SaveAsJpeg(const TExtBitmap& bitmap, const std::filesystem::path& path, int quality,
                const std::string& comment) {
  RequireSavable(bitmap, "JPEG");
  try {
    WriteFileWhole(path, EncodeJpeg(bitmap, quality, comment));
  } catch (const std::runtime_error&) {
    throw EInvalidGraphic("Error writing JPEG to file");
  }
}

void SaveImage(const TExtBitmap& bitmap, const std::filesystem::path& path) {
  const std::string extension = path.extension().string();
  RequireSavable(bitmap, extension);
  if (SameText(extension, ".PNG")) return WriteFileWhole(path, EncodePng(bitmap));
  if (SameText(extension, ".JPG") || SameText(extension, ".JPEG"))
    return WriteFileWhole(path, EncodeJpeg(bitmap, kQuality, ""));
  throw EInvalidGraphic("Cannot save a picture as \"" + extension + "\"");
}

}  // namespace skyreel
