// A URL or a redirect's location. One that is accepted has a server, a port and a path without control
// characters.

#include <stdexcept>
#include <string>

#include "base/text.h"
#include "net/http_url.h"
#include "require.h"

namespace {

void Check(std::string_view url) {
  skyreel::THttpUrl parsed;
  try {
    parsed = skyreel::ParseHttpUrl(url);
  } catch (const std::runtime_error&) {
    return;
  }
  Require(parsed.Path.starts_with('/') && !skyreel::HasControlCharacter(parsed.Path));
  Require(parsed.Port.value_or(1) != 0);
  Require(parsed.Host.find_first_of("/:") == std::string::npos);
  Require(parsed.Url.starts_with(url));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = AsText(data, size);
  Check(text);
  Check(skyreel::ResolveLocation(text, "server.example", 8080));
  skyreel::UrlEncode(text);
  return 0;
}
