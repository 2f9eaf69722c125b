#include "image/image_file.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>

#include "base/files.h"
#include "support/failure.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using test::Failure;
using TRgb = std::array<std::uint8_t, 3>;
using TPixels = std::function<TRgb(int x, int y)>;

/// Where in colour.gif the picture begins, behind header and colours.
constexpr std::size_t kGifPicture = 781;

/// A file of the folder pictures, which says what is in them.
std::string PictureFile(const std::string& name) {
  return ReadWholeFile(std::filesystem::path(SKYREEL_TEST_PICTURES) / name);
}

TRgb Rgb(int red, int green, int blue) {
  return {static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green), static_cast<std::uint8_t>(blue)};
}
TRgb Colour(int x, int y) {
  return Rgb(x * 5 + y, y * 9, 200 - x * 3 + y);
}
TRgb Grey(int x, int y) {
  return Rgb(x * 3 + y * 5, x * 3 + y * 5, x * 3 + y * 5);
}
TRgb Reduced(int x, int y) {
  TRgb pixel = Colour(x, y);
  for (std::uint8_t& channel : pixel) channel = static_cast<std::uint8_t>(channel / 51 * 51);
  return pixel;
}

/// The file is the picture, in both pixel formats; each channel may differ by `tolerance`.
void ExpectPicture(const std::string& extension, const std::string& file, const TPixels& pixels,
                   int tolerance = 0, int width = 37, int height = 23) {
  for (const TPixelFormat format : {TPixelFormat::Bits8, TPixelFormat::Bits24}) {
    TExtBitmap bitmap(format);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, extension, file));
    ASSERT_EQ(bitmap.Width(), width);
    ASSERT_EQ(bitmap.Height(), height);
    for (int at = 0; at < width * height; ++at) {
      const int x = at % width, y = at / width;
      const TRgb pixel = pixels(x, y);
      const int luminance = (299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2] + 500) / 1000;
      const std::uint8_t* const got = bitmap.ScanLine(y) + x * bitmap.BytesPerPixel();
      for (std::size_t i = 0; i < (format == TPixelFormat::Bits8 ? 1 : 3); ++i) {
        const int want = format == TPixelFormat::Bits8 ? luminance : pixel[2 - i];
        ASSERT_NEAR(got[i], want, tolerance) << "at " << x << ", " << y;
      }
    }
  }
}

class ImageFiles : public testing::Test {
 protected:
  std::string JpegFile(const std::string& picture, TPixelFormat format, int quality) {
    TExtBitmap bitmap(format);
    LoadImageFromMemory(bitmap, ".png", PictureFile(picture));
    SaveAsJpeg(bitmap, folder_ / "made.jpg", quality, "a comment");
    return ReadWholeFile(folder_ / "made.jpg");
  }
  /// One whole file of every kind.
  std::vector<std::pair<std::string, std::string>> OneOfEach() {
    return {{".png", PictureFile("colour.png")}, {".png", PictureFile("colour_interlaced.png")},
            {".gif", PictureFile("colour.gif")}, {".tif", PictureFile("colour_lzw.tif")},
            {".bmp", PictureFile("colour.bmp")}, {".jpg", JpegFile("colour.png", TPixelFormat::Bits24, 90)}};
  }

  test::TTempFolder folder_;
};

TEST_F(ImageFiles, EveryKindLoadsIntoBothPixelFormats) {
  const TRgb white = Rgb(255, 255, 255);
  const auto on_white = [&](int x, int y) { return (x + y) % 2 == 0 ? Colour(x, y) : white; };
  const auto at_5_3 = [&](int x, int y) { return x < 5 || y < 3 ? white : Reduced(x - 5, y - 3); };
  const struct {
    const char *Extension, *File;
    TPixels Pixels;
  } cases[] = {{".png", "colour.png", Colour},
               {".PNG", "colour_interlaced.png", Colour},
               {".png", "grey.png", Grey},
               {".png", "grey16_interlaced.png", Grey},
               {".png", "alpha.png", on_white},
               {".gif", "colour.gif", Reduced},
               {".Gif", "colour_interlaced.gif", Reduced},
               {".tif", "colour_plain.tif", Colour},
               {".tif", "colour_lzw.tif", Colour},
               {".tif", "colour_packbits.tif", Colour},
               {".tif", "colour_deflate.tif", Colour},
               {".tiff", "grey_plain.tif", Grey},
               {".tiff", "grey_lzw.tif", Grey},
               {".tiff", "grey_packbits.tif", Grey},
               {".tiff", "grey_deflate.tif", Grey},
               {".bmp", "colour.bmp", Colour},
               {".bmp", "colour_top_down.bmp", Colour}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.File);
    ExpectPicture(c.Extension, PictureFile(c.File), c.Pixels);
  }
  ExpectPicture(".gif", PictureFile("colour_at_5_3.gif"), at_5_3, 0, 42, 26);
  // Real ones hold extensions in front of the picture.
  std::string extended = PictureFile("colour.gif");
  extended.insert(kGifPicture, "\x21\xFE\1c\0\x21\xF9\4\0\0\0\0\0"s);
  ExpectPicture(".gif", extended, Reduced);
  for (const char* inks : {"inks.jpg", "inks_adobe.jpg"}) ExpectPicture(".jpg", PictureFile(inks), Colour, 6);
  ExpectPicture(".jpg", JpegFile("colour.png", TPixelFormat::Bits24, 100), Colour, 6);
  ExpectPicture(".JPEG", JpegFile("grey.png", TPixelFormat::Bits8, 100), Grey, 1);
}

