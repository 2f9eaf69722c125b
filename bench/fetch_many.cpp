// Fetches many files through GetHttpFile, as a job does. Prints the seconds that it took and, for more than
// 1,000 files, by how many KiB the resident memory grew from the thousandth to the last.
//   fetch_many <server root> <count> <output folder>
// The files are "/0.jpg", "/1.jpg", ...
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "bench_context.h"
#include "transfer/http_fetch.h"

namespace {

long ResidentKiB() {
  long total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "fetch_many <server root> <count> <output folder>\n";
    return 2;
  }
  const std::string root = argv[1];
  const int count = std::atoi(argv[2]);
  const std::filesystem::path folder = argv[3];
  skyreel::bench::TBenchContext context(folder);
  const auto begin = std::chrono::steady_clock::now();
  long after_thousand = 0;
  for (int i = 0; i < count; ++i) {
    if (i == 1000) after_thousand = ResidentKiB();
    const std::string name = std::to_string(i) + ".jpg";
    skyreel::GetHttpFile(context.Context, root, "/" + name, folder / name, 0, false, context.Clock.UtcNow());
    if (context.Display.Last != "/" + name + " - OK") {
      std::cerr << context.Display.Last << '\n';
      return 1;
    }
  }
  std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() << '\n';
  if (count > 1000) std::cout << ResidentKiB() - after_thousand << '\n';
  return 0;
}
