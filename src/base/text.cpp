#include "base/text.h"

#include <algorithm>

#include "base/exceptions.h"

namespace skyreel {

namespace {

char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

}  // namespace

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsLetterOrDigit(char c) {
  return IsDigit(c) || (Lower(c) >= 'a' && Lower(c) <= 'z');
}

bool IsBlank(char c) {
  return static_cast<unsigned char>(c) <= ' ';
}

std::string UpperCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), Upper);
  return result;
}

std::string LowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), Lower);
  return result;
}

bool SameText(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Upper(x) == Upper(y); });
}

bool StartsWithText(std::string_view text, std::string_view prefix) {
  return SameText(text.substr(0, prefix.size()), prefix);
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

namespace {

/// Replaces the parts of `text` where `from` stands in `searched`, a text of the same size.
std::string ReplaceWhere(std::string_view text, std::string_view searched, std::string_view from,
                         std::string_view to) {
  std::string result;
  for (std::size_t at = 0;;) {
    const std::size_t hit = searched.find(from, at);
    result += text.substr(at, hit - at);
    if (hit == std::string_view::npos) return result;
    result += to;
    at = hit + from.size();
  }
}

}  // namespace

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  return ReplaceWhere(text, text, from, to);
}

std::string Characters(std::string_view text, std::size_t position, std::size_t count) {
  return position > text.size() ? "" : std::string(text.substr(position - 1, count));
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  ForEachLine(text, [&](std::string_view line) { lines.emplace_back(line); });
  return lines;
}

std::optional<std::int64_t> ParseByteCount(std::string_view text) {
  const auto count = ParseNumber<std::uint64_t>(Trim(text), 10, UINT64_MAX);
  if (!count) return std::nullopt;
  return static_cast<std::int64_t>(std::min<std::uint64_t>(*count, INT64_MAX));
}

std::string Digits(std::int64_t number, std::size_t width) {
  std::string text = std::to_string(number);
  if (text.size() < width) text.insert(0, width - text.size(), '0');
  return text;
}

std::string Count(std::int64_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::int32_t ToInteger(std::string_view text) {
  std::string_view digits = Trim(text);
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
  if (const auto value = ParseNumber<std::int32_t>(digits)) return *value;
  throw EConvertError("'" + std::string(text.substr(0, 64)) + "' is not a valid integer value");
}

bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

std::string WithoutControls(std::string text) {
  std::erase_if(text, IsControl);
  return text;
}

std::size_t Utf8Length(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Base64(std::string_view data) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < data.size(); i += 3) {
    unsigned bits = 0;
    for (std::size_t j = i; j < i + 3; ++j) {
      bits = bits << 8 | (j < data.size() ? static_cast<unsigned char>(data[j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      text += i + j > data.size() ? '=' : kDigits[bits >> (18 - 6 * j) & 63];
    }
  }
  return text;
}

std::string WithoutSecrets(std::string_view text, std::string_view user, std::string_view password) {
  std::string shown(text);
  const std::string plain = WithoutControls(std::string(password));
  if (plain.empty()) return shown;
  // The longest form comes first, because it may hold a shorter one. Servers may leave out the padding.
  const std::string forms[] = {ReplaceAll(Base64(std::string(user) + ":" + std::string(password)), "=", ""),
                               ReplaceAll(Base64(password), "=", ""), plain};
  for (const std::string& form : forms) shown = ReplaceWhere(shown, LowerCase(shown), LowerCase(form), "***");
  return shown;
}

bool IsSafeFileName(std::string_view name) {
  return !name.empty() && name.size() <= 255 && name != "." && name != ".." && !HasControlCharacter(name) &&
         name.find_first_of("/\\:") == std::string_view::npos;
}

}  // namespace skyreel
