// An HTTP reply's status line, header lines and chunk sizes, as a server may send them.

#include "base/text.h"
#include "net/http_parse.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text = AsText(data, size);
  skyreel::THttpReplyHeader header;
  header.Code = skyreel::ReplyCodeOf(text.substr(0, text.find('\n')));
  Require(header.Code >= 0 && header.Code <= INT16_MAX);
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n') + 1);
    const std::string_view rest = line.empty() ? text : line;
    skyreel::ReadHeaderLine(rest, header);
    Require(header.ContentLength.value_or(0) >= 0);
    const std::int64_t chunk = skyreel::ParseChunkSize(rest);
    Require(chunk >= -1 && chunk <= INT64_MAX / 2);
    text.remove_prefix(rest.size());
  }
  Require(skyreel::Base64(header.Cookie).size() == (header.Cookie.size() + 2) / 3 * 4);
  return 0;
}
