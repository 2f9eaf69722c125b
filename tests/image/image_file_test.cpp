#include "image/image_file.h"

#include <gtest/gtest.h>
#include <tiff.h>

#include <random>

#include "base/files.h"
#include "image/picture_files.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using test::TPicture;
using test::TRgb;

TRgb Reduced(TRgb pixel) {
  for (std::uint8_t& channel : pixel) channel = static_cast<std::uint8_t>(channel / 51 * 51);
  return pixel;
}

int Luminance(TRgb pixel) {
  return (299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2] + 500) / 1000;
}

/// The picture is what `expected` gives, in both pixel formats; each channel may differ by `tolerance`.
void ExpectPicture(const std::string& extension, const std::string& file, const TPicture& expected,
                   int tolerance, const std::string& what) {
  for (const TPixelFormat format : {TPixelFormat::Bits8, TPixelFormat::Bits24}) {
    TExtBitmap bitmap(format);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, extension, file)) << what;
    ASSERT_EQ(bitmap.Width(), expected.Width) << what;
    ASSERT_EQ(bitmap.Height(), expected.Height) << what;
    for (int y = 0; y < expected.Height; ++y) {
      for (int x = 0; x < expected.Width; ++x) {
        const TRgb pixel = expected.Pixel(x, y);
        const std::uint8_t* const got = bitmap.ScanLine(y) + x * bitmap.BytesPerPixel();
        if (format == TPixelFormat::Bits8) {
          ASSERT_NEAR(got[0], Luminance(pixel), tolerance) << what << " at " << x << ", " << y;
        } else {
          for (std::size_t i = 0; i < 3; ++i) {
            ASSERT_NEAR(got[i], pixel[2 - i], tolerance) << what << " at " << x << ", " << y;
          }
        }
      }
    }
  }
}

class ImageFiles : public testing::Test {
 protected:
  std::string JpegFile(const TPicture& picture, TPixelFormat format, int quality,
                       const std::string& comment = "c") {
    TExtBitmap bitmap(format);
    LoadImageFromMemory(bitmap, ".png", test::PngFile(picture, false));
    SaveAsJpeg(bitmap, folder_ / "made.jpg", quality, comment);
    return ReadWholeFile(folder_ / "made.jpg");
  }

  /// One whole file of every kind.
  std::vector<std::pair<std::string, std::string>> OneOfEach() {
    const TPicture colour = test::ColourPicture();
    return {{".png", test::PngFile(colour, false)}, {".png", test::PngFile(colour, false, true)},
            {".gif", test::GifFile(colour, false)}, {".tif", test::TiffFile(colour, false, COMPRESSION_LZW)},
            {".bmp", test::BmpFile(colour)},        {".jpg", JpegFile(colour, TPixelFormat::Bits24, 90)}};
  }

  test::TTempFolder folder_;
};

TEST_F(ImageFiles, EveryKindLoadsIntoBothPixelFormats) {
  const TPicture colour = test::ColourPicture();
  const TPicture grey = test::GreyPicture();
  const TPicture reduced{colour.Width, colour.Height,
                         [&](int x, int y) { return Reduced(colour.Pixel(x, y)); }};
  ExpectPicture(".png", test::PngFile(colour, false), colour, 0, "colour PNG");
  ExpectPicture(".PNG", test::PngFile(colour, false, true), colour, 0, "interlaced PNG");
  ExpectPicture(".png", test::PngFile(grey, true), grey, 0, "grey PNG");
  ExpectPicture(".png", test::PngFile(grey, true, true, 16), grey, 0, "interlaced grey PNG of 16 bits");
  ExpectPicture(".gif", test::GifFile(colour, false), reduced, 0, "GIF");
  ExpectPicture(".Gif", test::GifFile(colour, true), reduced, 0, "interlaced GIF");
  for (const int compression :
       {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE}) {
    ExpectPicture(".tif", test::TiffFile(colour, false, compression), colour, 0, "colour TIFF");
    ExpectPicture(".tiff", test::TiffFile(grey, true, compression), grey, 0, "grey TIFF");
  }
  ExpectPicture(".bmp", test::BmpFile(colour), colour, 0, "BMP");
  ExpectPicture(".bmp", test::BmpFile(colour, true), colour, 0, "BMP from the top down");
  const TPicture smooth{64, 48, [](int x, int y) {
                          return TRgb{static_cast<std::uint8_t>(x * 2), static_cast<std::uint8_t>(y * 2), 90};
                        }};
  ExpectPicture(".jpg", JpegFile(smooth, TPixelFormat::Bits24, 100), smooth, 5, "colour JPEG");
  const TPicture smooth_grey{64, 48, [](int x, int y) {
                               const auto value = static_cast<std::uint8_t>(x + y);
                               return TRgb{value, value, value};
                             }};
  ExpectPicture(".JPEG", JpegFile(smooth_grey, TPixelFormat::Bits8, 100), smooth_grey, 1, "grey JPEG");
}

