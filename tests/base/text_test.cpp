#include "base/text.h"

#include <gtest/gtest.h>

#include "base/exceptions.h"

namespace skyreel {
namespace {

TEST(Text, ToIntegerTakesWholeNumbersOnly) {
  EXPECT_EQ(ToInteger(" -42 "), -42);
  EXPECT_EQ(ToInteger("+7"), 7);
  EXPECT_EQ(ToInteger("2147483647"), 2147483647);
  for (const char* bad : {"", " ", "x", "12x", "1 2", "2147483648", "+-1", "--1", "0x10", "1.0"}) {
    EXPECT_THROW(ToInteger(bad), EConvertError) << bad;
  }
}

TEST(Text, SplitsLinesOfAnyEnd) {
  EXPECT_EQ(SplitLines("a\r\nb\nc\rd"), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(SplitLines("a\r\n\r\n"), (std::vector<std::string>{"a", ""}));
  EXPECT_TRUE(SplitLines("").empty());
}

TEST(Text, FileNamesFromServersStayOneComponent) {
  for (const char* good : {"a.gif", "..gif", "MET7 IR.pdu", "caf\xC3\xA9"})
    EXPECT_TRUE(IsSafeFileName(good)) << good;
  for (const std::string& bad : std::vector<std::string>{
           "", ".", "..", "a/b", "a\\b", "c:x", "a\nb", {"a\0b", 3}, "\x7F", std::string(256, 'a')}) {
    EXPECT_FALSE(IsSafeFileName(bad)) << bad;
  }
}

TEST(Text, ReplacesEveryOccurrenceOnce) {
  EXPECT_EQ(ReplaceAll("INDOEX, INDOEX", "INDOEX", "IODC"), "IODC, IODC");
  EXPECT_EQ(ReplaceAll("aaa", "a", "aa"), "aaaaaa");
}

}  // namespace
}  // namespace skyreel
