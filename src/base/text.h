#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

// Characters are bytes here, and letters are ASCII: wire text and file names do not depend on the locale.

bool IsDigit(char c);
bool IsLetterOrDigit(char c);
/// A blank or a control character: 0x00 to 0x20.
bool IsBlank(char c);
std::string UpperCase(std::string_view text);
std::string LowerCase(std::string_view text);
/// Equal, whatever the letter case.
bool SameText(std::string_view a, std::string_view b);
/// `text` begins with `prefix`, whatever the letter case.
bool StartsWithText(std::string_view text, std::string_view prefix);
/// The text without blanks (IsBlank) at both ends.
std::string_view Trim(std::string_view text);
/// The text with every occurrence of `from` (not empty) replaced by `to`.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
/// `count` characters from `position` (counted from 1), or as many of them as there are.
std::string Characters(std::string_view text, std::size_t position, std::size_t count);
/// The lines of a text, without their ends (CR LF, LF or CR). A line end at the very end starts no new line.
std::vector<std::string> SplitLines(std::string_view text);
/// Calls take(std::string_view) with each of these lines; for texts too large to copy.
template <typename TTake>
void ForEachLine(std::string_view text, TTake take) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    take(text.substr(at, end - at));
    at = end + (text.substr(end, 2) == "\r\n" ? 2 : 1);
  }
}
/// The whole text as a number in digits of `base` (after a '-', for a signed T). Gives nothing for any other
/// text, and `beyond` for a number that T cannot hold.
template <typename T>
std::optional<T> ParseNumber(std::string_view text, int base = 10, std::optional<T> beyond = {}) {
  T number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (end != text.data() + text.size()) return std::nullopt;
  if (error == std::errc::result_out_of_range) return beyond;
  if (error != std::errc()) return std::nullopt;
  return number;
}
/// The whole trimmed text, digits alone, as a number of bytes that a server announces. A number beyond 64
/// bits becomes the greatest one.
std::optional<std::int64_t> ParseByteCount(std::string_view text);
/// The number, which is not negative, in decimal digits with zeros in front: `width` of them at least.
std::string Digits(std::int64_t number, std::size_t width);
/// "1 file", "2 files".
std::string Count(std::int64_t number, const std::string& what);
/// The whole trimmed text as a decimal integer with an optional sign. Throws EConvertError for other text.
std::int32_t ToInteger(std::string_view text);
/// Whether the text holds a byte below 0x20 or 0x7F. Such a text must not go into a request or command.
bool HasControlCharacter(std::string_view text);
/// The text without such bytes, for a status line.
std::string WithoutControls(std::string text);
/// How many characters (code points) a UTF-8 text has.
std::size_t Utf8Length(std::string_view text);
/// The bytes in Base64, as HTTP sends a user name and password.
std::string Base64(std::string_view data);

/// A server's text with "***" for a password, in any letter case, and for its Base64 forms: of the password
/// and of "user:password". For a status line remove the control characters first: they could hide a password.
std::string WithoutSecrets(std::string_view text, std::string_view user, std::string_view password);

/// Whether a name from a server can be used as one component of a local path: 1 to 255 bytes, not "." or
/// "..", without slash, backslash, colon and control bytes.
bool IsSafeFileName(std::string_view name);

}  // namespace skyreel
