#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/files.h"
#include "image/image_file.h"
#include "support/helpers.h"
#include "view/thumbnail_file.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using TPath = std::filesystem::path;

/// Its README says what the pictures are: 37 x 23 pixels.
const TPath kPictures = SKYREEL_TEST_PICTURES;

std::string Text(const TPicture& picture) {
  return picture.Kind + " " + std::to_string(picture.FullSize.width()) + "x" +
         std::to_string(picture.FullSize.height()) + " as " + std::to_string(picture.Image.width()) + "x" +
         std::to_string(picture.Image.height()) + " " + picture.Problem;
}

/// A copy of the picture in the folder, packed by the command.
TPath Packed(const test::TTempFolder& folder, const char* name, const char* command) {
  const TPath copy = folder.Write(name, ReadWholeFile(kPictures / name));
  EXPECT_EQ(std::system((command + " "s + copy.string()).c_str()), 0);
  return copy;
}

TEST(LoadPicture, AveragesEveryKindDownWhateverItsNameIs) {
  const test::TTempFolder folder;
  Packed(folder, "colour_plain.tif", "compress -f");
  Packed(folder, "grey_alpha.png", "bzip2 -k");
  const auto file = [&](const char* name, const char* as) {
    return folder.Write(as, ReadWholeFile(kPictures / name));
  };
  // The mean of the pixels that the first one of the image stands for: 4 x 4, from 0, 0.
  const QColor colour(qRgb(9, 14, 197)), reduced(qRgb(0, 0, 153)), grey(qRgb(12, 12, 12));
  const std::tuple<TPath, const char*, QColor> cases[] = {
      {kPictures / "colour.png", "PNG", colour},
      {kPictures / "colour_interlaced.png", "PNG", colour},
      {kPictures / "colour.bmp", "BMP", colour},
      {kPictures / "colour_top_down.bmp", "BMP", colour},
      {kPictures / "colour.gif", "GIF", reduced},
      {kPictures / "colour_interlaced.gif", "GIF", reduced},
      {kPictures / "colour_deflate.tif", "TIFF", colour},
      {kPictures / "inks.jpg", "JPEG", colour},
      {kPictures / "grey.png", "PNG", grey},
      {file("grey_plain.tif", "wrong.jpg"), "TIFF", grey},
      {folder / "colour_plain.tif.Z", "TIFF in .Z", colour},
      {folder / "grey_alpha.png.bz2", "PNG in bzip2", QColor(qRgb(133, 133, 133))},
      // Black and white squares average to grey.
      {kPictures / "fax.tif", "TIFF", QColor(qRgb(128, 128, 128))},
      // 3x + 5y of 218 at most.
      {kPictures / "samples_16.tif", "TIFF", QColor(qRgb(14, 14, 14))},
      {kPictures / "samples_float.tif", "TIFF", QColor(qRgb(14, 14, 14))}};
  for (const auto& [path, kind, want] : cases) {
    const TPicture picture = LoadPicture(path, {.Room = {9, 5}});
    ASSERT_EQ(Text(picture), kind + " 37x23 as 8x5 "s) << path;
    const TPicture exact = LoadPicture(path, {.Room = {9, 5}, .Region = {0, 0, 36, 20}});
    const QColor pixel(exact.Image.pixel(0, 0));
    const int tolerance = kind == "JPEG"s ? 6 : 1;
    EXPECT_NEAR(pixel.red(), want.red(), tolerance) << path;
    EXPECT_NEAR(pixel.green(), want.green(), tolerance) << path;
    EXPECT_NEAR(pixel.blue(), want.blue(), tolerance) << path;
  }
}

TEST(LoadPicture, GivesARegionInFullResolution) {
  for (const char* name :
       {"colour.png", "colour.bmp", "colour_interlaced.gif", "colour_lzw.tif", "inks.jpg"}) {
    const TPicture all = LoadPicture(kPictures / name, {.Room = {99, 99}});
    const TPicture part = LoadPicture(kPictures / name, {.Room = {99, 99}, .Region = {10, 8, 20, 9}});
    ASSERT_EQ(part.Region, QRect(10, 8, 20, 9)) << name;
    EXPECT_EQ(part.Image, all.Image.copy(part.Region)) << name;
  }
}

TEST(LoadPicture, SaysWhatIsWrongAndGivesWhatCouldBeRead) {
  const test::TTempFolder folder;
  const auto cut = [&](const char* name) {
    const std::string file = ReadWholeFile(kPictures / name);
    return folder.Write(name, file.substr(0, file.size() - 30));
  };
  const auto changed = [&](const char* name, std::size_t at, const std::string& bytes) {
    return folder.Write(testing::PrintToString(bytes),
                        ReadWholeFile(kPictures / name).replace(at, bytes.size(), bytes));
  };
  const TPath packed = Packed(folder, "alpha.png", "bzip2 -k").string() + ".bz2";
  const std::tuple<TPath, bool, const char*> cases[] = {
      // the file, whether some of it is shown, the sentence
      {cut("colour.gif"), true, "GIF: "},
      {cut("colour_interlaced.gif"), true, "GIF: "},
      {cut("colour.bmp"), true, "cut off"},
      {cut("inks.jpg"), true, "Premature end"},
      {cut("colour.png"), false, "cut off"},
      {cut("colour_lzw.tif"), false, "TIFF: "},
      {folder.Write("cut.bz2", ReadWholeFile(packed).substr(0, 60)), false, "cut off"},
      {folder.Write("bad.bz2", ReadWholeFile(packed).replace(20, 4, "xxxx")), false, "damaged"},
      {changed("colour.bmp", 18, "\x50\xC3\0\0\x40\x9C\0\0"s), false, "50000 x 40000 pixels is too large"},
      {changed("colour.bmp", 18, "\x00\x00\x00\x40\x01\0\0\0"s), false, "too large"},
      {changed("colour.bmp", 22, "\0"s), false, "empty"},
      {kPictures / "many_scans.jpg", false, "JPEG: "},
      {kPictures / "README.md", false, "not a picture"},
      {folder.Write("empty.jpg", ""), false, "empty"},
      {folder / "none.jpg", false, "No such file"},
      {folder.Path(), false, "directory"}};
  for (const auto& [path, shown, sentence] : cases) {
    const TPicture picture = LoadPicture(path, {.Room = {99, 99}});
    EXPECT_EQ(!picture.Image.isNull(), shown) << path;
    EXPECT_THAT(picture.Problem, HasSubstr(sentence)) << path;
  }
}

