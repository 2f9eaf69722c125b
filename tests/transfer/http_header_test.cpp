#include "transfer/http_header.h"

#include <gtest/gtest.h>

#include "base/exceptions.h"

namespace skyreel {
namespace {

/// What the variables hold when the header says nothing about them.
constexpr std::int32_t kUntouched = -77;
const TDateTime kNoTime = TDateTime::FromDate(1900, 1, 1);
const TDateTime kSunday = TDateTime::FromDate(1994, 11, 6, 8, 49, 37);

struct THeaderCase {
  const char* What;
  const char* Header;
  bool Whole;
  std::int32_t Length;
  TDateTime Modified;
};

TEST(HttpHeader, LengthAndDateAreReadAsWritten) {
  const THeaderCase cases[] = {
      {"both",
       "HTTP/1.0 200 OK\r\nContent-Length: 12345\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n",
       true, 12345, kSunday},
      {"the zone word is ignored", "Last-Modified: Sun, 06 Nov 1994 08:49:37 EST\n", true, kUntouched,
       kSunday},
      {"no zone word", "Last-Modified: Sun, 06 Nov 1994 08:49:37", true, kUntouched, kSunday},
      {"letter case", "lAST-mODIFIED: sun, 06 nOV 1994 08:49:37 gmt\ncONTENT-lENGTH: 9\n", true, 9, kSunday},
      {"a run of blanks", "Last-Modified:   Sun,  06   Nov  1994   08:49:37  GMT", true, kUntouched, kSunday},
      {"leap day", "Last-Modified: Tue, 29 Feb 2000 23:59:59 GMT", true, kUntouched,
       TDateTime::FromDate(2000, 2, 29, 23, 59, 59)},
      {"only at the start of a line", " Content-Length: 5\nX-Content-Length: 6\nX: Last-Modified: Xyz", true,
       kUntouched, kNoTime},
      {"the last one wins", "Content-Length: 5\r\nContent-Length: 6\r\n", true, 6, kNoTime},
      {"a negative length is a number", "Content-Length: -1", true, -1, kNoTime},
      {"the largest length", "Content-Length: 2147483647", true, 2147483647, kNoTime},
      {"nothing", "", true, kUntouched, kNoTime},
      {"rubbish", "\x01\x02\r\r\n\n:::\n\xff", true, kUntouched, kNoTime},

      {"a length beyond 32 bits", "Content-Length: 2147483648", false, kUntouched, kNoTime},
      {"a length that is no number", "Content-Length: many", false, kUntouched, kNoTime},
      {"a length followed by text", "Content-Length: 12 bytes", false, kUntouched, kNoTime},
      {"no blank behind the key", "Content-Length:12", false, kUntouched, kNoTime},
      {"an empty length", "Content-Length: ", false, kUntouched, kNoTime},
      {"an unknown month", "Last-Modified: Sun, 06 Xyz 1994 08:49:37 GMT", false, kUntouched, kNoTime},
      {"a month of two letters", "Last-Modified: Sun, 06 No 1994 08:49:37 GMT", false, kUntouched, kNoTime},
      {"a month in full", "Last-Modified: Sun, 06 November 1994 08:49:37 GMT", false, kUntouched, kNoTime},
      {"no such day", "Last-Modified: Wed, 29 Feb 1995 00:00:00 GMT", false, kUntouched, kNoTime},
      {"no such hour", "Last-Modified: Sun, 06 Nov 1994 24:00:00 GMT", false, kUntouched, kNoTime},
      {"no seconds", "Last-Modified: Sun, 06 Nov 1994 08:49", false, kUntouched, kNoTime},
      {"another date form", "Last-Modified: Sunday, 06-Nov-94 08:49:37 GMT", false, kUntouched, kNoTime},
      {"an empty date", "Last-Modified:", false, kUntouched, kNoTime},
      {"what stands before a failure is kept", "Content-Length: 7\nLast-Modified: x\nContent-Length: 8",
       false, 7, kNoTime},
  };
  for (const THeaderCase& c : cases) {
    SCOPED_TRACE(c.What);
    std::int32_t length = kUntouched;
    TDateTime modified = kNoTime;
    EXPECT_EQ(ParseHttpHeader(c.Header, length, modified), c.Whole);
    EXPECT_EQ(length, c.Length);
    EXPECT_EQ(modified, c.Modified);
  }
}

TEST(HttpHeader, HugeHeaderWithoutLineEndIsReadQuicklyAndHarmlessly) {
  std::int32_t length = kUntouched;
  TDateTime modified = kNoTime;
  EXPECT_FALSE(ParseHttpHeader("Last-Modified: " + std::string(1 << 20, ' ') + "x", length, modified));
  EXPECT_TRUE(ParseHttpHeader(std::string(1 << 20, '\r'), length, modified));
}

TEST(MonthNumber, AbbreviationsInAnyLetterCase) {
  const char* const names[] = {"Jan", "feb", "MAR", "aPr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(MonthNumber(names[i]), i + 1) << names[i];
}

TEST(MonthNumber, RunsAcrossTwoMonthsAreFoundToo) {
  EXPECT_EQ(MonthNumber("NFE"), 1);
  EXPECT_EQ(MonthNumber("ANF"), 1);
  EXPECT_EQ(MonthNumber("EBM"), 2);
  EXPECT_EQ(MonthNumber("VDE"), 11);
}

TEST(MonthNumber, OtherLengthsAreZeroAndUnknownWordsThrow) {
  EXPECT_EQ(MonthNumber(""), 0);
  EXPECT_EQ(MonthNumber("No"), 0);
  EXPECT_EQ(MonthNumber("Sept"), 0);
  for (const char* text : {"Xyz", "   ", "  J", " JA", "OKT", "Mai"}) {
    EXPECT_THROW(
        try { MonthNumber(text); } catch (const ERangeError& e) {
          EXPECT_STREQ(e.what(), "Bad month");
          throw;
        },
        ERangeError)
        << text;
  }
}

}  // namespace
}  // namespace skyreel
