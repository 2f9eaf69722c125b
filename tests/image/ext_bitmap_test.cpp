#include "image/ext_bitmap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/failure.h"

namespace skyreel {
namespace {

using TBytes = std::vector<int>;

TBytes BytesOf(const TExtBitmap& bitmap, int count) {
  return {bitmap.ScanLine(0), bitmap.ScanLine(0) + count};
}

TEST(GammaCorrect, MapsEveryRowByTheTableForExponentsInRange) {
  const float infinity = std::numeric_limits<float>::infinity();
  const TBytes plain = {0, 1, 64, 128, 255};
  const std::pair<float, TBytes> cases[] = {{1.0F, plain},
                                            {2.0F, {0, 16, 128, 181, 255}},
                                            {0.5F, {0, 0, 16, 64, 255}},
                                            {5.0F, {0, 84, 193, 222, 255}},
                                            {0.2F, {0, 0, 0, 8, 255}},
                                            {0.0F, plain},
                                            {0.199F, plain},
                                            {5.01F, plain},
                                            {-1.0F, plain},
                                            {std::nanf(""), plain},
                                            {infinity, plain}};
  for (auto [exponent, values] : cases) {
    TExtBitmap bitmap(TPixelFormat::Bits8);
    bitmap.SetSize(5, 2);
    const std::uint8_t row[] = {0, 1, 64, 128, 255};
    for (const int y : {0, 1}) bitmap.SetRowFromGrey(y, row);
    GammaCorrect(bitmap, exponent);
    values.insert(values.end(), values.begin(), values.end());
    EXPECT_EQ(BytesOf(bitmap, 10), values) << exponent;
  }
  for (const TPixelFormat format : {TPixelFormat::Bits24, TPixelFormat::Bits32}) {
    TExtBitmap bitmap(format);
    EXPECT_EQ(test::Failure<EInvalidGraphicOperation>([&] { GammaCorrect(bitmap, 2); }),
              "Error: GammaCorrect called without 8-bit pixels.");
  }
}

TEST(ExtBitmap, RefusesSizesBeforeMemoryIsTaken) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  constexpr std::int64_t huge = std::int64_t{1} << 40;
  const std::pair<std::int64_t, std::int64_t> cases[] = {{400'000'001, 1}, {20'001, 20'000}, {-1, 5},
                                                         {5, -1},          {huge, huge},     {0, huge}};
  for (const auto& [width, height] : cases)
    EXPECT_THROW(bitmap.SetSize(width, height), EInvalidGraphic) << width << " x " << height;
  bitmap.SetSize(20'000, 20'000);
  EXPECT_EQ(bitmap.Height(), 20'000);
}

TEST(ExtBitmap, RowsAreConvertedToThePixelFormat) {
  const std::uint8_t rgb[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30}, grey[] = {1, 2, 3, 4};
  TExtBitmap eight(TPixelFormat::Bits8), colour(TPixelFormat::Bits24);
  for (TExtBitmap* bitmap : {&eight, &colour}) {
    bitmap->SetSize(4, 2);
    bitmap->SetRowFromRgb(0, rgb);
    bitmap->SetRowFromGrey(1, grey);
  }
  EXPECT_EQ(BytesOf(eight, 8), TBytes({76, 150, 29, 18, 1, 2, 3, 4}));
  EXPECT_EQ(BytesOf(colour, 24),
            TBytes({0, 0, 255, 0, 255, 0, 255, 0, 0, 30, 20, 10, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}));
}

}  // namespace
}  // namespace skyreel
