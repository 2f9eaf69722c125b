// Driven by pictures.sh.
//   picture_bench large FILE             writes a JPEG of 10848 x 10848 pixels that looks like a full disc
//   picture_bench scale FILE SIDE        loads the picture for a square of SIDE pixels
//   picture_bench thumbnails CACHE FILE...  makes the thumbnails of the files, on one thread
// The last two print the milliseconds and the peak of the memory in KiB.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "image/image_file.h"
#include "view/thumbnail_file.h"

namespace {

using namespace skyreel;

/// Clouds with sensor noise on a disc in black space.
void WriteLarge(const char* file) {
  constexpr int kSide = 10848;
  TExtBitmap bitmap(TPixelFormat::Bits24);
  bitmap.SetSize(kSide, kSide);
  unsigned noise = 1;
  for (int y = 0; y < kSide; ++y) {
    std::uint8_t* to = bitmap.ScanLine(y);
    for (int x = 0; x < kSide; ++x, to += 3) {
      noise = noise * 1664525 + 1013904223;
      const double across = 2.0 * x / kSide - 1, down = 2.0 * y / kSide - 1;
      const bool disc = across * across + down * down < 0.98;
      const double cloud = 90 + 50 * std::sin(across * 23 + 4 * std::sin(down * 9)) +
                           40 * std::sin(down * 31 + 3 * std::sin(across * 13));
      const double value = disc ? cloud + static_cast<double>(noise >> 29) : 0;
      for (int i = 0; i < 3; ++i)
        to[i] = static_cast<std::uint8_t>(std::clamp(value + (disc ? 12.0 * (1 - i) : 0), 0.0, 255.0));
    }
  }
  SaveAsJpeg(bitmap, file, 85, "");
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string what = argc > 2 ? argv[1] : "";
  const auto begin = std::chrono::steady_clock::now();
  if (what == "large") {
    WriteLarge(argv[2]);
    return 0;
  }
  if (what == "scale" && argc == 4) {
    const int side = std::atoi(argv[3]);
    const TPicture picture = LoadPicture(argv[2], {.Room = {side, side}});
    if (!picture.Problem.empty()) std::fprintf(stderr, "%s: %s\n", argv[2], picture.Problem.c_str());
    std::fprintf(stderr, "%s, %d x %d of %d x %d\n", picture.Kind.c_str(), picture.Image.width(),
                 picture.Image.height(), picture.FullSize.width(), picture.FullSize.height());
  } else if (what == "thumbnails" && argc > 3) {
    const TThumbnailFiles files(argv[2]);
    for (int i = 3; i < argc; ++i) {
      const TThumbnail thumbnail = files.Get(argv[i], TThumbnailSize::Normal);
      if (!thumbnail.Problem.empty()) std::fprintf(stderr, "%s: %s\n", argv[i], thumbnail.Problem.c_str());
    }
  } else {
    std::fprintf(stderr, "usage: picture_bench large|scale|thumbnails ...\n");
    return 2;
  }
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  std::printf("%.1f %ld\n", took.count(), used.ru_maxrss);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
