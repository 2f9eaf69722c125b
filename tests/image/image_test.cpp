#include "image/image_file.h"

#include <gmock/gmock.h>

#include <array>
#include <functional>

#include "base/files.h"
#include "image/tile_grid.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using TPath = std::filesystem::path;
using TRgb = std::array<int, 3>;
using TPixels = std::function<TRgb(int x, int y)>;

/// Where in colour.gif the picture begins, behind header and colours.
constexpr std::size_t kGifPicture = 781;

/// Its README says what the pictures are.
const TPath kPictures = SKYREEL_TEST_PICTURES;

const TPixels kColour = [](int x, int y) { return TRgb{x * 5 + y, y * 9, 200 - x * 3 + y}; };
const TPixels kGrey = [](int x, int y) { return TRgb{x * 3 + y * 5, x * 3 + y * 5, x * 3 + y * 5}; };
const TPixels kReduced = [](int x, int y) {
  const auto [red, green, blue] = kColour(x, y);
  return TRgb{red / 51 * 51, green / 51 * 51, blue / 51 * 51};
};

/// The file is the picture, in both pixel formats; each channel may differ by `tolerance`.
void ExpectPicture(const TPath& file, const TPixels& pixels, int tolerance = 0, int width = 37,
                   int height = 23) {
  for (const int channels : {1, 3}) {
    TExtBitmap bitmap(channels == 1 ? TPixelFormat::Bits8 : TPixelFormat::Bits24);
    ASSERT_NO_THROW(LoadImage(bitmap, file)) << file;
    ASSERT_TRUE(bitmap.Width() == width && bitmap.Height() == height) << file;
    for (int at = 0; at < width * height * channels; ++at) {
      const auto [red, green, blue] = pixels(at / channels % width, at / channels / width);
      const int want[] = {blue, green, red, (299 * red + 587 * green + 114 * blue + 500) / 1000};
      ASSERT_NEAR(bitmap.ScanLine(0)[at], want[channels == 1 ? 3 : at % 3], tolerance) << file << " " << at;
    }
  }
}

TEST(ImageFiles, EveryKindLoadsIntoBothPixelFormats) {
  const auto on_white = [](bool shown, const TRgb& pixel) { return shown ? pixel : TRgb{255, 255, 255}; };
  const auto alpha = [&](int x, int y) { return on_white((x + y) % 2 == 0, kColour(x, y)); };
  const auto grey_alpha = [&](int x, int y) { return on_white((x + y) % 2 == 0, kGrey(x, y)); };
  const auto at_5_3 = [&](int x, int y) { return on_white(x >= 5 && y >= 3, kReduced(x - 5, y - 3)); };
  const std::pair<TPixels, std::vector<TPath>> cases[] = {
      {kColour, {"colour.png", "colour_interlaced.png", "colour.bmp", "colour_top_down.bmp"}},
      {kColour, {"colour_plain.tif", "colour_lzw.tif", "colour_packbits.tif", "colour_deflate.tif"}},
      {kGrey, {"grey.png", "grey16_interlaced.png", "grey_plain.tif"}},
      {kReduced, {"colour.gif", "colour_interlaced.gif"}},
      {alpha, {"alpha.png"}},
      {grey_alpha, {"grey_alpha.png"}}};
  for (const auto& [pixels, names] : cases)
    for (const TPath& name : names) ExpectPicture(kPictures / name, pixels);
  for (const char* name : {"inks.jpg", "inks_adobe.jpg"}) ExpectPicture(kPictures / name, kColour, 6);
  // Real ones hold extensions in front of the picture.
  const test::TTempFolder folder;
  std::string extended = ReadWholeFile(kPictures / "colour_at_5_3.gif");
  extended.insert(kGifPicture, "!\xFE\1c\0!\xF9\4\0\0\0\0\0"s);
  ExpectPicture(folder.Write("x.Gif", extended), at_5_3, 0, 42, 26);
}

/// Two rows, as they stand in the file; `palette` may also be the masks.
std::string Bmp(std::size_t width, char bits, std::size_t compression, const std::string& palette,
                const std::string& pixels) {
  const auto number = [](std::size_t value) { return std::string{static_cast<char>(value), 0, 0, 0}; };
  return "BM" + std::string(8, 0) + number(54 + palette.size()) + number(40) + number(width) + number(2) +
         std::string{1, 0, bits, 0} + number(compression) + std::string(12, 0) +
         number(bits <= 8 ? palette.size() / 4 : 0) + number(0) + palette + pixels;
}

