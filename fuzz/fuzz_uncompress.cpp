// Any bytes behind the signature of a .Z file.

#include <cstdint>
#include <string>

#include "decompress/uncompress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static skyreel::TUncompressor decoder;
  static skyreel::TMemoryStream output;
  decoder.OutputLimit = 4 << 20;
  const std::string input(reinterpret_cast<const char*>(data), size);
  try {
    decoder.Decompress(input, output);
  } catch (const skyreel::EDecompressError&) {
    if (output.Size() != 0) __builtin_trap();
  }
  return 0;
}
