#include "base/comma_text.h"
#include "require.h"

// Whatever a comma text holds, its items survive being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto items = skyreel::FromCommaText(AsText(data, size));
  Require(skyreel::FromCommaText(skyreel::ToCommaText(items)) == items);
  return 0;
}
