#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace skyreel {

// Characters are bytes here, and letters those of ASCII: wire text and file names do not follow the locale.

bool IsDigit(char c);
bool IsLetterOrDigit(char c);
/// A blank or a control character: up to and including 0x20.
bool IsBlank(char c);
std::string UpperCase(std::string_view text);
std::string LowerCase(std::string_view text);
/// Equal but for the letter case.
bool SameText(std::string_view a, std::string_view b);
/// `text` begins with `prefix` but for the letter case.
bool StartsWithText(std::string_view text, std::string_view prefix);
/// Without blanks (IsBlank) at both ends.
std::string_view Trim(std::string_view text);
/// Every occurrence of `from` (not empty) replaced by `to`.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
/// `count` characters from `position` (counted from 1), or as many of them as there are.
std::string Characters(std::string_view text, std::size_t position, std::size_t count);
/// The lines of a text, ended by CR LF, LF or CR; without their ends. A line end at the very end opens no
/// further line.
std::vector<std::string> SplitLines(std::string_view text);
/// Calls take(std::string_view) with each of these lines in turn; for texts too large to copy.
template <typename TTake>
void ForEachLine(std::string_view text, TTake take) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    take(text.substr(at, end - at));
    at = end + (text.substr(end, 2) == "\r\n" ? 2 : 1);
  }
}
/// The whole text as a number in digits of `base` (behind a '-', for a signed T); nothing for any other text
/// or a number beyond T.
template <typename T>
std::optional<T> ParseNumber(std::string_view text, int base = 10) {
  T number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}
/// The whole trimmed text as a decimal integer with an optional sign. Throws EConvertError otherwise.
std::int32_t ToInteger(std::string_view text);
/// A byte below 0x20 or 0x7F is in the text: it may go into no request line, header or command.
bool HasControlCharacter(std::string_view text);
/// The text without such bytes, fit for a status line.
std::string WithoutControls(std::string text);

/// Whether a name that a server chose may stand as one component of a local path: not empty, not "." or
/// "..", no separator of either kind, no drive colon, no control byte, no more than 255 bytes.
bool IsSafeFileName(std::string_view name);

}  // namespace skyreel
