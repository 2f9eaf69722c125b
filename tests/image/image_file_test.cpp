#include "image/image_file.h"

#include <gtest/gtest.h>
#include <tiff.h>

#include <random>

#include "base/files.h"
#include "image/picture_files.h"
#include "support/failure.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using namespace test;

TRgb Reduced(TRgb pixel) {
  for (std::uint8_t& channel : pixel) channel = static_cast<std::uint8_t>(channel / 51 * 51);
  return pixel;
}

int Luminance(TRgb pixel) {
  return (299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2] + 500) / 1000;
}

/// The picture is what `expected` gives, in both pixel formats; each channel may differ by `tolerance`.
void ExpectPicture(const std::string& extension, const std::string& file, const TPicture& expected,
                   int tolerance = 0) {
  SCOPED_TRACE(extension);
  for (const TPixelFormat format : {TPixelFormat::Bits8, TPixelFormat::Bits24}) {
    TExtBitmap bitmap(format);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, extension, file));
    ASSERT_EQ(bitmap.Width(), expected.Width);
    ASSERT_EQ(bitmap.Height(), expected.Height);
    for (int at = 0; at < expected.Width * expected.Height; ++at) {
      const int x = at % expected.Width, y = at / expected.Width;
      const TRgb pixel = expected.Pixel(x, y);
      const std::uint8_t* const got = bitmap.ScanLine(y) + x * bitmap.BytesPerPixel();
      for (std::size_t i = 0; i < (format == TPixelFormat::Bits8 ? 1 : 3); ++i) {
        const int want = format == TPixelFormat::Bits8 ? Luminance(pixel) : pixel[2 - i];
        ASSERT_NEAR(got[i], want, tolerance) << "at " << x << ", " << y;
      }
    }
  }
}

class ImageFiles : public testing::Test {
 protected:
  std::string JpegFile(const TPicture& picture, TPixelFormat format, int quality) {
    TExtBitmap bitmap(format);
    LoadImageFromMemory(bitmap, ".png", test::PngFile(picture, false));
    SaveAsJpeg(bitmap, folder_ / "made.jpg", quality, "a comment");
    return ReadWholeFile(folder_ / "made.jpg");
  }
  /// One whole file of every kind.
  std::vector<std::pair<std::string, std::string>> OneOfEach() {
    return {
        {".png", test::PngFile(colour_, false)}, {".png", test::PngFile(colour_, false, true)},
        {".gif", test::GifFile(colour_, false)}, {".tif", test::TiffFile(colour_, false, COMPRESSION_LZW)},
        {".bmp", test::BmpFile(colour_)},        {".jpg", JpegFile(colour_, TPixelFormat::Bits24, 90)}};
  }

  const TPicture colour_ = test::ColourPicture(), grey_ = test::GreyPicture();
  test::TTempFolder folder_;
};

