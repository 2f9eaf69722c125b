#include "transfer/http_header.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>
#include <vector>

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

/// The lines of the last reply, each with those that continue it. Only LF ends a line, as in the HTTP client.
std::vector<std::string> UnfoldedLines(std::string_view header) {
  std::vector<std::string> lines;
  bool ended = false;
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n'));
    header.remove_prefix(std::min(line.size() + 1, header.size()));
    if (line.empty() || line == "\r") {
      ended = true;
      continue;
    }
    if (std::exchange(ended, false)) lines.clear();
    if (IsBlank(line.front()) && !lines.empty()) {
      lines.back() += line;
    } else {
      lines.emplace_back(line);
    }
  }
  return lines;
}

/// Reads "5" or "5, 5" into `length`. False for other text and for a number that `length` contradicts.
bool ReadLength(std::string_view value, std::optional<std::int64_t>& length) {
  do {
    const auto number = ParseByteCount(TakeWord(value, ','));
    if (!number || *number != length.value_or(*number)) return false;
    length = number;
  } while (!value.empty());
  return true;
}

/// How many bytes a file with this Content-Range ("bytes 0-499/1234") has at least; 0 for unreadable text.
std::int64_t SizeFromRange(std::string_view value) {
  TakeWord(value, '-');
  const std::int64_t last = ParseByteCount(TakeWord(value, '/')).value_or(-1);
  return std::max(last < INT64_MAX ? last + 1 : last, ParseByteCount(value).value_or(0));
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

TBodyHeader ReadBodyHeader(std::string_view header) {
  TBodyHeader body;
  std::optional<std::int64_t> length;
  std::int64_t size = 0;
  bool clear = true;
  for (const std::string& line : UnfoldedLines(header)) {
    std::string_view value = line;
    const std::string_view name = Trim(TakeWord(value, ':'));
    if (SameText(name, "Content-Length")) {
      clear = ReadLength(value, length) && clear;
    } else if (SameText(name, "Content-Range")) {
      size = std::max(size, SizeFromRange(value));
    } else if (SameText(name, "Content-Encoding")) {
      body.Encoded = body.Encoded || !(value.empty() || SameText(value, "identity"));
    }
  }
  body.Length = length.value_or(size);
  if (!clear || *body.Length < size) body.Length.reset();
  return body;
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
  // In UTF-16 every other byte of a page is 0.
  std::string text(beginning);
  std::erase(text, '\0');
  std::string_view start = text;
  for (const std::string_view mark : {"\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF"}) {
    if (start.starts_with(mark)) start.remove_prefix(mark.size());
  }
  start = Trim(start);
  if (StartsWithText(start, "<?xml")) TakeWord(start, '>');
  return StartsWithText(start, "<!DOCTYPE") || StartsWithText(start, "<html");
}

}  // namespace skyreel
