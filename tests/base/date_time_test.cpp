#include "base/date_time.h"

#include <gtest/gtest.h>

#include <array>

#include "base/exceptions.h"

namespace skyreel {
namespace {

using std::chrono::minutes;

TEST(DateTime, CountsDaysFromThirtiethOfDecember1899) {
  EXPECT_EQ(TDateTime::FromDate(1970, 1, 1, 0, 0, 1).UnixTime(), 1);
  EXPECT_EQ(TDateTime::FromDate(2026, 11, 24, 12).Days(), 46350.5);
  EXPECT_EQ(TDateTime::FromDate(1899, 12, 1, 6).Midnight(), TDateTime::FromDays(-29));
  EXPECT_EQ(TDateTime::FromDate(1899, 12, 1, 6).Parts().Hour, 6);
  EXPECT_EQ(TDateTime::FromDate(2024, 3, 1) - std::chrono::days(1), TDateTime::FromDate(2024, 2, 29));
}

TEST(DateTime, SlotsOfTheDayNeverComeOutAMinuteEarly) {
  for (int slot = 0; slot < 96; ++slot) {
    const TDateTime time = TDateTime::FromDate(2026, 11, 24) + slot * minutes(15);
    // A day count with a binary fraction, as a job's "now" may be.
    EXPECT_EQ(TDateTime::FromDays(46350.0 + slot / 96.0), time) << slot;
    EXPECT_EQ(time.Parts().Minute, slot % 4 * 15);
    EXPECT_EQ((time + minutes(14)).RoundedDown(minutes(15)), time);
  }
}

TEST(DateTime, RefusesWhatIsNoDateOrTime) {
  const std::array<int, 5> cases[] = {{2023, 2, 29, 0, 0}, {2024, 0, 1, 0, 0},  {2024, 4, 31, 0, 0},
                                      {0, 1, 1, 0, 0},     {2024, 1, 1, 24, 0}, {2024, 1, 1, 0, 60}};
  for (const auto& [year, month, day, hour, minute] : cases)
    EXPECT_THROW(TDateTime::FromDate(year, month, day, hour, minute), EConvertError) << year << "-" << month;
}

TEST(DateTime, FormatsThePatternsOfTheJobs) {
  const std::pair<const char*, const char*> cases[] = {
      {"yyyy\\mm\\dd\\", "2005\\11\\03\\"},        {"_hhnn00", "_040700"},
      {"YYYY-mMm-dd hhnn", "2005-Nov-03 0407"},    {"yyyy-mm-dd_\"2400\"Aa", "2005-11-03_2400Aa"},
      {"d.m.yy h':'n:s.zzz", "3.11.05 4:7:9.000"}, {"'open", "open"}};
  for (const auto& [pattern, text] : cases)
    EXPECT_EQ(FormatDateTime(pattern, TDateTime::FromDate(2005, 11, 3, 4, 7, 9)), text) << pattern;
}

}  // namespace
}  // namespace skyreel
