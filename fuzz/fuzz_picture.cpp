// Any bytes as a picture file; SKYREEL_FUZZ_EXTENSION, set by the build, chooses the decoder.

#include <string>

#include "image/image_file.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(AsText(data, size));
  for (const auto format : {skyreel::TPixelFormat::Bits8, skyreel::TPixelFormat::Bits24}) {
    skyreel::TExtBitmap bitmap(format);
    bitmap.PixelLimit = 200'000;
    try {
      skyreel::LoadImageFromMemory(bitmap, SKYREEL_FUZZ_EXTENSION, input);
      Require(!bitmap.IsEmpty());
    } catch (const skyreel::EInvalidGraphic&) {
    }
  }
  return 0;
}
