#include "transfer/jpeg_reencode.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/files.h"
#include "image/image_file.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

TEST(JpegReencode, WritesTheCorrectedPictureAndDeletesTheDownload) {
  const test::TTempFolder folder;
  TExtBitmap grey(TPixelFormat::Bits8), read(TPixelFormat::Bits8);
  grey.SetSize(32, 16);
  for (int y = 0; y < 16; ++y) std::fill_n(grey.ScanLine(y), 32, std::uint8_t{100});
  std::filesystem::path name;
  // 255 * (100 / 255) ^ gamma, for a gamma of use
  for (const auto& [gamma, value] : {std::pair(2.0F, 39), {0.0F, 100}, {6.0F, 100}, {std::nanf(""), 100}}) {
    SaveAsJpeg(grey, folder / "a.b.jpeg", 100, "original");
    ConvertToJpeg(folder / "a.b.jpeg", name, gamma);
    EXPECT_EQ(name, folder / "a.b.jpg");
    EXPECT_EQ(folder.Tree().size(), 1U) << "the download is gone";
    LoadImage(read, name);
    EXPECT_NEAR(read.ScanLine(8)[16], value, 1) << gamma;
    EXPECT_NE(ReadWholeFile(name).find("Skyreel - https://quenmoor.example/skyreel"), std::string::npos);
  }
  // kept: a download of the new name is deleted, too.
  ConvertToJpeg(name, name, 1);
  EXPECT_EQ(folder.Tree().size(), 0U);
}

}  // namespace
}  // namespace skyreel
