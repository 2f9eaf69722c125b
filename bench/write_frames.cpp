// write_frames FOLDER COUNT SIDE JOURNAL: writes the pictures of a synthetic animation, 0000.jpg, 0001.jpg
// and so on: clouds that drift over a disc, with the noise of a sensor. Notes them in the journal as files of
// the source "clouds", one each 10 minutes.

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "image/ext_bitmap.h"
#include "image/image_file.h"
#include "journal/journal.h"

namespace {

constexpr int kQuality = 88;
constexpr int kTile = 512;  ///< the clouds repeat after so many pixels

/// Smooth random values, -1 to 1, with details of four sizes.
std::vector<float> Clouds() {
  std::vector<float> clouds(kTile * kTile);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> value(-1, 1);
  for (int cells = 4; cells <= 128; cells *= 2) {
    std::vector<float> grid(static_cast<std::size_t>(cells * cells));
    for (float& each : grid) each = value(random);
    const auto at = [&](int x, int y) {
      return grid[static_cast<std::size_t>(y % cells * cells + x % cells)];
    };
    for (int y = 0; y < kTile; ++y) {
      for (int x = 0; x < kTile; ++x) {
        const float gx = static_cast<float>(x * cells) / kTile, gy = static_cast<float>(y * cells) / kTile;
        const int left = static_cast<int>(gx), top = static_cast<int>(gy);
        const float fx = gx - static_cast<float>(left), fy = gy - static_cast<float>(top);
        const float above = std::lerp(at(left, top), at(left + 1, top), fx);
        const float below = std::lerp(at(left, top + 1), at(left + 1, top + 1), fx);
        clouds[static_cast<std::size_t>(y * kTile + x)] +=
            2 * std::lerp(above, below, fy) / std::sqrt(static_cast<float>(cells));
      }
    }
  }
  return clouds;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 5) {
    std::fprintf(stderr, "usage: write_frames FOLDER COUNT SIDE JOURNAL\n");
    return 2;
  }
  using namespace skyreel;
  const int count = std::atoi(argv[2]), side = std::atoi(argv[3]);
  const std::vector<float> clouds = Clouds();
  std::minstd_rand noise(2);
  const TSystemClock clock({});
  TJournal journal(argv[4], clock);
  journal.BeginRun("write_frames");
  TExtBitmap picture(TPixelFormat::Bits24);
  picture.SetSize(side, side);
  for (int frame = 0; frame < count; ++frame) {
    for (int y = 0; y < side; ++y) {
      std::uint8_t* pixel = picture.ScanLine(y);
      for (int x = 0; x < side; ++x, pixel += 3) {
        const double away = std::hypot(x - side / 2, y - side / 2) / (side / 2);
        const auto drift = static_cast<std::size_t>((y + frame) % kTile * kTile + (x + 3 * frame) % kTile);
        const double light = away > 0.98 ? 0 : 1 - 0.5 * away;
        const double cloud = std::max(0.0F, clouds[drift]);
        const std::array<double, 3> ground = {110, 70, 40};
        for (std::size_t c = 0; c < 3; ++c) {
          const double value =
              light * (ground.at(c) + cloud * (255 - ground.at(c))) + static_cast<double>(noise() % 5);
          pixel[c] = static_cast<std::uint8_t>(std::min(255.0, value));
        }
      }
    }
    const auto path = std::filesystem::absolute(argv[1]) / (Digits(frame, 4) + ".jpg");
    SaveAsJpeg(picture, path, kQuality, "");
    journal.Add({.Source = "clouds",
                 .SlotTime = TDateTime::FromDate(2026, 11, 20) + frame * std::chrono::minutes(10),
                 .Path = path,
                 .Outcome = TJournalOutcome::New});
  }
  journal.EndRun(0);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
