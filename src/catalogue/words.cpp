#include "catalogue/words.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;
using TSpan = TDateTime::TSpan;

constexpr TSpan kLongest = std::chrono::days(36525);

constexpr std::array<std::pair<char, TSpan>, 4> kUnits = {{{'d', 24h}, {'h', 1h}, {'m', 1min}, {'s', 1s}}};

/// The value that the table gives for a text.
template <typename TValue, std::size_t size>
std::optional<TValue> Choose(const std::pair<std::string_view, TValue> (&choices)[size],
                             std::string_view text) {
  for (const auto& [name, value] : choices) {
    if (name == text) return value;
  }
  return std::nullopt;
}

bool AllDigits(std::string_view text) {
  return std::ranges::all_of(text, IsDigit);
}

/// "hhmm" as a span, where `most` is the greatest hour.
std::optional<TSpan> HoursAndMinutes(std::string_view digits, int most) {
  if (digits.size() != 4 || !AllDigits(digits)) return std::nullopt;
  const int hours = ToInteger(digits.substr(0, 2)), minutes = ToInteger(digits.substr(2));
  if (hours > most || minutes > 59) return std::nullopt;
  return std::chrono::hours(hours) + std::chrono::minutes(minutes);
}

}  // namespace

std::optional<TSpan> ParseDuration(std::string_view text) {
  TSpan sum{0};
  auto unit = kUnits.begin();
  while (!text.empty()) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = ParseNumber<std::int32_t>(text.substr(0, digits));
    if (!number || digits == text.size()) return std::nullopt;
    unit = std::find_if(unit, kUnits.end(), [&](const auto& each) { return each.first == text[digits]; });
    if (unit == kUnits.end()) return std::nullopt;
    sum += *number * unit->second;
    if (sum > kLongest) return std::nullopt;
    text.remove_prefix(digits + 1);
    if (++unit == kUnits.end() || text.empty()) return text.empty() ? std::optional(sum) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<TSpan> ParseSignedDuration(std::string_view text) {
  const bool sign = text.starts_with('+') || text.starts_with('-');
  auto span = ParseDuration(text.substr(sign ? 1 : 0));
  if (span && text.starts_with('-')) span = -*span;
  return span;
}

std::optional<TSpan> ParseZone(std::string_view text) {
  if (text == "UTC") return TSpan(0);
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return std::nullopt;
  const bool east = text[0] == '+';
  const auto span = HoursAndMinutes(std::string(text.substr(1, 2)) + std::string(text.substr(4)), 14);
  if (!span || *span > (east ? 14h : 12h)) return std::nullopt;
  return east ? *span : -*span;
}

std::optional<TSpan> ParseTimeOfDay(std::string_view text) {
  return HoursAndMinutes(text, 23);
}

std::optional<std::int64_t> ParseSize(std::string_view text) {
  constexpr std::pair<std::string_view, std::int64_t> kSizes[] = {
      {"B", 1}, {"KB", 1'000}, {"MB", 1'000'000}, {"GB", 1'000'000'000}};
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto number = ParseNumber<std::int32_t>(text.substr(0, digits));
  const auto unit = Choose(kSizes, text.substr(digits));
  if (!number || !unit) return std::nullopt;
  return *number * *unit;
}

std::optional<TFileType> ParseFileType(std::string_view text) {
  static constexpr std::pair<std::string_view, TFileType> kTypes[] = {
      {"image/jpeg", TFileType::Jpeg},         {"image/png", TFileType::Png},
      {"image/gif", TFileType::Gif},           {"image/tiff", TFileType::Tiff},
      {"application/x-tar", TFileType::Tar},   {"application/x-netcdf", TFileType::NetCdf},
      {"application/x-hdf5", TFileType::Hdf5}, {"application/pdf", TFileType::Pdf}};
  return Choose(kTypes, text);
}

std::optional<TLicence::TUse> ParseUse(std::string_view text) {
  static constexpr std::pair<std::string_view, TLicence::TUse> kUses[] = {
      {"any", TLicence::TUse::Any}, {"personal", TLicence::TUse::Personal}, {"ask", TLicence::TUse::Ask}};
  return Choose(kUses, text);
}

std::optional<TFind::TKind> ParseFindKind(std::string_view text) {
  static constexpr std::pair<std::string_view, TFind::TKind> kKinds[] = {{"listing", TFind::TKind::Listing},
                                                                         {"json", TFind::TKind::Json},
                                                                         {"s3", TFind::TKind::S3},
                                                                         {"wms-time", TFind::TKind::WmsTime}};
  return Choose(kKinds, text);
}

std::string DurationText(TSpan span) {
  std::string text;
  for (const auto& [letter, unit] : kUnits) {
    if (span >= unit) text += std::to_string(span / unit) + letter;
    span %= unit;
  }
  return text.empty() ? "0s" : text;
}

bool IsFieldName(std::string_view text) {
  return !text.empty() && IsLetterOrDigit(text[0]) && !IsDigit(text[0]) &&
         std::ranges::all_of(text, [](char c) { return IsLetterOrDigit(c) || c == '_'; });
}

bool IsSourceId(std::string_view text) {
  const bool dots_apart = !text.starts_with('.') && !text.ends_with('.') && text.find("..") == text.npos;
  return text.size() <= 100 && dots_apart && text.find('.') != text.npos &&
         std::ranges::all_of(text, [](char c) { return IsLetterOrDigit(c) || c == '.' || c == '-'; });
}

}  // namespace skyreel
