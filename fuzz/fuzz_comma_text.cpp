#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/comma_text.h"

// Whatever a comma text holds, its items survive being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto items = skyreel::FromCommaText({reinterpret_cast<const char*>(data), size});
  if (skyreel::FromCommaText(skyreel::ToCommaText(items)) != items) std::abort();
  return 0;
}
