// Any bytes behind the signature of a .Z file.

#include <string>

#include "decompress/uncompress.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static skyreel::TUncompressor decoder;
  static skyreel::TMemoryStream output;
  decoder.OutputLimit = 4 << 20;
  const std::string input(AsText(data, size));
  try {
    decoder.Decompress(input, output);
  } catch (const skyreel::EDecompressError&) {
    Require(output.Size() == 0);
  }
  return 0;
}
