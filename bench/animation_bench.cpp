// animation_bench FOLDER SIDE: plays the pictures of a folder, made for a view of SIDE x SIDE pixels, as fast
// as they are decoded. Prints the pictures a second of the first round, and the peak memory in bytes.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>

#include "view/animation.h"

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::fprintf(stderr, "usage: animation_bench FOLDER SIDE\n");
    return 2;
  }
  using namespace skyreel;
  std::vector<TFrameFile> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
    files.push_back({TDateTime::FromUnixTime(0), entry.path(), ""});
  std::ranges::sort(files, {}, &TFrameFile::Path);
  const int side = std::atoi(argv[2]);
  const auto begin = std::chrono::steady_clock::now();
  TFrameLoader loader(files, LoadForView({side, side}), TAnimationPlayer::kBudget);
  for (std::size_t i = 0; i < files.size(); ++i) {
    loader.Want(i, true);
    const TFrameLoader::TFrame frame = loader.WaitFor(i, std::chrono::minutes(1));
    if (frame.State != TFrameLoader::TState::Ready) throw std::runtime_error("no picture: " + frame.Reason);
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  // A player that is slower than the decoder lets it fill the whole budget.
  loader.Want(0, true);
  for (std::size_t i = 0; i < files.size(); ++i)
    if (loader.WaitFor(i, std::chrono::seconds(2)).State == TFrameLoader::TState::Loading) break;
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  std::printf("%.1f %ld\n", static_cast<double>(files.size()) / took.count(), usage.ru_maxrss * 1024);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
