#include "transfer/http_header.h"

#include <algorithm>
#include <exception>
#include <string>

#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {

namespace {

/// Takes the text up to the next `separator` off the front of `text` and trims what follows. Without a
/// separator everything is taken.
std::string_view TakeWord(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view word = text.substr(0, end);
  text = Trim(text.substr(std::min(end + 1, text.size())));
  return word;
}

TDateTime ReadHttpDate(std::string_view line) {
  TakeWord(line, ' ');  // the weekday
  const int day = ToInteger(TakeWord(line, ' '));
  const int month = MonthNumber(TakeWord(line, ' '));
  const int year = ToInteger(TakeWord(line, ' '));
  const int hour = ToInteger(TakeWord(line, ':'));
  const int minute = ToInteger(TakeWord(line, ':'));
  const int second = ToInteger(TakeWord(line, ' '));
  return TDateTime::FromDate(year, month, day, hour, minute, second);
}

}  // namespace

bool ParseHttpHeader(std::string_view header, std::int32_t& content_length, TDateTime& last_modified) {
  try {
    ForEachLine(header, [&](std::string_view line) {
      if (StartsWithText(line, "CONTENT-LENGTH:")) {
        TakeWord(line, ' ');
        content_length = ToInteger(line);
      } else if (StartsWithText(line, "LAST-MODIFIED:")) {
        TakeWord(line, ' ');
        last_modified = ReadHttpDate(line);
      }
    });
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<TDateTime> ParseHttpDate(std::string_view value) {
  try {
    return ReadHttpDate(value);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::chrono::seconds> ParseRetryAfter(std::string_view value, TDateTime now) {
  if (const auto seconds = ParseNumber<std::uint32_t>(value, 10, UINT32_MAX))
    return std::chrono::seconds(*seconds);
  const auto time = ParseHttpDate(value);
  if (!time) return std::nullopt;
  return std::max(std::chrono::ceil<std::chrono::seconds>(*time - now), std::chrono::seconds(0));
}

TContentRange ParseContentRange(std::string_view value) {
  if (!StartsWithText(value, "bytes ")) return {};
  value.remove_prefix(6);
  const std::string_view part = TakeWord(value, '/');
  return {ParseNumber<std::int64_t>(part.substr(0, part.find('-'))), ParseNumber<std::int64_t>(value)};
}

int MonthNumber(std::string_view text) {
  if (text.size() != 3) return 0;
  // kept: any three letters in a row are found, so that "NFE" counts as January.
  constexpr std::string_view kMonths = "  JANFEBMARAPRMAYJUNJULAUGSEPOCTNOVDEC";
  const std::size_t at = kMonths.find(UpperCase(text));
  const int month = at == std::string_view::npos ? 0 : static_cast<int>((at + 1) / 3);
  if (month < 1) throw ERangeError("Bad month");
  return month;
}

bool IsHtmlPage(std::string_view beginning) {
  const std::string_view start = Trim(beginning);
  return StartsWithText(start, "<!DOCTYPE") || StartsWithText(start, "<html");
}

}  // namespace skyreel
