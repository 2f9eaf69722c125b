#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/comma_text.h"
#include "base/date_time.h"
#include "base/exceptions.h"
#include "base/text.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using TItems = std::vector<std::string>;

TEST(Text, OnlyWholeNumbersAreTaken) {
  EXPECT_EQ(ToInteger(" -42 "), -42);
  EXPECT_EQ(ToInteger("+2147483647"), 2147483647);
  for (const char* bad : {"", "x", "12x", "1 2", "2147483648", "+-1", "--1", "0x10", "1.0"})
    EXPECT_THROW(ToInteger(bad), EConvertError) << bad;
  EXPECT_EQ(ParseNumber<std::uint8_t>("256", 10, 255), 255);
  EXPECT_EQ(ParseNumber<std::uint8_t>("25x", 10, 255), std::nullopt);
}

TEST(Text, FileNamesFromServersStayOneComponent) {
  for (const char* good : {"a.gif", "..gif", "MET7 IR.pdu", "caf\xC3\xA9"})
    EXPECT_TRUE(IsSafeFileName(good)) << good;
  for (const std::string& bad :
       TItems{"", ".", "..", "a/b", "a\\b", "c:x", "a\nb", {"a\0b", 3}, "\x7F", std::string(256, 'a')})
    EXPECT_FALSE(IsSafeFileName(bad)) << bad;
}

TEST(Text, LinesOccurrencesAndBase64) {
  EXPECT_EQ(SplitLines("a\r\nb\nc\rd\r\n\r\n"), (TItems{"a", "b", "c", "d", ""}));
  EXPECT_EQ(ReplaceAll("aaa", "a", "aa"), "aaaaaa");
  const std::pair<std::string, const char*> rows[] = {
      {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}, {std::string("\xFF\xFE\x00", 3), "//4A"}};
  for (const auto& [data, text] : rows) EXPECT_EQ(Base64(data), text);
}

TEST(CommaText, ReadsWhatPeopleAndOldFilesHold) {
  const std::pair<const char*, TItems> cases[] = {
      {" \r\n ", {}},
      {"D1,D2 , D3 a\r\nb", {"D1", "D2", "D3", "a", "b"}},
      {",a,,b,", {"", "a", "", "b", ""}},
      {"in\"side,\"x\"y \"never closed, by anyone", {"in\"side", "x", "y", "never closed, by anyone"}}};
  for (const auto& [text, items] : cases) EXPECT_EQ(FromCommaText(text), items) << text;
  const TItems items = {"D1", "0000 Met-7 IR", "a,b", "say \"x\"", "", "\ttab", "caf\xC3\xA9"};
  EXPECT_EQ(ToCommaText(items), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\",\"\",\"\ttab\",caf\xC3\xA9");
  EXPECT_EQ(FromCommaText(ToCommaText(items)), items);
}

TEST(DateTime, CountsDaysFromThirtiethOfDecember1899) {
  const TDateTime noon = TDateTime::FromDate(2026, 11, 24, 12);
  EXPECT_EQ(noon.Days(), 46350.5);
  EXPECT_EQ((noon + 59min).RoundedDown(15min) - noon, 45min);
  EXPECT_EQ(TDateTime::FromDate(1899, 12, 1, 6).Midnight(), TDateTime::FromDate(1899, 12, 1));
}

TEST(DateTime, RefusesInvalidDatesAndTimes) {
  using TParts = TDateTime::TParts;
  for (const TParts& p : {TParts{2023, 2, 29}, TParts{2024, 0, 1}, TParts{2024, 4, 31}, TParts{2024, 258, 1},
                          TParts{0, 1, 1}, TParts{2024, 1, 1, 24}, TParts{2024, 1, 1, 0, 60}})
    EXPECT_THROW(TDateTime::FromDate(p.Year, p.Month, p.Day, p.Hour, p.Minute), EConvertError) << p.Year;
}

TEST(DateTime, FormatsThePatternsOfTheJobs) {
  const std::pair<const char*, const char*> cases[] = {{"yyyy\\mm\\dd\\", "2005\\11\\03\\"},
                                                       {"YYYY-mMm-dd hhnn", "2005-Nov-03 0407"},
                                                       {"yymmddhh':'nnss.", "05110304:0709."},
                                                       {"_\"2400\"Aa'open", "_2400Aaopen"}};
  for (const auto& [pattern, text] : cases)
    EXPECT_EQ(FormatDateTime(pattern, TDateTime::FromDate(2005, 11, 3, 4, 7, 9)), text) << pattern;
}

TEST(SystemClock, SleepsInShortStepsThatLetEventsThrough) {
  int events = 0;
  const auto start = std::chrono::steady_clock::now();
  TSystemClock([&events] { ++events; }).Sleep(20ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
  EXPECT_TRUE(events >= 1 && events <= 5) << events;
}

}  // namespace
}  // namespace skyreel