TEST_F(ImageFiles, EveryKindLoadsIntoBothPixelFormats) {
  const TRgb white{255, 255, 255};
  const auto picture = [](int width, int height, auto pixel) { return TPicture{width, height, pixel}; };
  const auto reduced = [&](int x, int y) { return Reduced(colour_.Pixel(x, y)); };
  ExpectPicture(".png", test::PngFile(colour_, false), colour_);
  ExpectPicture(".PNG", test::PngFile(colour_, false, true), colour_);
  ExpectPicture(".png", test::PngFile(grey_, true), grey_);
  ExpectPicture(".png", test::PngFile(grey_, true, true, 16), grey_);
  ExpectPicture(".png", test::TransparentPngFile(colour_), picture(37, 23, [&](int x, int y) {
                  return (x + y) % 2 == 0 ? colour_.Pixel(x, y) : white;
                }));
  ExpectPicture(".gif", test::GifFile(colour_, false), picture(37, 23, reduced));
  ExpectPicture(".Gif", test::GifFile(colour_, true), picture(37, 23, reduced));
  // A picture that stands at a place of its own on its screen.
  ExpectPicture(".gif", test::GifFile(colour_, false, 5, 3), picture(42, 26, [&](int x, int y) {
                  return x < 5 || y < 3 ? white : reduced(x - 5, y - 3);
                }));
  for (const int compression :
       {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE}) {
    ExpectPicture(".tif", test::TiffFile(colour_, false, compression), colour_);
    ExpectPicture(".tiff", test::TiffFile(grey_, true, compression), grey_);
  }
  ExpectPicture(".bmp", test::BmpFile(colour_), colour_);
  ExpectPicture(".bmp", test::BmpFile(colour_, true), colour_);
  const TPicture smooth = picture(64, 48, [](int x, int y) {
    return TRgb{static_cast<std::uint8_t>(x * 2), static_cast<std::uint8_t>(y * 2), 90};
  });
  ExpectPicture(".jpg", JpegFile(smooth, TPixelFormat::Bits24, 100), smooth, 5);
  const TPicture smooth_grey = picture(64, 48, [](int x, int y) {
    const auto value = static_cast<std::uint8_t>(x + y);
    return TRgb{value, value, value};
  });
  ExpectPicture(".JPEG", JpegFile(smooth_grey, TPixelFormat::Bits8, 100), smooth_grey, 1);
}

TEST_F(ImageFiles, BitmapsOfEveryDepth) {
  const std::string palette = "\x00\x00\x00\x00\x0A\x0A\x0A\x00\x14\x14\x14\x00"s;  // greys 0, 10, 20
  const struct {
    const char* What;
    std::string File, Grey;  ///< two rows from the top
  } cases[] = {
      {"1 bit", test::BmpFile(3, 2, 1, 0, palette.substr(0, 8), "\xA0\0\0\0\x40\0\0\0"s),
       "\0\x0A\0\x0A\0\x0A"s},
      {"4 bits", test::BmpFile(3, 2, 4, 0, palette, "\x01\x20\0\0\x21\x00\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits", test::BmpFile(3, 2, 8, 0, palette, "\0\1\2\0\2\1\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits in runs", test::BmpFile(3, 2, 8, 1, palette, "\3\1\0\0\0\3\2\1\0\0\0\1"s),
       "\x14\x0A\0\x0A\x0A\x0A"s},
      {"runs that move over pixels", test::BmpFile(3, 2, 8, 1, palette, "\0\2\1\0\1\2\0\2\0\1\1\1\0\1"s),
       "\0\0\x0A\0\x14\0"s},
      {"runs that end early", test::BmpFile(3, 2, 8, 1, palette, "\1\1\0\1"s), "\0\0\0\x0A\0\0"s},
      {"a run longer than its row", test::BmpFile(3, 2, 8, 1, palette, "\xFF\1\0\0\xFF\2\0\1"s),
       "\x14\x14\x14\x0A\x0A\x0A"s},
      {"4 bits in runs", test::BmpFile(3, 2, 4, 2, palette, "\3\x12\0\0\0\3\x21\x00\0\1"s),
       "\x14\x0A\0\x0A\x14\x0A"s},
      {"16 bits", test::BmpFile(1, 2, 16, 0, "", "\xFF\x7F\0\0\0\0\0\0"s), "\0\xFF"s},
      {"16 bits with masks",
       test::BmpFile(1, 2, 16, 3, "\0\xF8\0\0\xE0\x07\0\0\x1F\0\0\0"s, "\xFF\xFF\0\0\0\0\0\0"s), "\0\xFF"s},
      {"32 bits", test::BmpFile(1, 2, 32, 0, "", "\x05\x05\x05\0\x07\x07\x07\0"s), "\7\5"s},
  };
  for (const auto& c : cases) {
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
  const TPicture dot = test::GreyPicture(1, 1);
  std::string bmp = test::BmpFile(dot), gif = test::GifFile(dot, false),
              jpeg = JpegFile(test::GreyPicture(8, 8), TPixelFormat::Bits8, 50),
              tiff = test::TiffFile(dot, true, COMPRESSION_NONE);
  bmp.replace(18, 8, test::Number(50'000, 4) + test::Number(40'000, 4));
  gif.replace(6, 4, "\xFF\xFF\xFF\xFF");
  jpeg.replace(jpeg.find("\xFF\xC0") + 5, 4, "\xFD\xE8\xFD\xE8");
  for (const std::string& tag : {"\x00\x01"s, "\x01\x01"s})  // width, length: one value of 16 bits
    tiff.replace(tiff.find(tag + "\x03\x00\x01\x00\x00\x00"s) + 8, 2, "\xFF\xFF");
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const auto& [extension, file] :
       {std::pair{".bmp", bmp}, {".gif", gif}, {".jpg", jpeg}, {".tif", tiff}}) {
    const auto load = [&, kind = extension, content = file] { LoadImageFromMemory(bitmap, kind, content); };
    EXPECT_NE(test::Failure<EInvalidGraphic>(load).find("too large"), std::string::npos) << extension;
  }
  bitmap.PixelLimit = 10;
  EXPECT_THROW(LoadImageFromMemory(bitmap, ".png", test::PngFile(test::GreyPicture(4, 3), true)),
               EInvalidGraphic);
}

TEST_F(ImageFiles, UnknownKindsAndMissingFilesAreRefused) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const char* name : {"x.grb", "x.raw", "x.txt", "x", "page.jpg"}) {
    folder_.Write(name, test::BmpFile(grey_));
    EXPECT_THROW(LoadImage(bitmap, folder_ / name), EInvalidGraphic) << name;
  }
  EXPECT_THROW(LoadImage(bitmap, folder_ / "missing.png"), std::system_error);
}

