// skyreel_zcat [--peak] FILE.Z|FILE.bz2 [OUTPUT]: decodes a file with the program's decoders to standard
// output, or a .Z to the file OUTPUT. bench/decompress.sh compares it with `gzip -dc` and `bzip2 -dc`.
// --peak prints the most memory that it held, in KiB, on standard error.

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/files.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"

namespace {

void WriteOut(std::string_view data) {
  if (!skyreel::WriteAll(STDOUT_FILENO, data)) throw std::runtime_error("cannot write");
}

}  // namespace

int main(int argc, char** argv) try {
  const bool peak = argc > 1 && std::string_view(argv[1]) == "--peak";
  const int first = peak ? 2 : 1;
  if (argc - first < 1 || argc - first > 2) {
    std::fprintf(stderr, "usage: skyreel_zcat [--peak] FILE.Z|FILE.bz2 [OUTPUT]\n");
    return 2;
  }
  const char* const file = argv[first];
  const char* const target = argc - first == 2 ? argv[first + 1] : nullptr;
  if (std::string_view(file).ends_with(".bz2")) {
    skyreel::TFileStream source(file);
    skyreel::TBZDecompressionStream stream(source);
    std::vector<char> buffer(32768);
    while (const std::int64_t got = stream.Read(buffer.data(), 32768)) {
      WriteOut({buffer.data(), static_cast<std::size_t>(got)});
    }
  } else {
    skyreel::TMemoryStream input;
    skyreel::TMemoryStream output;
    input.LoadFromFile(file, std::int64_t{1} << 30);
    skyreel::TUncompressor().Decompress(input.View(), output);
    target != nullptr ? skyreel::WriteFileWhole(target, output.View()) : WriteOut(output.View());
  }
  if (peak) {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    std::fprintf(stderr, "%ld\n", usage.ru_maxrss);
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
