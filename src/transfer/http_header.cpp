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

TDateTime ParseHttpDate(std::string_view line) {
  TakeWord(line, ' ');  // the key
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
        last_modified = ParseHttpDate(line);
      }
    });
    return true;
  } catch (const std::exception&) {
    return false;
  }
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
