#include "net/ftp_parse.h"

#include <algorithm>
#include <charconv>

#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The whole trimmed text as a number up to `maximum`.
std::optional<unsigned> Number(std::string_view text, unsigned maximum) {
  text = Trim(text);
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > maximum) return std::nullopt;
  return number;
}

}  // namespace

bool IsReplyContinuation(std::string_view line) {
  return line.starts_with(' ') || (line.size() > 3 && line[3] == '-');
}

bool HasReplyCode(std::string_view line) {
  return line.size() >= 3 && std::all_of(line.begin(), line.begin() + 3, IsDigit);
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
  std::int64_t size = 0;
  const auto result = std::from_chars(before.data() + first, before.data() + last + 1, size);
  return result.ec == std::errc() ? size : 0;
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
           return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '.' ||
                  c == '_';
         });
  if (!good) {
    std::string shown(root);
    std::erase_if(shown, [](char c) { return HasControlCharacter({&c, 1}); });
    throw EConvertError("\"" + shown + "\" is no FTP server address (host or host:port)");
  }
  return address;
}

}  // namespace skyreel