/// How far loading the picture raised the peak of the memory, in KiB, and how long it took.
std::int64_t PeakOf(const TPath& path, const TPictureWish& wish) {
  int answer[2];
  if (::pipe(answer) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    rusage before{}, after{};
    ::getrusage(RUSAGE_SELF, &before);
    const TPicture picture = LoadPicture(path, wish);
    ::getrusage(RUSAGE_SELF, &after);
    const std::int64_t used = picture.Image.isNull() ? -1 : after.ru_maxrss - before.ru_maxrss;
    ::_exit(::write(answer[1], &used, sizeof(used)) == sizeof(used) ? 0 : 1);
  }
  std::int64_t used = -1;
  EXPECT_EQ(::read(answer[0], &used, sizeof(used)), static_cast<ssize_t>(sizeof(used)));
  ::waitpid(child, nullptr, 0);
  ::close(answer[0]);
  ::close(answer[1]);
  return used;
}

TEST(LoadPicture, TakesLittleMemoryForALargeJpegAndAsksBeforeItTakesMuch) {
  constexpr std::int64_t kSide = 10'848;
  const test::TTempFolder folder;
  const TPath file = folder / "large.jpg";
  {
    TExtBitmap bitmap(TPixelFormat::Bits24);
    bitmap.SetSize(kSide, kSide);
    std::fill_n(bitmap.ScanLine(0), kSide * kSide * 3, std::uint8_t{90});
    SaveAsJpeg(bitmap, file, 85, "");
  }
  const std::int64_t used = PeakOf(file, {.Room = {1356, 1356}});
  EXPECT_GE(used, 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(used, 60'000);
#endif
  // Marked as progressive: its rows are complete only after the last scan.
  std::string progressive = ReadWholeFile(file);
  progressive[progressive.find("\xFF\xC0\0\x11"s) + 1] = '\xC2';
  const TPicture picture = LoadPicture(folder.Write("progressive.jpg", progressive), {.Room = {99, 99}});
  EXPECT_EQ(picture.NeededBytes, 1356 * 1356 * 128 * 3 / 2);
  EXPECT_THAT(picture.Problem, HasSubstr("takes 353 MB of memory"));
  EXPECT_EQ(picture.FullSize, QSize(kSide, kSide));
}

TEST(Thumbnails, AreMadeOnceAndAgainWhenTimeOrSizeOfThePictureDiffer) {
  const test::TTempFolder folder;
  const TThumbnailFiles files(folder / "cache/thumbnails");
  const TPath picture = folder.Write("a b+é.png", ReadWholeFile(kPictures / "colour.png"));
  const TDateTime slot = TDateTime::FromDate(2026, 11, 26, 12);
  SetFileDateTime(picture, slot);
  const auto get = [&] { return files.Get(picture, TThumbnailSize::Normal); };
  EXPECT_EQ(get().Image.size(), QSize(37, 23));
  const auto stored = folder.Tree("cache/thumbnails/normal");
  ASSERT_EQ(stored.size(), 1U);
  const TPath thumbnail = folder / "cache/thumbnails/normal" / stored.begin()->first;
  struct stat info {};
  ASSERT_EQ(::stat(thumbnail.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0600U);
  ASSERT_EQ(::stat((folder / "cache").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777U, 0700U);
  const QImage png(QString::fromStdString(thumbnail.string()));
  // As GLib writes it: the blank escaped, the plus not.
  EXPECT_TRUE(png.text("Thumb::URI").startsWith("file:///"));
  EXPECT_TRUE(png.text("Thumb::URI").endsWith("/a%20b+%C3%A9.png"));
  EXPECT_EQ(png.text("Thumb::MTime"), "1795694400");

  // The same time and size: the stored one counts, whatever is in the file.
  folder.Write("a b+é.png", std::string(ReadWholeFile(picture).size(), 'x'));
  SetFileDateTime(picture, slot);
  EXPECT_EQ(get().Image.size(), QSize(37, 23));
  folder.Write("a b+é.png", ReadWholeFile(kPictures / "colour_at_5_3.gif"));
  SetFileDateTime(picture, slot);
  EXPECT_EQ(get().Image.size(), QSize(42, 26));
  SetFileDateTime(picture, slot + std::chrono::seconds(1));
  WriteFileWhole(thumbnail, "damaged");
  EXPECT_EQ(get().Image.size(), QSize(42, 26));

  folder.Write("a b+é.png", "no picture");
  EXPECT_THAT(get().Problem, HasSubstr("not a picture"));
  EXPECT_EQ(folder.Tree("cache/thumbnails/fail/skyreel-1.0.0").size(), 1U);
  EXPECT_THAT(get().Problem, HasSubstr("not a picture"));
}

}  // namespace
}  // namespace skyreel