TEST_F(ImageFiles, TransparentPartsOfAPngAreWhite) {
  const TPicture colour = test::ColourPicture();
  ExpectPicture(".png", test::TransparentPngFile(colour),
                {colour.Width, colour.Height,
                 [&](int x, int y) {
                   return (x + y) % 2 == 0 ? colour.Pixel(x, y) : TRgb{255, 255, 255};
                 }},
                0, "PNG with alpha");
}

TEST_F(ImageFiles, AGifStandsAtItsPlaceOnTheScreen) {
  const TPicture colour = test::ColourPicture(8, 6);
  ExpectPicture(".gif", test::GifFile(colour, false, 5, 3),
                {13, 9,
                 [&](int x, int y) {
                   return x < 5 || y < 3 ? TRgb{255, 255, 255} : Reduced(colour.Pixel(x - 5, y - 3));
                 }},
                0, "GIF with a margin");
}

/// Header of 40 bytes, palette or masks, pixels.
std::string Bmp(int width, int height, std::uint32_t bits, std::uint32_t compression,
                const std::string& palette, const std::string& pixels) {
  using test::Number;
  return "BM" + Number(0, 8) + Number(static_cast<std::uint32_t>(54 + palette.size()), 4) + Number(40, 4) +
         Number(static_cast<std::uint32_t>(width), 4) + Number(static_cast<std::uint32_t>(height), 4) +
         Number(1, 2) + Number(bits, 2) + Number(compression, 4) + Number(0, 12) +
         Number(bits <= 8 ? static_cast<std::uint32_t>(palette.size() / 4) : 0, 4) + Number(0, 4) + palette +
         pixels;
}

TEST_F(ImageFiles, BitmapsOfEveryDepth) {
  const std::string palette = "\x00\x00\x00\x00\x0A\x0A\x0A\x00\x14\x14\x14\x00"s;  // greys 0, 10, 20
  struct TCase {
    const char* What;
    std::string File;
    std::string Grey;  // two rows from the top
  };
  const TCase cases[] = {
      {"1 bit", Bmp(3, 2, 1, 0, palette.substr(0, 8), "\xA0\0\0\0\x40\0\0\0"s), "\0\x0A\0\x0A\0\x0A"s},
      {"4 bits", Bmp(3, 2, 4, 0, palette, "\x01\x20\0\0\x21\x00\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits", Bmp(3, 2, 8, 0, palette, "\0\1\2\0\2\1\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits in runs", Bmp(3, 2, 8, 1, palette, "\3\1\0\0\0\3\2\1\0\0\0\1"s), "\x14\x0A\0\x0A\x0A\x0A"s},
      {"runs that move over pixels", Bmp(3, 2, 8, 1, palette, "\0\2\1\0\1\2\0\2\0\1\1\1\0\1"s),
       "\0\0\x0A\0\x14\0"s},
      {"runs that end early", Bmp(3, 2, 8, 1, palette, "\1\1\0\1"s), "\0\0\0\x0A\0\0"s},
      {"a run longer than its row", Bmp(3, 2, 8, 1, palette, "\xFF\1\0\0\xFF\2\0\1"s),
       "\x14\x14\x14\x0A\x0A\x0A"s},
      {"4 bits in runs", Bmp(3, 2, 4, 2, palette, "\3\x12\0\0\0\3\x21\x00\0\1"s), "\x14\x0A\0\x0A\x14\x0A"s},
      {"16 bits", Bmp(1, 2, 16, 0, "", "\xFF\x7F\0\0\0\0\0\0"s), "\0\xFF"s},
      {"16 bits with masks", Bmp(1, 2, 16, 3, "\0\xF8\0\0\xE0\x07\0\0\x1F\0\0\0"s, "\xFF\xFF\0\0\0\0\0\0"s),
       "\0\xFF"s},
      {"32 bits", Bmp(1, 2, 32, 0, "", "\x05\x05\x05\0\x07\x07\x07\0"s), "\7\5"s},
  };
  for (const TCase& c : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, ".bmp", c.File)) << c.What;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bitmap.ScanLine(0)), c.Grey.size()), c.Grey) << c.What;
  }
}

