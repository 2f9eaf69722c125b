#include "transfer/http_header.h"

#include <gtest/gtest.h>

#include "base/exceptions.h"
#include "support/failure.h"

namespace skyreel {
namespace {

/// What the variables hold when the header says nothing about them.
constexpr std::int32_t kNone = -77;
const TDateTime kNoTime = TDateTime::FromDate(1900, 1, 1);
const TDateTime kSunday = TDateTime::FromDate(1994, 11, 6, 8, 49, 37);

TEST(HttpHeader, LengthAndDateAreReadAsWritten) {
  const struct {
    std::string Header;
    std::int32_t Length = kNone;
    TDateTime Modified = kNoTime;
  } whole[] = {
      {"HTTP/1.0 200 OK\r\nContent-Length: 123\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n", 123,
       kSunday},
      {"Last-Modified: Sun, 06 Nov 1994 08:49:37 EST\n", kNone, kSunday},  // the zone word is ignored
      {"lAST-mODIFIED: sun, 06 nOV 1994 08:49:37 gmt\ncONTENT-lENGTH: 9\n", 9, kSunday},
      {"Last-Modified: x, 29 Feb 2000 23:59:59", kNone, TDateTime::FromDate(2000, 2, 29, 23, 59, 59)},
      {" Content-Length: 5\nX-Content-Length: 6\nX: Last-Modified: Xyz"},
      {"Content-Length: 5\r\nContent-Length: 6\r\n", 6},
  };
  for (const auto& c : whole) {
    std::int32_t length = kNone;
    TDateTime modified = kNoTime;
    EXPECT_TRUE(ParseHttpHeader(c.Header, length, modified)) << c.Header;
    EXPECT_EQ(length, c.Length) << c.Header;
    EXPECT_EQ(modified, c.Modified) << c.Header;
  }
  for (const std::string header :
       {"Content-Length: 2147483648", "Content-Length: 12 bytes", "Content-Length:12",
        "Last-Modified: Sun, 06 Xyz 1994 08:49:37 GMT", "Last-Modified: Sun, 06 No 1994 08:49:37 GMT",
        "Last-Modified: Wed, 29 Feb 1995 00:00:00 GMT", "Last-Modified: Sun, 06 Nov 1994 08:49",
        "Last-Modified: Sunday, 06-Nov-94 08:49:37 GMT", "Last-Modified:"}) {
    // What stands before a failure is kept.
    std::int32_t length = kNone;
    TDateTime modified = kNoTime;
    EXPECT_FALSE(ParseHttpHeader("Content-Length: 7\n" + header + "\nContent-Length: 8", length, modified));
    EXPECT_EQ(length, 7) << header;
    EXPECT_EQ(modified, kNoTime) << header;
  }
}

TEST(MonthNumber, AbbreviationsInAnyLetterCaseAndRunsAcrossTwoMonths) {
  const std::pair<const char*, int> cases[] = {{"Jan", 1}, {"feb", 2}, {"NOV", 11}, {"dEc", 12},
                                               {"NFE", 1}, {"No", 0},  {"Sept", 0}};
  for (const auto& [text, month] : cases) EXPECT_EQ(MonthNumber(text), month) << text;
  for (const char* text : {"   ", " JA", "OKT"})
    EXPECT_EQ(test::Failure<ERangeError>([&] { MonthNumber(text); }), "Bad month") << text;
}

TEST(HttpHeader, APageBeginsWithItsMark) {
  for (const std::string page : {" \r\n\t<HTML lang=en>", "<!doctype"}) {
    EXPECT_TRUE(IsHtmlPage(std::string(2'000'000, ' ') + page));
    EXPECT_FALSE(IsHtmlPage("x" + page) || IsHtmlPage(page.substr(0, 5)));
  }
}

}  // namespace
}  // namespace skyreel
