// A JSON document. Each entry has a time and the texts that were asked for.

#include "catalogue/json_list.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const char* at : {"/a/*/t", "/*", "/a/*/*", "/t"}) {
    try {
      for (const skyreel::TJsonEntry& entry : skyreel::ReadJsonList(AsText(data, size), at, {"/a/*/p", "/h"}))
        Require(entry.Read.size() == 2 && entry.Time.size() <= size + 20);
    } catch (const skyreel::EListError&) {
    }
  }
  return 0;
}