TEST_F(ImageFiles, ACutFileIsRefusedWhereverItIsCut) {
  for (const auto& [extension, file] : OneOfEach()) {
    // Behind the picture come a GIF's end mark, and the padding of the last row of this bitmap.
    const std::size_t whole = file.size() - (extension == ".gif" ? 2 : extension == ".bmp" ? 1 : 0);
    for (std::size_t size = 0; size < whole; size += size < 100 || size + 20 > whole ? 1 : 13) {
      TExtBitmap bitmap(TPixelFormat::Bits8);
      EXPECT_THROW(LoadImageFromMemory(bitmap, extension, file.substr(0, size)), EInvalidGraphic)
          << extension << " of " << file.size() << " bytes cut to " << size;
      EXPECT_TRUE(bitmap.IsEmpty());
    }
  }
}

TEST_F(ImageFiles, DamageNeverDoesMoreThanThrow) {
  std::mt19937 random(3);
  int refused = 0;
  for (const auto& [extension, file] : OneOfEach()) {
    for (int round = 0; round < 200; ++round) {
      std::string damaged = file;
      for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<char>(random());
      TExtBitmap bitmap(TPixelFormat::Bits24);
      bitmap.PixelLimit = 1'000'000;
      try {
        LoadImageFromMemory(bitmap, extension, damaged);
      } catch (const EInvalidGraphic&) {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 300);
}

TEST_F(ImageFiles, HugeHeadersAreRefusedBeforeMemoryIsTaken) {
  std::string png = test::PngFile(test::GreyPicture(1, 1), true);
  png.replace(16, 8, "\0\0\xC3\x50\0\0\x9C\x40"s);  // 50000 x 40000, and the sum of IHDR
  png.replace(29, 4, "\0\0\0\0"s);
  std::string bmp = test::BmpFile(test::GreyPicture(1, 1));
  bmp.replace(18, 8, test::Number(50'000, 4) + test::Number(40'000, 4));
  std::string gif = test::GifFile(test::GreyPicture(1, 1), false);
  gif.replace(6, 4, "\xFF\xFF\xFF\xFF");
  std::string jpeg = JpegFile(test::GreyPicture(8, 8), TPixelFormat::Bits8, 50);
  const std::size_t frame = jpeg.find("\xFF\xC0");
  ASSERT_NE(frame, std::string::npos);
  jpeg.replace(frame + 5, 4, "\xFD\xE8\xFD\xE8");  // 65000 x 65000
  std::string tiff = test::TiffFile(test::GreyPicture(1, 1), true, COMPRESSION_NONE);
  for (const std::string& tag : {"\x00\x01"s, "\x01\x01"s}) {  // width, length: one 32- or 16-bit value
    const std::size_t entry = tiff.find(tag + "\x03\x00\x01\x00\x00\x00"s);
    ASSERT_NE(entry, std::string::npos);
    tiff.replace(entry + 8, 2, "\xFF\xFF");
  }
  for (const auto& [extension, file] :
       {std::pair{".bmp", bmp}, {".gif", gif}, {".jpg", jpeg}, {".tif", tiff}}) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    try {
      LoadImageFromMemory(bitmap, extension, file);
      ADD_FAILURE() << extension;
    } catch (const EInvalidGraphic& error) {
      EXPECT_NE(std::string(error.what()).find("too large"), std::string::npos)
          << extension << ": " << error.what();
    }
  }
  TExtBitmap bitmap(TPixelFormat::Bits8);
  EXPECT_THROW(LoadImageFromMemory(bitmap, ".png", png), EInvalidGraphic) << "its sum is wrong as well";
  bitmap.PixelLimit = 10;
  EXPECT_THROW(LoadImageFromMemory(bitmap, ".png", test::PngFile(test::GreyPicture(4, 3), true)),
               EInvalidGraphic);
}

TEST_F(ImageFiles, UnknownKindsAndMissingFilesAreRefused) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const char* name : {"x.grb", "x.asd", "x.dig", "x.raw", "x.fdk", "x.lcc", "x.txt", "x"}) {
    folder_.Write(name, test::BmpFile(test::GreyPicture()));
    EXPECT_THROW(LoadImage(bitmap, folder_ / name), EInvalidGraphic) << name;
  }
  EXPECT_THROW(LoadImage(bitmap, folder_ / "missing.png"), std::system_error);
  folder_.Write("page.jpg", "<html>not found</html>");
  EXPECT_THROW(LoadImage(bitmap, folder_ / "page.jpg"), EInvalidGraphic);
}

