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
  std::filesystem::path Write(const std::string& name) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    bitmap.SetSize(32, 16);
    for (int y = 0; y < 16; ++y) std::fill_n(bitmap.ScanLine(y), 32, std::uint8_t{100});
    SaveAsJpeg(bitmap, folder_ / name, 100, "original");
    return folder_ / name;
  }

  test::TTempFolder folder_;
};

TEST_F(JpegReencode, WritesTheCorrectedPictureAndDeletesTheDownload) {
  // 255 * (100 / 255) ^ gamma, for a gamma of use
  const std::pair<float, int> cases[] = {{2.0F, 39}, {0.0F, 100}, {6.0F, 100}, {std::nanf(""), 100}};
  for (const auto& [gamma, value] : cases) {
    std::filesystem::path name;
    ConvertToJpeg(Write("a.b.jpeg"), name, gamma);
    EXPECT_EQ(name, folder_ / "a.b.jpg");
    EXPECT_EQ(folder_.Tree().size(), 1U) << "the download is gone";
    TExtBitmap bitmap(TPixelFormat::Bits8);
    LoadImage(bitmap, name);
    EXPECT_NEAR(bitmap.ScanLine(8)[16], value, 1) << gamma;
    const std::string file = ReadWholeFile(name);
    EXPECT_NE(file.find("Skyreel - https://quenmoor.example/skyreel"), std::string::npos);
    EXPECT_EQ(file.find("original"), std::string::npos);
  }
}

TEST_F(JpegReencode, FailureKeepsTheDownloadButOneNamedJpgEndsWithNoFile) {
  folder_.Write("page.gif", "<html>");
  std::filesystem::path name;
  EXPECT_THROW(ConvertToJpeg(folder_ / "page.gif", name, 1), EInvalidGraphic);
  EXPECT_EQ(name, folder_ / "page.gif");
  name = Write("x.jpg");
  ConvertToJpeg(name, name, 1);
  EXPECT_EQ(name, folder_ / "x.jpg");
  EXPECT_EQ(folder_.Tree().size(), 1U);
}

}  // namespace
}  // namespace skyreel
