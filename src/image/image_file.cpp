#include "image/image_file.h"

#include "base/files.h"
#include "base/text.h"
#include "image/codecs.h"

namespace skyreel {

namespace {

using namespace std::string_view_literals;

constexpr int kQuality = 90;

using TDecoder = void (*)(TRowSink&, TPictureBytes&);

constexpr struct {
  std::string_view Extension;
  TDecoder Read;
  std::string_view Beginning;
} kReaders[] = {{".BMP", ReadBmp, "BM"},
                {".GIF", ReadGif, "GIF8"},
                {".JPG", ReadJpeg, "\xFF\xD8\xFF"},
                {".JPEG", ReadJpeg, "\xFF\xD8\xFF"},
                {".PNG", ReadPng, "\x89PNG"},
                {".TIF", ReadTiff, "II*\0"sv},
                {".TIFF", ReadTiff, "MM\0*"sv},
                {".TIF", ReadTiff, "II+\0"sv},
                {".TIFF", ReadTiff, "MM\0+"sv}};

TDecoder FindReader(std::string_view extension) {
  for (const auto& reader : kReaders) {
    if (SameText(reader.Extension, extension)) return reader.Read;
  }
  throw EInvalidGraphic("Unknown picture type \"" + std::string(extension) + "\"");
}

void Decode(TDecoder read, TRowSink& sink, TPictureBytes& bytes) {
  try {
    read(sink, bytes);
  } catch (const EInvalidGraphic&) {
    bytes.Check();  // the disk is to blame, not the picture
    throw;
  }
}

void Load(TExtBitmap& bitmap, TDecoder read, TPictureBytes& bytes) {
  if (bitmap.PixelFormat() != TPixelFormat::Bits8 && bitmap.PixelFormat() != TPixelFormat::Bits24) {
    throw EInvalidGraphicOperation("Cannot load a picture into a bitmap of this pixel format");
  }
  TExtBitmap loaded(bitmap.PixelFormat());
  loaded.PixelLimit = bitmap.PixelLimit;
  Decode(read, loaded, bytes);
  bitmap = std::move(loaded);
}

void RequireSavable(const TExtBitmap& bitmap, const std::string& kind) {
  if (bitmap.PixelFormat() != TPixelFormat::Bits8 && bitmap.PixelFormat() != TPixelFormat::Bits24)
    throw EInvalidGraphic("Cannot save bitmap as " + kind + " with specified PixelFormat");
}

}  // namespace

void LoadImage(TExtBitmap& bitmap, const std::filesystem::path& path) {
  const TDecoder read = FindReader(path.extension().string());  // throws before the file is read
  TPictureBytes bytes(path);
  Load(bitmap, read, bytes);
}

void LoadImageFromMemory(TExtBitmap& bitmap, std::string_view extension, std::string_view data) {
  TPictureBytes bytes(data);
  Load(bitmap, FindReader(extension), bytes);
}

void DecodePicture(TRowSink& sink, TPictureBytes& bytes) {
  char head[8] = {};
  const std::string_view start(head, bytes.Read(0, head, sizeof(head)));
  for (const auto& reader : kReaders) {
    if (start.starts_with(reader.Beginning)) return Decode(reader.Read, sink, bytes);
  }
  bytes.Check();
  throw EInvalidGraphic(bytes.Size() == 0 ? "The file is empty" : "This is not a picture of a known type");
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
