// A URL or a redirect's location: what is taken names a server, a port and a path without control characters.

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/text.h"
#include "net/http_url.h"

namespace {

void Check(std::string_view url) {
  skyreel::THttpUrl parsed;
  try {
    parsed = skyreel::ParseHttpUrl(url);
  } catch (const std::runtime_error&) {
    return;
  }
  if (parsed.Path.empty() || parsed.Path[0] != '/' || skyreel::HasControlCharacter(parsed.Path)) std::abort();
  if (parsed.Port && *parsed.Port == 0) std::abort();
  if (parsed.Host.find_first_of("/:") != std::string::npos) std::abort();
  if (!parsed.Url.starts_with(url)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Check(text);
  Check(skyreel::ResolveLocation(text, "server.example", 8080));
  skyreel::UrlEncode(text);
  return 0;
}
