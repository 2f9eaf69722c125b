// write_pictures FOLDER: writes the inputs of bench/decompress.sh: "picture", "noise" (incompressible) and
// "zeros".

#include <cstdio>
#include <exception>
#include <filesystem>

#include "base/files.h"
#include "bench/synthetic_picture.h"

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "usage: write_pictures FOLDER\n");
    return 2;
  }
  using namespace skyreel;
  const std::filesystem::path folder = argv[1];
  WriteFileWhole(folder / "picture", bench::SyntheticPicture());
  WriteFileWhole(folder / "noise", bench::Noise(bench::kPictureSize));
  WriteFileWhole(folder / "zeros", std::string(bench::kPictureSize, '\0'));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
