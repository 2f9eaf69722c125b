#include "transfer/jpeg_reencode.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/files.h"
#include "image/image_file.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

class JpegReencode : public testing::Test {
 protected:
  /// A picture of one grey value, saved under the name.
  std::filesystem::path Write(const std::string& name, int value) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    bitmap.SetSize(32, 16);
    for (int y = 0; y < 16; ++y) std::fill_n(bitmap.ScanLine(y), 32, static_cast<std::uint8_t>(value));
    SaveAsJpeg(bitmap, folder_ / name, 100, "original");
    return folder_ / name;
  }

  int Value(const std::filesystem::path& path) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    LoadImage(bitmap, path);
    EXPECT_EQ(bitmap.Width(), 32);
    EXPECT_EQ(bitmap.Height(), 16);
    return bitmap.ScanLine(8)[16];
  }

  test::TTempFolder folder_;
};

TEST_F(JpegReencode, WritesTheCorrectedPictureAndDeletesTheDownload) {
  struct TCase {
    float Gamma;
    int Value;
  };
  // 255 * (100 / 255) ^ gamma
  for (const TCase& c : {TCase{2.0F, 39},
                         {0.5F, 160},
                         {1.0F, 100},
                         {0.0F, 100},
                         {0.1F, 100},
                         {6.0F, 100},
                         {-2.0F, 100},
                         {std::nanf(""), 100},
                         {INFINITY, 100}}) {
    const auto download = Write("a.b.jpeg", 100);
    std::filesystem::path name;
    ConvertToJpeg(download, name, c.Gamma);
    EXPECT_EQ(name, folder_ / "a.b.jpg");
    EXPECT_NEAR(Value(name), c.Value, 1) << c.Gamma;
    EXPECT_EQ(folder_.Tree().size(), 1U) << "the download is gone";
    const std::string file = ReadWholeFile(name);
    EXPECT_NE(file.find("Skyreel - https://quenmoor.example/skyreel"), std::string::npos);
    EXPECT_EQ(file.find("original"), std::string::npos);
  }
}

TEST_F(JpegReencode, ADownloadNamedJpgEndsWithNoFile) {
  std::filesystem::path name = Write("x.jpg", 100);
  const auto download = name;
  ConvertToJpeg(name, name, 1);
  EXPECT_EQ(name, download);
  EXPECT_TRUE(folder_.Tree().empty());
}

TEST_F(JpegReencode, FailureKeepsTheDownload) {
  const auto page = folder_.Write("page.gif", "<html>");
  const auto unknown = folder_.Write("data.grb", "GRIB");
  std::filesystem::path name;
  EXPECT_THROW(ConvertToJpeg(page, name, 1), EInvalidGraphic);
  EXPECT_EQ(name, page);
  EXPECT_THROW(ConvertToJpeg(unknown, name, 1), EInvalidGraphic);
  EXPECT_THROW(ConvertToJpeg(folder_ / "missing.png", name, 1), std::system_error);
  // The target cannot be replaced: it is a folder.
  const auto download = Write("y.jpeg", 50);
  folder_.Write("y.jpg/inside", "");
  EXPECT_THROW(ConvertToJpeg(download, name, 1), EInvalidGraphic);
  EXPECT_EQ(name, download);
  EXPECT_EQ(folder_.Tree().size(), 4U);
}

}  // namespace
}  // namespace skyreel
