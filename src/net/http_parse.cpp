#include "net/http_parse.h"

#include <algorithm>

#include "base/text.h"

namespace skyreel {

namespace {

// Larger than any body, and small enough that sums do not overflow.
constexpr std::uint64_t kMaxChunk = std::uint64_t{1} << 48;

}  // namespace

int ReplyCodeOf(std::string_view status_line) {
  status_line = Trim(status_line);
  const std::size_t blank = status_line.find(' ');
  if (blank == std::string_view::npos) return 0;
  const std::string_view rest = Trim(status_line.substr(blank));
  const unsigned code = ParseNumber<unsigned>(rest.substr(0, rest.find(' '))).value_or(0);
  return code <= INT16_MAX ? static_cast<int>(code) : 0;
}

void ReadHeaderLine(std::string_view line, THttpReplyHeader& header) {
  const auto value_of = [line](std::string_view name) { return Trim(line.substr(name.size())); };
  if (constexpr std::string_view kName = "Set-Cookie:"; StartsWithText(line, kName)) {
    header.Cookie = value_of(kName);
  } else if (constexpr std::string_view kName = "Location:"; StartsWithText(line, kName)) {
    header.Location = value_of(kName);
  } else if (constexpr std::string_view kName = "Content-Length:"; StartsWithText(line, kName)) {
    header.ContentLength = ParseByteCount(value_of(kName));
  } else if (constexpr std::string_view kName = "Transfer-Encoding:"; StartsWithText(line, kName)) {
    header.TransferEncoding = LowerCase(value_of(kName));
    if (header.TransferEncoding == "identity") header.TransferEncoding.clear();
  }
}

std::string HeaderValue(std::string_view header, std::string_view name) {
  std::string value;
  ForEachLine(header, [&](std::string_view line) {
    if (StartsWithText(line, name) && line.substr(name.size()).starts_with(':'))
      value = Trim(line.substr(name.size() + 1));
  });
  return value;
}

std::int64_t ParseChunkSize(std::string_view line) {
  const auto size = ParseNumber<std::uint64_t>(Trim(line.substr(0, line.find(';'))), 16);
  return size && *size <= kMaxChunk ? static_cast<std::int64_t>(*size) : -1;
}

}  // namespace skyreel
