// Any bytes as a picture file; SKYREEL_FUZZ_EXTENSION, set by the build, chooses the decoder.

#include <cstdint>
#include <string>

#include "image/image_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (const auto format : {skyreel::TPixelFormat::Bits8, skyreel::TPixelFormat::Bits24}) {
    skyreel::TExtBitmap bitmap(format);
    bitmap.PixelLimit = 200'000;
    try {
      skyreel::LoadImageFromMemory(bitmap, SKYREEL_FUZZ_EXTENSION, input);
      if (bitmap.IsEmpty()) __builtin_trap();
    } catch (const skyreel::EInvalidGraphic&) {
    }
  }
  return 0;
}
