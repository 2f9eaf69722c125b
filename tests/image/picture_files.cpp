#include "image/picture_files.h"

#include <gif_lib.h>
#include <png.h>
#include <tiffio.h>

#include <sstream>
#include <stdexcept>
#include <tiffio.hxx>
#include <vector>

namespace skyreel::test {

TPicture ColourPicture(int width, int height) {
  return {width, height, [](int x, int y) {
            return TRgb{static_cast<std::uint8_t>(x * 5 + y), static_cast<std::uint8_t>(y * 9),
                        static_cast<std::uint8_t>(200 - x * 3 + y)};
          }};
}

TPicture GreyPicture(int width, int height) {
  return {width, height, [](int x, int y) {
            const auto value = static_cast<std::uint8_t>(x * 3 + y * 5);
            return TRgb{value, value, value};
          }};
}

namespace {

/// Rows of `channels` bytes a pixel; a fourth channel is alpha, as TransparentPngFile says.
std::vector<std::uint8_t> Row(const TPicture& picture, int y, int channels) {
  std::vector<std::uint8_t> row;
  for (int x = 0; x < picture.Width; ++x) {
    const TRgb pixel = picture.Pixel(x, y);
    row.push_back(pixel[0]);
    if (channels > 1) row.insert(row.end(), {pixel[1], pixel[2]});
    if (channels > 3) row.push_back((x + y) % 2 == 0 ? 255 : 0);
  }
  return row;
}

std::string WritePng(const TPicture& picture, int type, int channels, bool interlaced, int bits) {
  std::string out;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(
      png, &out,
      [](png_structp p, png_bytep data, png_size_t size) {
        static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(data), size);
      },
      nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(picture.Width), static_cast<png_uint_32>(picture.Height),
               bits, type, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  std::vector<std::vector<std::uint8_t>> rows;
  std::vector<png_bytep> pointers;
  for (int y = 0; y < picture.Height; ++y) {
    rows.push_back(Row(picture, y, channels));
    if (bits == 16) {
      std::vector<std::uint8_t> wide;
      for (const std::uint8_t value : rows.back()) wide.insert(wide.end(), {value, value});
      rows.back() = wide;
    }
    pointers.push_back(rows.back().data());
  }
  png_write_image(png, pointers.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return out;
}

}  // namespace

std::string PngFile(const TPicture& picture, bool grey, bool interlaced, int bits) {
  return WritePng(picture, grey ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, grey ? 1 : 3, interlaced, bits);
}

std::string TransparentPngFile(const TPicture& picture) {
  return WritePng(picture, PNG_COLOR_TYPE_RGB_ALPHA, 4, false, 8);
}

std::string GifFile(const TPicture& picture, bool interlaced, int left, int top) {
  std::string out;
  int error = 0;
  GifFileType* gif = EGifOpen(
      &out,
      [](GifFileType* file, const GifByteType* data, int size) {
        static_cast<std::string*>(file->UserData)
            ->append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
        return size;
      },
      &error);
  ColorMapObject* map = GifMakeMapObject(256, nullptr);
  for (int i = 0; i < 216; ++i) {
    map->Colors[i] = {static_cast<GifByteType>(i / 36 * 51), static_cast<GifByteType>(i / 6 % 6 * 51),
                      static_cast<GifByteType>(i % 6 * 51)};
  }
  bool written =
      EGifPutScreenDesc(gif, left + picture.Width, top + picture.Height, 8, 215, map) == GIF_OK &&
      EGifPutImageDesc(gif, left, top, picture.Width, picture.Height, interlaced, nullptr) == GIF_OK;
  const auto put = [&](int y) {
    std::vector<GifPixelType> row;
    for (int x = 0; x < picture.Width; ++x) {
      const TRgb pixel = picture.Pixel(x, y);
      row.push_back(static_cast<GifPixelType>(pixel[0] / 51 * 36 + pixel[1] / 51 * 6 + pixel[2] / 51));
    }
    written = written && EGifPutLine(gif, row.data(), picture.Width) == GIF_OK;
  };
  for (const auto& [first, step] : interlaced
                                       ? std::vector<std::pair<int, int>>{{0, 8}, {4, 8}, {2, 4}, {1, 2}}
                                       : std::vector<std::pair<int, int>>{{0, 1}}) {
    for (int y = first; y < picture.Height; y += step) put(y);
  }
  EGifCloseFile(gif, &error);
  GifFreeMapObject(map);
  if (!written) throw std::runtime_error("giflib");
  return out;
}

std::string TiffFile(const TPicture& picture, bool grey, int compression) {
  std::ostringstream out;
  TIFF* tiff = TIFFStreamOpen("picture", &out);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, picture.Width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, picture.Height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, grey ? 1 : 3);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 5);
  for (int y = 0; y < picture.Height; ++y) {
    TIFFWriteScanline(tiff, Row(picture, y, grey ? 1 : 3).data(), static_cast<std::uint32_t>(y), 0);
  }
  TIFFClose(tiff);
  return out.str();
}

std::string Number(std::uint32_t value, int bytes) {
  std::string out;
  for (; bytes > 0; --bytes, value >>= 8) out += static_cast<char>(value & 0xFF);
  return out;
}

std::string BmpFile(int width, int height, std::uint32_t bits, std::uint32_t compression,
                    const std::string& palette, const std::string& pixels) {
  const auto colours = bits <= 8 ? static_cast<std::uint32_t>(palette.size() / 4) : 0;
  return "BM" + Number(0, 8) + Number(static_cast<std::uint32_t>(54 + palette.size()), 4) + Number(40, 4) +
         Number(static_cast<std::uint32_t>(width), 4) + Number(static_cast<std::uint32_t>(height), 4) +
         Number(1, 2) + Number(bits, 2) + Number(compression, 4) + Number(0, 12) + Number(colours, 4) +
         Number(0, 4) + palette + pixels;
}

std::string BmpFile(const TPicture& picture, bool top_down) {
  std::string pixels;
  for (int row = 0; row < picture.Height; ++row) {
    for (int x = 0; x < picture.Width; ++x) {
      const TRgb pixel = picture.Pixel(x, top_down ? row : picture.Height - 1 - row);
      pixels.append({static_cast<char>(pixel[2]), static_cast<char>(pixel[1]), static_cast<char>(pixel[0])});
    }
    while (pixels.size() % 4 != 0) pixels += '\0';
  }
  return BmpFile(picture.Width, top_down ? -picture.Height : picture.Height, 24, 0, "", pixels);
}

}  // namespace skyreel::test
