#include "image/ext_bitmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace skyreel {
namespace {

/// A row of all 256 values.
TExtBitmap Ramp() {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  bitmap.SetSize(256, 2);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 256; ++x) bitmap.ScanLine(y)[x] = static_cast<std::uint8_t>(x);
  }
  return bitmap;
}

TEST(GammaCorrect, MapsEveryRowByTheTable) {
  struct TCase {
    float Exponent;
    std::array<int, 5> Values;  // of 0, 1, 64, 128, 255
  };
  const TCase cases[] = {
      {1.0F, {0, 1, 64, 128, 255}},   {2.0F, {0, 16, 128, 181, 255}}, {0.5F, {0, 0, 16, 64, 255}},
      {5.0F, {0, 84, 193, 222, 255}}, {0.2F, {0, 0, 0, 8, 255}},
  };
  for (const TCase& c : cases) {
    TExtBitmap bitmap = Ramp();
    GammaCorrect(bitmap, c.Exponent);
    for (int y = 0; y < 2; ++y) {
      const std::uint8_t* const row = bitmap.ScanLine(y);
      EXPECT_EQ((std::array<int, 5>{row[0], row[1], row[64], row[128], row[255]}), c.Values) << c.Exponent;
    }
  }
}

TEST(GammaCorrect, LeavesBitmapsAloneForExponentsOutOfRange) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float exponent : {0.0F, 0.1666F, 0.199F, 5.01F, 10.0F, -1.0F, infinity, std::nanf("")}) {
    TExtBitmap bitmap = Ramp();
    GammaCorrect(bitmap, exponent);
    EXPECT_TRUE(std::equal(bitmap.ScanLine(0), bitmap.ScanLine(0) + 512, Ramp().ScanLine(0))) << exponent;
  }
}

TEST(GammaCorrect, WantsEightBits) {
  for (const TPixelFormat format : {TPixelFormat::Bits24, TPixelFormat::Bits32}) {
    TExtBitmap bitmap(format);
    try {
      GammaCorrect(bitmap, 2);
      ADD_FAILURE();
    } catch (const EInvalidGraphicOperation& error) {
      EXPECT_STREQ(error.what(), "Error: GammaCorrect called without 8-bit pixels.");
    }
  }
  TExtBitmap empty(TPixelFormat::Bits8);
  GammaCorrect(empty, 2);
  EXPECT_TRUE(empty.IsEmpty());
}

TEST(ExtBitmap, RefusesSizesBeforeMemoryIsTaken) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  for (const auto& [width, height] : {std::pair<std::int64_t, std::int64_t>{400'000'001, 1},
                                      {20'001, 20'000},
                                      {-1, 5},
                                      {5, -1},
                                      {std::int64_t{1} << 40, std::int64_t{1} << 40},
                                      {0, std::int64_t{1} << 40}}) {
    EXPECT_THROW(bitmap.SetSize(width, height), EInvalidGraphic) << width << " x " << height;
  }
  bitmap.SetSize(20'000, 20'000);
  EXPECT_EQ(bitmap.Height(), 20'000);
}

TEST(ExtBitmap, RowsAreConvertedToThePixelFormat) {
  const std::uint8_t rgb[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30};
  const std::uint8_t grey[] = {1, 2, 3, 4};
  TExtBitmap eight(TPixelFormat::Bits8);
  eight.SetSize(4, 2);
  eight.SetRowFromRgb(0, rgb);
  eight.SetRowFromGrey(1, grey);
  EXPECT_TRUE(std::equal(eight.ScanLine(0), eight.ScanLine(0) + 8,
                         std::to_array<std::uint8_t>({76, 150, 29, 18, 1, 2, 3, 4}).begin()));
  TExtBitmap colour(TPixelFormat::Bits24);
  colour.SetSize(4, 2);
  colour.SetRowFromRgb(0, rgb);
  colour.SetRowFromGrey(1, grey);
  EXPECT_TRUE(std::equal(colour.ScanLine(0), colour.ScanLine(0) + 24,
                         std::to_array<std::uint8_t>({0, 0, 255, 0, 255, 0, 255, 0, 0, 30, 20, 10,  //
                                                      1, 1, 1,   2, 2,   2, 3,   3, 3, 4,  4,  4})
                             .begin()));
}

}  // namespace
}  // namespace skyreel
