#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace skyreel {

/// A point in time, UTC, in whole milliseconds. Its outside view is a day count: whole days since
/// 30 December 1899, the time of day as the fraction. Arithmetic is exact, so that slot times built by
/// addition never come out a minute early. Years 1 to 9999 can be formatted and taken apart.
class TDateTime {
 public:
  using TSpan = std::chrono::milliseconds;

  /// The parts of a time in the Gregorian calendar.
  struct TParts {
    int Year = 0, Month = 0, Day = 0, Hour = 0, Minute = 0, Second = 0, Millisecond = 0;
  };

  constexpr TDateTime() = default;
  static constexpr TDateTime FromMilliseconds(std::int64_t milliseconds) { return TDateTime(milliseconds); }
  /// From a day count, rounded to the nearest millisecond.
  static TDateTime FromDays(double days);
  /// From calendar parts. Throws EConvertError unless they name a real date (years 1 to 9999) and time.
  static TDateTime FromParts(const TParts& parts);
  static TDateTime FromDate(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
  /// From seconds since 1 January 1970.
  static constexpr TDateTime FromUnixTime(std::int64_t seconds) {
    return TDateTime((seconds + kUnixEpochSeconds) * 1000);
  }

  constexpr std::int64_t Milliseconds() const { return milliseconds_; }
  double Days() const;
  /// Seconds since 1 January 1970, rounded down.
  std::int64_t UnixTime() const;
  TParts Parts() const;
  constexpr bool IsZero() const { return milliseconds_ == 0; }

  /// The last multiple of `step` (counted from day zero) that is not later than this time.
  TDateTime RoundedDown(TSpan step) const;
  /// Midnight of this day.
  TDateTime Midnight() const { return RoundedDown(std::chrono::days(1)); }

  constexpr auto operator<=>(const TDateTime&) const = default;
  constexpr TDateTime operator+(TSpan span) const { return TDateTime(milliseconds_ + span.count()); }
  constexpr TDateTime operator-(TSpan span) const { return TDateTime(milliseconds_ - span.count()); }
  constexpr TSpan operator-(TDateTime other) const { return TSpan(milliseconds_ - other.milliseconds_); }

 private:
  /// 1 January 1970 is day 25569.
  static constexpr std::int64_t kUnixEpochSeconds = 25569LL * 86400;
  explicit constexpr TDateTime(std::int64_t milliseconds) : milliseconds_(milliseconds) {}
  std::int64_t milliseconds_ = 0;
};

/// The time as text. In `pattern`, in either letter case: yyyy, yy (year), mmm (English abbreviation, "Nov"),
/// mm, m (month), dd, d (day), hh, h (0 to 23), nn, n (minute), ss, s (second), zzz (millisecond). Text in
/// single or double quotes and every other character stand for themselves, a backslash included.
std::string FormatDateTime(std::string_view pattern, TDateTime time);

}  // namespace skyreel
