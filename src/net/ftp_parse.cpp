#include "net/ftp_parse.h"

#include <algorithm>

#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {

namespace {

/// The whole trimmed text as a number up to `maximum`.
std::optional<unsigned> Number(std::string_view text, unsigned maximum) {
  const auto number = ParseNumber<unsigned>(Trim(text));
  return number && *number <= maximum ? number : std::nullopt;
}

}  // namespace

bool IsReplyContinuation(std::string_view line) {
  return line.starts_with(' ') || (line.size() > 3 && line[3] == '-');
}

bool HasReplyCode(std::string_view line) {
  return line.size() >= 3 && std::all_of(line.begin(), line.begin() + 3, IsDigit);
}

bool TReplyEnd::IsAt(std::string_view line) {
  const bool continued = IsReplyContinuation(line);
  many_lines_ = many_lines_ || (continued && HasReplyCode(line));
  return !continued && (HasReplyCode(line) || !many_lines_);
}

std::optional<std::uint16_t> PasvPort(std::string_view reply) {
  const std::size_t open = reply.find('(');
  if (open != std::string_view::npos) reply.remove_prefix(open + 1);
  reply = reply.substr(0, reply.find(')'));
  if (std::count(reply.begin(), reply.end(), ',') != 5) return std::nullopt;
  const std::size_t last_comma = reply.rfind(',');
  const std::size_t comma = reply.rfind(',', last_comma - 1);
  const auto high = Number(reply.substr(comma + 1, last_comma - comma - 1), 255);
  const auto low = Number(reply.substr(last_comma + 1), 255);
  if (!high || !low || *high + *low == 0) return std::nullopt;
  return static_cast<std::uint16_t>(*high * 256 + *low);
}

std::int64_t SizeFromReply(std::string_view reply) {
  const std::string text = UpperCase(reply);
  const std::string_view before = std::string_view(text).substr(0, text.find("BYTE"));
  if (before.size() == text.size()) return 0;
  const std::size_t last = before.find_last_of("0123456789");
  if (last == std::string_view::npos) return 0;
  const std::size_t before_first = before.find_last_not_of("0123456789", last);
  const std::size_t first = before_first == std::string_view::npos ? 0 : before_first + 1;
  return ParseByteCount(before.substr(first, last + 1 - first)).value_or(0);
}

std::string_view ListingName(std::string_view line) {
  if (line.size() <= 2) return line;
  line.remove_suffix(line[line.size() - 2] == '\r' ? 2 : 1);
  return line;
}

TFtpAddress ParseFtpAddress(std::string_view root) {
  std::string_view text = Trim(root);
  if (StartsWithText(text, "ftp://")) text.remove_prefix(6);
  if (text.ends_with('/')) text.remove_suffix(1);
  TFtpAddress address;
  const std::size_t colon = text.find(':');
  bool good = true;
  if (colon != std::string_view::npos) {
    const std::optional<unsigned> port = Number(text.substr(colon + 1), 65535);
    good = port.value_or(0) != 0;
    if (good) address.Port = static_cast<std::uint16_t>(*port);
  }
  address.Host = text.substr(0, colon);
  good = good && !address.Host.empty() && std::all_of(address.Host.begin(), address.Host.end(), [](char c) {
           return IsLetterOrDigit(c) || c == '-' || c == '.' || c == '_';
         });
  if (!good) {
    throw EConvertError("\"" + WithoutControls(std::string(root)) +
                        "\" is not an FTP server address (host or host:port)");
  }
  return address;
}

}  // namespace skyreel
