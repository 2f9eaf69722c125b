#include "base/date_time.h"

#include <algorithm>
#include <array>

#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {

namespace {

constexpr std::int64_t kDay = 86'400'000;
constexpr std::chrono::sys_days kDayZero = std::chrono::year(1899) / 12 / 30;
constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::int64_t FloorDivide(std::int64_t value, std::int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

}  // namespace

TDateTime TDateTime::FromDate(int year, int month, int day, int hour, int minute, int second) {
  const auto within = [](int value, int low, int high) { return value >= low && value <= high; };
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  // ok() alone is not enough: the month and day keep only 8 bits of the number.
  if (!date.ok() || !within(year, 1, 9999) || !within(month, 1, 12) || !within(day, 1, 31) ||
      !within(hour, 0, 23) || !within(minute, 0, 59) || !within(second, 0, 59)) {
    throw EConvertError("Invalid date or time");
  }
  const std::int64_t days = (std::chrono::sys_days(date) - kDayZero).count();
  return TDateTime(days * kDay + ((hour * 60LL + minute) * 60 + second) * 1000);
}

double TDateTime::Days() const {
  return static_cast<double>(milliseconds_) / static_cast<double>(kDay);
}

std::int64_t TDateTime::UnixTime() const {
  return FloorDivide(milliseconds_, 1000) - kUnixEpochSeconds;
}

TDateTime::TParts TDateTime::Parts() const {
  const std::int64_t days = FloorDivide(milliseconds_, kDay);
  const std::int64_t rest = milliseconds_ - days * kDay;
  const std::chrono::year_month_day date(kDayZero + std::chrono::days(days));
  TParts parts;
  parts.Year = static_cast<int>(date.year());
  parts.Month = static_cast<int>(static_cast<unsigned>(date.month()));
  parts.Day = static_cast<int>(static_cast<unsigned>(date.day()));
  parts.Hour = static_cast<int>(rest / 3'600'000);
  parts.Minute = static_cast<int>(rest / 60'000 % 60);
  parts.Second = static_cast<int>(rest / 1000 % 60);
  return parts;
}

TDateTime TDateTime::RoundedDown(TSpan step) const {
  return TDateTime(FloorDivide(milliseconds_, step.count()) * step.count());
}

std::string FormatDateTime(std::string_view pattern, TDateTime time) {
  const TDateTime::TParts parts = time.Parts();
  const std::string lower = LowerCase(pattern);
  std::string text;
  for (std::size_t i = 0; i < pattern.size();) {
    const char c = pattern[i];
    if (c == '\'' || c == '"') {
      const std::size_t close = std::min(pattern.find(c, i + 1), pattern.size());
      text += pattern.substr(i + 1, close - i - 1);
      i = close + 1;
      continue;
    }
    const std::size_t run = std::min(lower.find_first_not_of(lower[i], i), lower.size()) - i;
    switch (lower[i]) {
      case 'y':
        text += run > 2 ? Digits(parts.Year, 4) : Digits(parts.Year % 100, 2);
        break;
      case 'm':
        text += run > 2 ? kMonths[static_cast<std::size_t>(parts.Month - 1)] : Digits(parts.Month, 2);
        break;
      case 'd':
        text += Digits(parts.Day, 2);
        break;
      case 'h':
        text += Digits(parts.Hour, 2);
        break;
      case 'n':
        text += Digits(parts.Minute, 2);
        break;
      case 's':
        text += Digits(parts.Second, 2);
        break;
      default:
        text += pattern.substr(i, run);
        break;
    }
    i += run;
  }
  return text;
}

}  // namespace skyreel