TEST(ImageFiles, BitmapsOfEveryDepthLoad) {
  const std::string palette = "\0\0\0\0\0\0\3\0\x12\0\0\0"s;  // black, a red of luminance 1, a blue of 2
  const std::pair<std::string, std::string> cases[] = {
      // the file, the two rows from the top
      {Bmp(3, 1, 0, palette.substr(0, 8), "\xA0\0\0\0\x40\0\0\0"s), "\0\1\0\1\0\1"s},
      {Bmp(3, 8, 0, palette, "\0\1\2\0\2\1\0\0"s), "\2\1\0\0\1\2"s},
      {Bmp(4, 8, 1, palette, "\4\1\0\0\0\3\2\1\0\0\1\1\0\1"s), "\2\1\0\1\1\1\1\1"s},
      // Runs that move over pixels, that end early, and that are longer than the row.
      {Bmp(3, 8, 1, palette, "\0\2\1\0\1\2\0\2\0\1\1\1\0\1"s), "\0\0\1\0\2\0"s},
      {Bmp(3, 8, 1, palette, "\1\1\0\1"s), "\0\0\0\1\0\0"s},
      {Bmp(3, 8, 1, palette, "\xFF\1\0\0\xFF\2\0\1"s), "\2\2\2\1\1\1"s},
      {Bmp(6, 4, 2, palette, "\0\5\x21\x02\x10\0\1\x10\0\0\6\x12\0\1"s), "\1\2\1\2\1\2\2\1\0\2\1\1"s},
      {Bmp(1, 16, 0, "", "\xFF\x7F\0\0\0\0\0\0"s), "\0\xFF"s},
      {Bmp(1, 16, 3, "\0\xF8\0\0\xE0\x07\0\0\x1F\0\0\0"s, "\xE0\x07\0\0\0\0\0\0"s), "\0\x96"s},
      {Bmp(1, 32, 0, "", "\x05\x05\x05\0\x07\x07\x07\0"s), "\7\5"s},
      // The old header.
      {"BM\0\0\0\0\0\0\0\0\x20\0\0\0\x0C\0\0\0\1\0\2\0\1\0\1\0\0\0\0\1\1\1\x80\0\0\0\0\0\0\0"s, "\0\1"s}};
  for (const auto& [file, grey] : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    ASSERT_NO_THROW(LoadImageFromMemory(bitmap, ".bmp", file)) << "row " << &file - &cases[0].first;
    const std::string loaded(bitmap.ScanLine(0), bitmap.ScanLine(0) + grey.size());
    EXPECT_EQ(loaded, grey) << testing::PrintToString(file);
  }
}

/// The message with which the file is refused; "" when it loads.
std::string Refusal(const TPath& name, const std::string& file) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  const auto load = [&] { LoadImageFromMemory(bitmap, name.extension().string(), file); };
  const std::string message = test::Failure<EInvalidGraphic>(load);
  EXPECT_EQ(bitmap.IsEmpty(), !message.empty());
  return message;
}

TEST(ImageFiles, UnknownKindsAndHeadersThatMakeNoSenseOrAreTooLargeAreRefused) {
  const std::tuple<TPath, std::size_t, std::string, const char*> cases[] = {
      {"colour.bmp", 0, "X", "signature"},
      {"colour.bmp", 14, "\x0D", "kind of header"},
      {"colour.bmp", 18, "\x50\xC3\0\0\x40\x9C\0\0"s, "too large"},
      {"colour.bmp", 18, "\xFF\xFF\xFF\xFF", "Impossible"},
      {"colour.bmp", 22, "\0"s, "empty"},
      {"colour.bmp", 28, "\5", "bits per pixel"},
      // The bits per pixel, and the compression of another number of bits.
      {"colour.bmp", 28, "\x08\0\2"s, "unknown compression"},
      {"colour_top_down.bmp", 28, "\x08\0\1"s, "bottom to top"},
      {"colour.gif", kGifPicture, ";", "no picture"},
      // A large picture of so many scans would take hours.
      {"many_scans.jpg", 0, "", "JPEG"},
      {"README.md", 0, "", "Unknown picture type"}};
  for (const auto& [name, at, bytes, message] : cases) {
    const std::string file = ReadWholeFile(kPictures / name).replace(at, bytes.size(), bytes);
    EXPECT_THAT(Refusal(name, file), HasSubstr(message)) << name << " " << at;
  }
}

TEST(ImageFiles, ACutFileIsRefusedWhereverItIsCut) {
  for (const TPath name : {"colour.png", "colour.gif", "colour_lzw.tif", "colour.bmp", "inks.jpg"}) {
    const std::string file = ReadWholeFile(kPictures / name);
    // Of a GIF the end mark may be missing, and of a bitmap the padding of the last row.
    for (std::size_t cut = 3; cut <= file.size(); cut += 1 + cut / 16)
      EXPECT_NE(Refusal(name, file.substr(0, file.size() - cut)), "") << name << " cut by " << cut;
  }
}

