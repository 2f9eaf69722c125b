// Response headers. Whatever they hold, the parser returns, and a date that it has read can be written and
// read again.

#include <string>

#include "require.h"
#include "transfer/http_header.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using skyreel::TDateTime;
  const std::string_view header = AsText(data, size);
  Require(skyreel::ReadBodyHeader(header).Length.value_or(0) >= 0);
  std::int32_t length = -1;
  TDateTime modified;
  skyreel::ParseHttpHeader(header, length, modified);
  if (modified.IsZero()) return 0;

  std::int32_t length_again = -1;
  TDateTime again;
  const std::string written =
      "Content-Length: " + std::to_string(length) + "\r\n" +
      skyreel::FormatDateTime("'Last-Modified: Sun, 'dd mmm yyyy hh:nn:ss' GMT'", modified);
  Require(skyreel::ParseHttpHeader(written, length_again, again));
  Require(length_again == length && again == modified);
  return 0;
}