/// Little-endian bytes.
std::string Number(std::int64_t value, int bytes) {
  std::string out;
  for (; bytes > 0; --bytes, value >>= 8) out += static_cast<char>(value & 0xFF);
  return out;
}

/// Two rows, as they stand in the file; masks in place of the palette where there is none.
std::string BmpFile(int width, int bits, int compression, const std::string& palette,
                    const std::string& pixels) {
  const auto extra = static_cast<std::int64_t>(palette.size());
  return "BM" + Number(0, 8) + Number(54 + extra, 4) + Number(40, 4) + Number(width, 4) + Number(2, 4) +
         Number(1, 2) + Number(bits, 2) + Number(compression, 4) + Number(0, 12) +
         Number(bits <= 8 ? extra / 4 : 0, 4) + Number(0, 4) + palette + pixels;
}

TEST_F(ImageFiles, BitmapsOfEveryDepth) {
  const std::string palette = "\x00\x00\x00\x00\x0A\x0A\x0A\x00\x14\x14\x14\x00"s;  // greys 0, 10, 20
  const struct {
    const char* What;
    std::string File, Grey;  ///< two rows from the top
  } cases[] = {
      {"1 bit", BmpFile(3, 1, 0, palette.substr(0, 8), "\xA0\0\0\0\x40\0\0\0"s), "\0\x0A\0\x0A\0\x0A"s},
      {"4 bits", BmpFile(3, 4, 0, palette, "\x01\x20\0\0\x21\x00\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits", BmpFile(3, 8, 0, palette, "\0\1\2\0\2\1\0\0"s), "\x14\x0A\0\0\x0A\x14"s},
      {"8 bits in runs", BmpFile(3, 8, 1, palette, "\3\1\0\0\0\3\2\1\0\0\0\1"s), "\x14\x0A\0\x0A\x0A\x0A"s},
      {"runs that move over pixels", BmpFile(3, 8, 1, palette, "\0\2\1\0\1\2\0\2\0\1\1\1\0\1"s),
       "\0\0\x0A\0\x14\0"s},
      {"runs that end early", BmpFile(3, 8, 1, palette, "\1\1\0\1"s), "\0\0\0\x0A\0\0"s},
      {"a run longer than its row", BmpFile(3, 8, 1, palette, "\xFF\1\0\0\xFF\2\0\1"s),
       "\x14\x14\x14\x0A\x0A\x0A"s},
      {"4 bits in runs", BmpFile(3, 4, 2, palette, "\3\x12\0\0\0\3\x21\x00\0\1"s), "\x14\x0A\0\x0A\x14\x0A"s},
      {"16 bits", BmpFile(1, 16, 0, "", "\xFF\x7F\0\0\0\0\0\0"s), "\0\xFF"s},
      {"16 bits with masks", BmpFile(1, 16, 3, "\0\xF8\0\0\xE0\x07\0\0\x1F\0\0\0"s, "\xFF\xFF\0\0\0\0\0\0"s),
       "\0\xFF"s},
      {"old header",
       "BM" + Number(0, 8) + Number(32, 4) + Number(12, 4) +
           "\1\0\2\0\1\0\1\0\0\0\0\x0A\x0A\x0A\x80\0\0\0\0\0\0\0"s,
       "\0\x0A"s},
      {"32 bits", BmpFile(1, 32, 0, "", "\x05\x05\x05\0\x07\x07\x07\0"s), "\7\5"s},
  };
  for (const auto& c : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, ".bmp", c.File)) << c.What;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bitmap.ScanLine(0)), c.Grey.size()), c.Grey) << c.What;
  }
}

