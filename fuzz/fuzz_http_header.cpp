// An HTTP reply's status line, header lines and chunk sizes, as a server may send them.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "net/http_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  skyreel::THttpReplyHeader header;
  header.Code = skyreel::ReplyCodeOf(text.substr(0, text.find('\n')));
  if (header.Code < 0 || header.Code > INT16_MAX) std::abort();
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n') + 1);
    const std::string_view rest = line.empty() ? text : line;
    skyreel::ReadHeaderLine(rest, header);
    if (header.ContentLength && *header.ContentLength < 0) std::abort();
    if (const std::int64_t chunk = skyreel::ParseChunkSize(rest); chunk < -1 || chunk > INT64_MAX / 2)
      std::abort();
    text.remove_prefix(rest.size());
  }
  if (skyreel::Base64(header.Cookie).size() != (header.Cookie.size() + 2) / 3 * 4) std::abort();
  return 0;
}
