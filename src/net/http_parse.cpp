#include "net/http_parse.h"

#include <charconv>

#include "base/text.h"

namespace skyreel {

namespace {

// Far beyond any body, and sums of such sizes still fit.
constexpr std::int64_t kMaxChunk = std::int64_t{1} << 48;

/// A number of digits only; nothing for any other text, the greatest one when it is beyond 64 bits.
std::optional<std::int64_t> ParseNumber(std::string_view text, int base) {
  std::int64_t number = 0;
  if (text.empty() || text.front() == '-') return std::nullopt;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (end != text.data() + text.size()) return std::nullopt;
  if (error == std::errc::result_out_of_range) return INT64_MAX;
  if (error != std::errc()) return std::nullopt;
  return number;
}

}  // namespace

int ReplyCodeOf(std::string_view status_line) {
  status_line = Trim(status_line);
  const std::size_t blank = status_line.find(' ');
  if (blank == std::string_view::npos) return 0;
  const std::string_view rest = Trim(status_line.substr(blank));
  const std::int64_t code = ParseNumber(rest.substr(0, rest.find(' ')), 10).value_or(0);
  return code <= INT16_MAX ? static_cast<int>(code) : 0;
}

void ReadHeaderLine(std::string_view line, THttpReplyHeader& header) {
  const auto value_of = [line](std::string_view name) { return Trim(line.substr(name.size())); };
  if (constexpr std::string_view kName = "Set-Cookie:"; StartsWithText(line, kName)) {
    header.Cookie = value_of(kName);
  } else if (constexpr std::string_view kName = "Location:"; StartsWithText(line, kName)) {
    header.Location = value_of(kName);
  } else if (constexpr std::string_view kName = "Content-Length:"; StartsWithText(line, kName)) {
    header.ContentLength = ParseNumber(value_of(kName), 10);
  } else if (constexpr std::string_view kName = "Transfer-Encoding:"; StartsWithText(line, kName)) {
    header.TransferEncoding = LowerCase(value_of(kName));
    if (header.TransferEncoding == "identity") header.TransferEncoding.clear();
  }
}

std::int64_t ParseChunkSize(std::string_view line) {
  const std::int64_t size = ParseNumber(Trim(line.substr(0, line.find(';'))), 16).value_or(-1);
  return size > kMaxChunk ? -1 : size;
}

}  // namespace skyreel
