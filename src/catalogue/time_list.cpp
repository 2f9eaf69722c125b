#include "catalogue/time_list.h"

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <queue>
#include <utility>

#include "base/exceptions.h"
#include "base/text.h"
#include "catalogue/listing.h"

namespace skyreel {

namespace {

using TSpan = TDateTime::TSpan;

/// Of all ranges together, for one answer.
constexpr std::size_t kMostSteps = 2'000'000;
/// Each is looked at for each slot; single times may be more.
constexpr std::ptrdiff_t kMostRanges = 10'000;

bool IsSingle(const TTimeRange& range) {
  return range.First == range.Last;
}

/// The text up to `separator`, which is taken off `text` with it.
std::string_view TakeUntil(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return taken;
}

std::optional<TDateTime> ReadTime(std::string_view text) {
  constexpr std::string_view kSeparators = "--T::";
  std::array<int, 6> parts = {0, 1, 1, 0, 0, 0};
  text = Trim(text);
  if (text.ends_with('Z')) text.remove_suffix(1);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::size_t digits = i == 0 ? 4 : 2;
    const auto number = ParseNumber<unsigned>(text.substr(0, digits));
    if (!number || text.size() < digits) return std::nullopt;
    parts[i] = static_cast<int>(*number);
    text.remove_prefix(digits);
    if (i == 5 && text.starts_with('.')) text = {};  // parts of a second
    if (text.empty()) break;
    if (i == 5 || text[0] != kSeparators[i]) return std::nullopt;
    text.remove_prefix(1);
  }
  try {
    return TDateTime::FromDate(parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]);
  } catch (const EConvertError&) {
    return std::nullopt;
  }
}

/// Reads a period into the range's step.
bool ReadPeriod(std::string_view text, TTimeRange& range) {
  text = Trim(text);
  if (!text.starts_with('P')) return false;
  bool time = false;
  for (text.remove_prefix(1); !text.empty();) {
    if (text[0] == 'T' && !time) {
      time = true;
      text.remove_prefix(1);
      continue;
    }
    const std::size_t unit = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = ParseNumber<std::uint16_t>(text.substr(0, unit));
    if (!number || unit == text.size()) return false;
    if (!time && text[unit] == 'Y')
      range.StepMonths += *number * 12;
    else if (!time && text[unit] == 'M')
      range.StepMonths += *number;
    else if (!time && text[unit] == 'W')
      range.Step += std::chrono::days(*number * 7);
    else if (!time && text[unit] == 'D')
      range.Step += std::chrono::days(*number);
    else if (time && text[unit] == 'H')
      range.Step += std::chrono::hours(*number);
    else if (time && text[unit] == 'M')
      range.Step += std::chrono::minutes(*number);
    else if (time && text[unit] == 'S')
      range.Step += std::chrono::seconds(*number);
    else
      return false;
    text.remove_prefix(unit + 1);
  }
  return range.Step == TSpan() || range.StepMonths == 0;
}

int MonthOf(TDateTime time) {
  const TDateTime::TParts parts = time.Parts();
  return parts.Year * 12 + parts.Month - 1;
}

/// The n-th time of a range with a step.
TDateTime TimeAt(const TTimeRange& range, std::int64_t n) {
  if (range.StepMonths == 0) return range.First + range.Step * n;
  const TDateTime::TParts first = range.First.Parts();
  const std::int64_t month = MonthOf(range.First) + n * range.StepMonths;
  const std::chrono::year_month of{std::chrono::year(static_cast<int>(month / 12)),
                                   std::chrono::month(static_cast<unsigned>(month % 12 + 1))};
  const auto last_day = static_cast<unsigned>((of / std::chrono::last).day());
  return TDateTime::FromDate(static_cast<int>(month / 12), static_cast<int>(month % 12 + 1),
                             std::min(first.Day, static_cast<int>(last_day)), first.Hour, first.Minute,
                             first.Second);
}

/// The number of the last time of the range that is not later than `time`; -1 or less when all are later.
std::int64_t LastNotAfter(const TTimeRange& range, TDateTime time) {
  time = std::min(time, range.Last);
  if (time < range.First) return -1;
  if (range.StepMonths == 0) return range.Step == TSpan() ? 0 : (time - range.First) / range.Step;
  const std::int64_t n = (MonthOf(time) - MonthOf(range.First)) / range.StepMonths;
  return TimeAt(range, n) > time ? n - 1 : n;
}

}  // namespace

std::vector<TTimeRange> ReadTimeList(std::string_view text) {
  std::vector<TTimeRange> ranges;
  while (!text.empty()) {
    std::string_view part = TakeUntil(text, ',');
    const bool single = part.find('/') == std::string_view::npos;
    const auto first = ReadTime(TakeUntil(part, '/'));
    const auto last = single ? first : ReadTime(TakeUntil(part, '/'));
    if (!first || !last || *last < *first) continue;
    TTimeRange range{*first, *last, {}, 0};
    if (part.empty() || ReadPeriod(part, range)) ranges.push_back(range);
  }
  std::ranges::sort(ranges, std::less(),
                    [](const TTimeRange& range) { return std::pair(!IsSingle(range), range.First); });
  if (ranges.end() - std::ranges::partition_point(ranges, IsSingle) > kMostRanges)
    throw EListError("the list has too many ranges of time");
  return ranges;
}

bool HasTime(const std::vector<TTimeRange>& ranges, TDateTime time) {
  const auto longer = std::ranges::partition_point(ranges, IsSingle);
  const auto single = std::ranges::lower_bound(ranges.begin(), longer, time, {}, &TTimeRange::First);
  if (single != longer && single->First == time) return true;
  return std::any_of(longer, ranges.end(), [&](const TTimeRange& range) {
    if (time < range.First || time > range.Last) return false;
    const bool every = range.Step == TSpan() && range.StepMonths == 0;
    return every || TimeAt(range, LastNotAfter(range, time)) == time;
  });
}

std::vector<TDateTime> TimesWithin(const std::vector<TTimeRange>& ranges, TDateTime first, TDateTime last,
                                   std::size_t most) {
  struct TNext {
    TDateTime Time;
    const TTimeRange* Range;
    std::int64_t Number;
    bool operator<(const TNext& other) const { return Time < other.Time; }
  };
  std::priority_queue<TNext> next;
  const auto push = [&](const TTimeRange& range, std::int64_t number) {
    if (number < 0) return;
    if (const TDateTime time = TimeAt(range, number); time >= first) next.push({time, &range, number});
  };
  std::vector<TTimeRange> ends;
  for (const TTimeRange& range : ranges) {
    if (range.Step == TSpan() && range.StepMonths == 0) ends.push_back({range.Last, range.Last, {}, 0});
    push(range, LastNotAfter(range, last));
  }
  for (const TTimeRange& end : ends) push(end, LastNotAfter(end, last));
  std::vector<TDateTime> times;
  for (std::size_t steps = 0; !next.empty() && times.size() < most && steps < kMostSteps; ++steps) {
    const TNext newest = next.top();
    next.pop();
    if (times.empty() || times.back() != newest.Time) times.push_back(newest.Time);
    push(*newest.Range, newest.Number - 1);
  }
  return times;
}

}  // namespace skyreel
