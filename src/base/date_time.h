#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace skyreel {

/// A point in time, UTC, in whole milliseconds. Days() gives it as a day count: days since 30 December 1899,
/// with the time of day as the fraction. Arithmetic is exact: a slot time built by addition never comes out
/// a minute early. Parts and FormatDateTime work for the years 1 to 9999.
class TDateTime {
 public:
  using TSpan = std::chrono::milliseconds;

  /// The parts of a time in the Gregorian calendar.
  struct TParts {
    int Year = 0, Month = 0, Day = 0, Hour = 0, Minute = 0, Second = 0;
  };

  constexpr TDateTime() = default;
  /// From calendar parts. Throws EConvertError unless they are a real date (years 1 to 9999) and time.
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

/// The time as text. `pattern` may hold, in either letter case: yyyy, yy (year), mmm (English abbreviation,
/// "Nov"), mm (month), dd (day), hh (hour), nn (minute), ss (second). Text in single or double quotes and
/// every other character are copied, a backslash too.
std::string FormatDateTime(std::string_view pattern, TDateTime time);

}  // namespace skyreel