TEST(ImageFiles, JpegsAreSavedBaselineWithTheirChannelsOrNotAtAll) {
  const test::TTempFolder folder;
  const auto save = [&](TExtBitmap& bitmap, const char* name) {
    return test::Failure<EInvalidGraphic>([&] { SaveAsJpeg(bitmap, folder / name, 100, "comment"); });
  };
  TExtBitmap colour(TPixelFormat::Bits24), grey(TPixelFormat::Bits8), wide(TPixelFormat::Bits32);
  LoadImage(colour, kPictures / "colour.png");
  LoadImage(grey, kPictures / "grey.png");
  EXPECT_THROW(LoadImage(wide, kPictures / "grey.png"), EInvalidGraphicOperation);
  EXPECT_EQ(save(colour, "colour.jpeg") + save(grey, "grey.jpg"), "");
  EXPECT_THAT(ReadWholeFile(folder / "colour.jpeg"), HasSubstr("\xFF\xC0\0\x11"s));
  EXPECT_THAT(ReadWholeFile(folder / "grey.jpg"), HasSubstr("\xFF\xC0\0\x0B"s));
  grey.SetSize(70'000, 1);
  EXPECT_EQ(save(grey, "grey.jpg"), "Error writing JPEG to file");
  EXPECT_EQ(save(wide, "grey.jpg"), "Cannot save bitmap as JPEG with specified PixelFormat");
  ExpectPicture(folder / "colour.jpeg", kColour, 6);
  ExpectPicture(folder / "grey.jpg", kGrey, 1);
}

TEST(ImageFiles, PicturesAreSavedInTheFormatOfTheirExtension) {
  const test::TTempFolder folder;
  TExtBitmap colour(TPixelFormat::Bits24), grey(TPixelFormat::Bits8), wide(TPixelFormat::Bits32);
  LoadImage(colour, kPictures / "colour.png");
  LoadImage(grey, kPictures / "grey.png");
  SaveImage(colour, folder / "colour.PNG");
  SaveImage(grey, folder / "grey.png");
  SaveImage(colour, folder / "colour.jpeg");
  ExpectPicture(folder / "colour.PNG", kColour);
  ExpectPicture(folder / "grey.png", kGrey);
  ExpectPicture(folder / "colour.jpeg", kColour, 12);
  const TExtBitmap empty(TPixelFormat::Bits24);
  const std::tuple<const TExtBitmap&, const char*, const char*> refused[] = {
      {colour, "x.gif", "Cannot save a picture as \".gif\""},
      {wide, "x.png", "PixelFormat"},
      {empty, "x.png", "PNG: Invalid IHDR data"},
      {empty, "x.jpg", "JPEG: Empty"},
      {colour, "none/x.png", "No such file"}};
  for (const auto& [bitmap, name, message] : refused)
    EXPECT_THAT(test::Failure([&, &bitmap = bitmap, &name = name] { SaveImage(bitmap, folder / name); }),
                HasSubstr(message));
}

TEST(TileGrid, JoinsEqualTilesInAnyOrder) {
  const std::string colour = ReadWholeFile(kPictures / "colour.png"),
                    grey = ReadWholeFile(kPictures / "grey.png");
  const test::TTempFolder folder;
  TTileGrid grid(2, 2);
  for (const auto& [column, row] : {std::pair(1, 1), {0, 1}, {1, 0}}) grid.Put(column, row, ".png", colour);
  EXPECT_EQ(test::Failure<EInvalidGraphic>([&] { grid.Picture(); }), "A tile is missing");
  EXPECT_THAT(test::Failure<EInvalidGraphic>(
                  [&] { grid.Put(0, 0, ".gif", ReadWholeFile(kPictures / "colour_at_5_3.gif")); }),
              HasSubstr("does not fit"));
  grid.Put(0, 0, ".png", grey);
  SaveImage(grid.Picture(), folder / "all.png");
  const auto pixels = [](int x, int y) { return x < 37 && y < 23 ? kGrey(x, y) : kColour(x % 37, y % 23); };
  ExpectPicture(folder / "all.png", pixels, 0, 74, 46);

  TTileGrid large(1000, 1000);
  EXPECT_THAT(test::Failure<EInvalidGraphic>([&] { large.Put(0, 0, ".png", colour); }),
              HasSubstr("too large"));
}

TEST(GammaCorrect, MapsEveryPixelForExponentsFromAFifthToFive) {
  const std::vector<int> plain = {64, 0, 1, 128, 255};
  const std::pair<float, std::vector<int>> cases[] = {
      {5.0F, {193, 0, 84, 222, 255}}, {0.2F, {0, 0, 0, 8, 255}}, {0.199F, plain}, {5.01F, plain}};
  for (const auto& [exponent, mapped] : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    bitmap.SetSize(1, 5);
    std::copy_n(plain.begin(), 5, bitmap.ScanLine(0));
    GammaCorrect(bitmap, exponent);
    EXPECT_EQ(std::vector<int>(bitmap.ScanLine(0), bitmap.ScanLine(5)), mapped) << exponent;
  }
  TExtBitmap colour(TPixelFormat::Bits24);
  EXPECT_EQ(test::Failure<EInvalidGraphicOperation>([&] { GammaCorrect(colour, 2); }),
            "Error: GammaCorrect called without 8-bit pixels.");
}

}  // namespace
}  // namespace skyreel