TEST_F(ImageFiles, JpegCarriesCommentChannelsAndQuality) {
  const TPicture picture = test::ColourPicture(200, 100);
  const std::string colour = JpegFile(picture, TPixelFormat::Bits24, 78, "a comment");
  const std::string grey = JpegFile(picture, TPixelFormat::Bits8, 78, "a comment");
  for (const auto& [file, channels] : {std::pair{colour, '\3'}, {grey, '\1'}}) {
    EXPECT_NE(file.find("\xFF\xFE\x00\x0B"s + "a comment"), std::string::npos) << "comment marker";
    const std::size_t frame = file.find("\xFF\xC0");  // baseline
    ASSERT_NE(frame, std::string::npos);
    EXPECT_EQ(file[frame + 9], channels);
  }
  EXPECT_LT(JpegFile(picture, TPixelFormat::Bits8, 10).size(), grey.size());
  EXPECT_GT(JpegFile(picture, TPixelFormat::Bits8, 100).size(), grey.size());
}

TEST_F(ImageFiles, FailedSavesKeepTheOlderFile) {
  folder_.Write("kept.jpg", "older");
  const auto message = [&](const TExtBitmap& bitmap, const std::filesystem::path& path) -> std::string {
    try {
      SaveAsJpeg(bitmap, path, 78, "c");
      return "no error";
    } catch (const EInvalidGraphic& error) {
      return error.what();
    }
  };
  TExtBitmap unknown(TPixelFormat::Bits32);
  unknown.SetSize(1, 1);
  EXPECT_EQ(message(unknown, folder_ / "kept.jpg"), "Cannot save bitmap as JPEG with specified PixelFormat");
  TExtBitmap bitmap(TPixelFormat::Bits8);
  EXPECT_EQ(message(bitmap, folder_ / "kept.jpg"), "Error writing JPEG to file") << "empty";
  bitmap.SetSize(70'000, 1);
  EXPECT_EQ(message(bitmap, folder_ / "kept.jpg"), "Error writing JPEG to file")
      << "wider than the format allows";
  bitmap.SetSize(1, 1);
  EXPECT_EQ(message(bitmap, folder_ / "missing" / "x.jpg"), "Error writing JPEG to file");
  EXPECT_EQ(ReadWholeFile(folder_ / "kept.jpg"), "older");
  EXPECT_EQ(folder_.Tree().size(), 1U);
}

}  // namespace
}  // namespace skyreel
