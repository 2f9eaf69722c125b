#include "transfer/http_header.h"

#include <gmock/gmock.h>

#include "base/exceptions.h"
#include "support/fakes.h"
#include "support/helpers.h"
#include "transfer/transfer_progress.h"

namespace skyreel {
namespace {

/// What the variables hold when the header says nothing about them.
constexpr std::int32_t kNone = -77;
const TDateTime kNoTime = TDateTime::FromDate(1900, 1, 1);
const TDateTime kSunday = TDateTime::FromDate(1994, 11, 6, 8, 49, 37);

TEST(HttpHeader, LengthAndDateAreReadAsWritten) {
  const std::tuple<std::string, std::int32_t, TDateTime> whole[] = {
      {"HTTP/1.0 200 OK\r\nContent-Length: 123\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n", 123,
       kSunday},
      {"Last-Modified: Sun, 06 Nov 1994 08:49:37 EST\n", kNone, kSunday},  // the zone word is ignored
      {"lAST-mODIFIED: sun, 06 nOV 1994 08:49:37 gmt\ncONTENT-lENGTH: 9\n", 9, kSunday},
      {" Content-Length: 5\nX-Content-Length: 6\nX: Last-Modified: Xyz", kNone, kNoTime},
      {"Content-Length: 5\r\nContent-Length: 6\r\n", 6, kNoTime},
  };
  for (const auto& [header, expected_length, expected_time] : whole) {
    std::int32_t length = kNone;
    TDateTime modified = kNoTime;
    EXPECT_TRUE(ParseHttpHeader(header, length, modified)) << header;
    EXPECT_EQ(length, expected_length) << header;
    EXPECT_EQ(modified, expected_time) << header;
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

TEST(HttpHeader, TheBodysLengthIsReadFromUnusualLinesAndDoubtedWhenItIsNotClear) {
  const std::string six = "Content-Length: 6\r\n", range = six + "Content-Range: bytes ";
  const std::pair<std::string, std::int64_t> rows[] = {
      {"CONTENT-LENGTH \t:6", 6},
      {"Content-Length: 6, 6\n" + six, 6},
      {"Content-Length:\r\n 6\r\n", 6},
      {"X: folded\n " + six, 0},
      {"Content-Length: 99999999999999999999", INT64_MAX},
      {six + "\r\nHTTP/1.0 200 OK\r\nContent-Length: 7\r\n\r\n", 7},
      {range + "0-5/6", 6},
      {"Content-Range: bytes 0-5/7", 7},
      {"Content-Range: bytes 0-9223372036854775807", INT64_MAX}};
  for (const auto& [header, length] : rows)
    EXPECT_EQ(ReadBodyHeader("HTTP/1.0 200 OK\r\n" + header).Length, length) << header;
  for (const char* text :
       {"", "6, 7", "6;", "+6", "-6", "6.0", "6\r\r\nContent-Length: 7",
        "6\nContent-Length:", "6\nContent-Range: bytes 0-5/7", "6\nContent-Range: bytes 6-11/*"})
    EXPECT_EQ(ReadBodyHeader(std::string("Content-Length: ") + text).Length, std::nullopt) << text;
  EXPECT_TRUE(ReadBodyHeader("Content-Encoding: gzip\nContent-Encoding: identity").Encoded);
  EXPECT_FALSE(ReadBodyHeader("Content-Encoding: Identity\nContent-Encoding:").Encoded);
}

TEST(HttpHeader, MonthsAreAbbreviatedInAnyLetterCaseAndRunsAcrossTwoCount) {
  const std::pair<const char*, int> cases[] = {{"Jan", 1}, {"dEc", 12}, {"NFE", 1}, {"No", 0}, {"Sept", 0}};
  for (const auto& [text, month] : cases) EXPECT_EQ(MonthNumber(text), month) << text;
  for (const char* text : {"   ", " JA", "OKT"})
    EXPECT_EQ(test::Failure<ERangeError>([&] { MonthNumber(text); }), "Bad month") << text;
}

TEST(TransferProgress, BarLabelAndTitleFollowTheBytesWithoutOverflow) {
  // Received, total, per cent (-1: the bar does not move).
  const std::tuple<std::int64_t, std::int64_t, int> cases[] = {
      {0, 10, 0},      {999, 1000, 99}, {2, 3, 66},   {1000, 1000, 100}, {INT64_MAX - 1, INT64_MAX, 99},
      {2000, 10, 100}, {17, 0, -1},     {17, -1, -1}, {-5, 100, 0},
  };
  for (const auto& [received, total, percent] : cases) {
    test::TRecordingDisplay display;
    ShowTransferProgress(display, received, total);
    EXPECT_EQ(display.Progress, percent < 0 ? std::vector<int>() : std::vector{percent}) << received;
    const std::string bytes = std::to_string(received) + " bytes";
    EXPECT_THAT(display.BytesLabels, testing::ElementsAre(received == total ? "100%" : bytes));
    EXPECT_THAT(display.Titles, testing::ElementsAre(received == total ? kApplicationTitle : bytes));
  }
}

}  // namespace
}  // namespace skyreel
