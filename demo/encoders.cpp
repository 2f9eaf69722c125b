#include "demo/encoders.h"

#include <bzlib.h>
#include <gif_lib.h>
#include <stdio.h>
// jpeglib.h needs FILE from stdio.h before it.
#include <jpeglib.h>
#include <tiffio.h>
#include <tiffio.hxx>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace skyreel::demo {

namespace {

/// The check sum of zip archives (polynomial 0xEDB88320, bit by bit).
std::uint32_t Crc32(std::string_view data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (const char c : data) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320u : 0);
  }
  return ~crc;
}

void PutLittleEndian(std::string& out, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i) & 0xFF);
}

int WriteToString(GifFileType* gif, const GifByteType* data, int size) {
  static_cast<std::string*>(gif->UserData)
      ->append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
  return size;
}

}  // namespace

std::string EncodeJpeg(const TPicture& picture) {
  // The library's default handler ends the program on an error; this input causes none.
  jpeg_error_mgr errors;
  jpeg_compress_struct jpeg;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &buffer, &size);
  jpeg.image_width = static_cast<JDIMENSION>(picture.Width);
  jpeg.image_height = static_cast<JDIMENSION>(picture.Height);
  jpeg.input_components = 1;
  jpeg.in_color_space = JCS_GRAYSCALE;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, 85, TRUE);
  jpeg_start_compress(&jpeg, TRUE);
  std::string row(static_cast<std::size_t>(picture.Width), '\0');
  while (jpeg.next_scanline < jpeg.image_height) {
    row.assign(picture.Pixels, std::size_t{jpeg.next_scanline} * row.size(), row.size());
    auto* pixels = reinterpret_cast<JSAMPROW>(row.data());
    jpeg_write_scanlines(&jpeg, &pixels, 1);
  }
  jpeg_finish_compress(&jpeg);
  std::string file(reinterpret_cast<const char*>(buffer), size);
  jpeg_destroy_compress(&jpeg);
  std::free(buffer);
  return file;
}

std::string EncodeGif(const TPicture& picture) {
  std::string file;
  int error = 0;
  GifFileType* gif = EGifOpen(&file, WriteToString, &error);
  ColorMapObject* map = GifMakeMapObject(256, nullptr);
  if (gif == nullptr || map == nullptr) throw std::runtime_error("cannot encode a GIF");
  for (int i = 0; i < 256; ++i) {
    const auto grey = static_cast<GifByteType>(i);
    map->Colors[i] = {grey, grey, grey};
  }
  bool ok = EGifPutScreenDesc(gif, picture.Width, picture.Height, 256, 0, map) == GIF_OK &&
            EGifPutImageDesc(gif, 0, 0, picture.Width, picture.Height, false, nullptr) == GIF_OK;
  std::string row;
  for (int y = 0; ok && y < picture.Height; ++y) {
    row.assign(picture.Pixels, static_cast<std::size_t>(y) * picture.Width,
               static_cast<std::size_t>(picture.Width));
    ok = EGifPutLine(gif, reinterpret_cast<GifPixelType*>(row.data()), picture.Width) == GIF_OK;
  }
  GifFreeMapObject(map);
  ok = EGifCloseFile(gif, &error) == GIF_OK && ok;
  if (!ok) throw std::runtime_error("cannot encode a GIF");
  return file;
}

std::string EncodeTiff(const TPicture& picture, bool lzw) {
  std::ostringstream stream;
  TIFF* tiff = TIFFStreamOpen("picture", static_cast<std::ostream*>(&stream));
  if (tiff == nullptr) throw std::runtime_error("cannot encode a TIFF");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(picture.Width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(picture.Height));
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 64);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, lzw ? COMPRESSION_LZW : COMPRESSION_NONE);
  bool ok = true;
  std::string row;
  for (int y = 0; ok && y < picture.Height; ++y) {
    row.assign(picture.Pixels, static_cast<std::size_t>(y) * picture.Width,
               static_cast<std::size_t>(picture.Width));
    ok = TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), 0) == 1;
  }
  TIFFClose(tiff);
  if (!ok) throw std::runtime_error("cannot encode a TIFF");
  return stream.str();
}

std::string CompressBz2(std::string_view data, int level) {
  // As much as the library may need.
  std::string file(data.size() + data.size() / 100 + 600, '\0');
  auto size = static_cast<unsigned>(file.size());
  if (BZ2_bzBuffToBuffCompress(file.data(), &size, const_cast<char*>(data.data()),
                               static_cast<unsigned>(data.size()), level, 0, 0) != BZ_OK)
    throw std::runtime_error("cannot compress with bzip2");
  file.resize(size);
  return file;
}

std::string StoreZip(std::string_view name, std::string_view data, TDateTime time) {
  const auto parts = time.Parts();
  const auto dos_time = static_cast<std::uint32_t>(parts.Hour << 11 | parts.Minute << 5 | parts.Second / 2);
  const auto dos_date =
      static_cast<std::uint32_t>(std::max(parts.Year - 1980, 0) << 9 | parts.Month << 5 | parts.Day);
  const auto size = static_cast<std::uint32_t>(data.size());
  std::string common;              // the same in the file's header and in its directory entry
  PutLittleEndian(common, 10, 2);  // version needed
  PutLittleEndian(common, 0, 2);   // flags
  PutLittleEndian(common, 0, 2);   // method: stored
  PutLittleEndian(common, dos_time, 2);
  PutLittleEndian(common, dos_date, 2);
  PutLittleEndian(common, Crc32(data), 4);
  PutLittleEndian(common, size, 4);
  PutLittleEndian(common, size, 4);
  PutLittleEndian(common, static_cast<std::uint32_t>(name.size()), 2);
  PutLittleEndian(common, 0, 2);  // extra field

  std::string file = "PK\x03\x04" + common;
  file.append(name).append(data);
  const auto directory = static_cast<std::uint32_t>(file.size());
  file += "PK\x01\x02";
  PutLittleEndian(file, 10, 2);  // version made by
  file += common;
  file.append(14, '\0');  // comment, disk, attributes, and the offset of the file's header: 0
  file.append(name);
  const auto directory_size = static_cast<std::uint32_t>(file.size()) - directory;
  file += "PK\x05\x06";
  PutLittleEndian(file, 0, 4);
  PutLittleEndian(file, 1, 2);
  PutLittleEndian(file, 1, 2);
  PutLittleEndian(file, directory_size, 4);
  PutLittleEndian(file, directory, 4);
  PutLittleEndian(file, 0, 2);
  return file;
}

}  // namespace skyreel::demo