TEST_F(ImageFiles, HeadersThatMakeNoSenseAreRefused) {
  const auto patched = [](std::string file, std::size_t at, int value) {
    return file.replace(at, 1, 1, static_cast<char>(value));
  };
  const std::string bmp = PictureFile("colour.bmp"), runs = BmpFile(3, 8, 1, "1234", "\0\1"),
                    gif = PictureFile("colour.gif"), tiff = PictureFile("colour_plain.tif");
  const std::pair<const char*, std::string> cases[] = {
      {".bmp", patched(bmp, 14, 13)},  // kind of header
      {".bmp", patched(bmp, 22, 0)},   // height
      {".bmp", patched(bmp, 28, 5)},   // bits a pixel
      {".bmp", patched(bmp, 30, 1)},   // compression, of colours
      {".bmp", patched(runs, 30, 2)},  // of a palette
      {".bmp", BmpFile(1, 32, 1, "", "12345678")},
      {".bmp", std::string(runs).replace(22, 4, Number(-2, 4))},  // runs from the top down
      {".gif", gif.substr(0, kGifPicture) + ";"},                 // no picture
      {".tif", patched(tiff, tiff.find("\x00\x01\x03\x00\x01\x00\x00\x00"s) + 8, 0)},  // width
      {".jpg", PictureFile("many_scans.jpg")}};  // would be decoded for hours, were it a large one
  for (const auto& [extension, file] : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits24);
    EXPECT_THROW(LoadImageFromMemory(bitmap, extension, file), EInvalidGraphic)
        << extension << " of " << file.size() << " bytes";
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
  std::string bmp = PictureFile("colour.bmp"), gif = PictureFile("colour.gif"),
              tiff = PictureFile("colour_plain.tif"), jpeg = JpegFile("grey.png", TPixelFormat::Bits8, 50);
  bmp.replace(18, 8, Number(50'000, 4) + Number(40'000, 4));
  gif.replace(6, 4, "\xFF\xFF\xFF\xFF");
  jpeg.replace(jpeg.find("\xFF\xC0") + 5, 4, "\xFD\xE8\xFD\xE8");
  for (const std::string& tag : {"\x00\x01"s, "\x01\x01"s})  // width, length: one value of 16 bits
    tiff.replace(tiff.find(tag + "\x03\x00\x01\x00\x00\x00"s) + 8, 2, "\xFF\xFF");
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const auto& [extension, file] :
       {std::pair{".bmp", bmp}, {".gif", gif}, {".jpg", jpeg}, {".tif", tiff}}) {
    const auto load = [&, kind = extension, content = file] { LoadImageFromMemory(bitmap, kind, content); };
    EXPECT_NE(Failure<EInvalidGraphic>(load).find("too large"), std::string::npos) << extension;
  }
  bitmap.PixelLimit = 37 * 23 - 1;
  EXPECT_THROW(LoadImageFromMemory(bitmap, ".png", PictureFile("grey.png")), EInvalidGraphic);
}

TEST_F(ImageFiles, UnknownKindsAndMissingFilesAreRefused) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const char* name : {"x.grb", "x.raw", "x.txt", "x", "page.jpg"}) {
    folder_.Write(name, PictureFile("colour.bmp"));
    EXPECT_THROW(LoadImage(bitmap, folder_ / name), EInvalidGraphic) << name;
  }
  EXPECT_THROW(LoadImage(bitmap, folder_ / "missing.png"), std::system_error);
  TExtBitmap wide(TPixelFormat::Bits32);
  EXPECT_THROW(LoadImageFromMemory(wide, ".bmp", PictureFile("colour.bmp")), EInvalidGraphicOperation);
}

TEST_F(ImageFiles, JpegCarriesCommentChannelsAndQuality) {
  for (const TPixelFormat format : {TPixelFormat::Bits24, TPixelFormat::Bits8}) {
    const std::string file = JpegFile("colour.png", format, 78);
    EXPECT_NE(file.find("\xFF\xFE\x00\x0B"s + "a comment"), std::string::npos) << "comment marker";
    const std::size_t frame = file.find("\xFF\xC0");  // baseline
    ASSERT_NE(frame, std::string::npos);
    EXPECT_EQ(file[frame + 9], format == TPixelFormat::Bits8 ? '\1' : '\3');
    EXPECT_LT(JpegFile("colour.png", format, 10).size(), file.size());
    EXPECT_GT(JpegFile("colour.png", format, 100).size(), file.size());
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
    EXPECT_EQ(Failure<EInvalidGraphic>(save), c.Message) << c.Width;
  }
  EXPECT_EQ(ReadWholeFile(folder_ / "kept.jpg"), "older");
  EXPECT_EQ(folder_.Tree().size(), 1U);
}

}  // namespace
}  // namespace skyreel