TEST_F(ImageFiles, JpegCarriesCommentChannelsAndQuality) {
  for (const TPixelFormat format : {TPixelFormat::Bits24, TPixelFormat::Bits8}) {
    const std::string file = JpegFile(colour_, format, 78);
    EXPECT_NE(file.find("\xFF\xFE\x00\x0B"s + "a comment"), std::string::npos) << "comment marker";
    const std::size_t frame = file.find("\xFF\xC0");  // baseline
    ASSERT_NE(frame, std::string::npos);
    EXPECT_EQ(file[frame + 9], format == TPixelFormat::Bits8 ? '\1' : '\3');
    EXPECT_LT(JpegFile(colour_, format, 10).size(), file.size());
    EXPECT_GT(JpegFile(colour_, format, 100).size(), file.size());
  }
}

TEST_F(ImageFiles, FailedSavesKeepTheOlderFile) {
  folder_.Write("kept.jpg", "older");
  const struct {
    TPixelFormat Format;
    int Width;
    const char *File, *Message;
  } cases[] = {
      {TPixelFormat::Bits32, 1, "kept.jpg", "Cannot save bitmap as JPEG with specified PixelFormat"},
      {TPixelFormat::Bits8, 0, "kept.jpg", "Error writing JPEG to file"},
      {TPixelFormat::Bits8, 70'000, "kept.jpg",
       "Error writing JPEG to file"},  // wider than the format allows
      {TPixelFormat::Bits8, 1, "missing/x.jpg", "Error writing JPEG to file"},
  };
  for (const auto& c : cases) {
    TExtBitmap bitmap(c.Format);
    if (c.Width > 0) bitmap.SetSize(c.Width, 1);
    const auto save = [&] { SaveAsJpeg(bitmap, folder_ / c.File, 78, "c"); };
    EXPECT_EQ(test::Failure<EInvalidGraphic>(save), c.Message) << c.Width;
  }
  EXPECT_EQ(ReadWholeFile(folder_ / "kept.jpg"), "older");
  EXPECT_EQ(folder_.Tree().size(), 1U);
}

}  // namespace
}  // namespace skyreel
