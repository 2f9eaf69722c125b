#include "base/text.h"

#include <gtest/gtest.h>

#include "base/comma_text.h"
#include "base/exceptions.h"

namespace skyreel {
namespace {

using TItems = std::vector<std::string>;

TEST(Text, ToIntegerTakesWholeNumbersOnly) {
  EXPECT_EQ(ToInteger(" -42 "), -42);
  EXPECT_EQ(ToInteger("+2147483647"), 2147483647);
  for (const char* bad : {"", "x", "12x", "1 2", "2147483648", "+-1", "--1", "0x10", "1.0"})
    EXPECT_THROW(ToInteger(bad), EConvertError) << bad;
}

TEST(Text, FileNamesFromServersStayOneComponent) {
  for (const char* good : {"a.gif", "..gif", "MET7 IR.pdu", "caf\xC3\xA9"})
    EXPECT_TRUE(IsSafeFileName(good)) << good;
  for (const std::string& bad :
       TItems{"", ".", "..", "a/b", "a\\b", "c:x", "a\nb", {"a\0b", 3}, "\x7F", std::string(256, 'a')})
    EXPECT_FALSE(IsSafeFileName(bad)) << bad;
}

TEST(Text, LinesAndOccurrences) {
  EXPECT_EQ(SplitLines("a\r\nb\nc\rd\r\n\r\n"), (TItems{"a", "b", "c", "d", ""}));
  EXPECT_EQ(ReplaceAll("aaa", "a", "aa"), "aaaaaa");
}

TEST(CommaText, ReadsWhatPeopleAndOldFilesHold) {
  const std::pair<const char*, TItems> cases[] = {{" \r\n ", {}},
                                                  {"D1,D2 , D3", {"D1", "D2", "D3"}},
                                                  {"a b\r\nc", {"a", "b", "c"}},
                                                  {",a,,b,", {"", "a", "", "b", ""}},
                                                  {"\"never closed, by anyone", {"never closed, by anyone"}},
                                                  {"\"x\"y", {"x", "y"}},
                                                  {"in\"side", {"in\"side"}}};
  for (const auto& [text, items] : cases) EXPECT_EQ(FromCommaText(text), items) << text;
  const TItems items = {"D1", "0000 Met-7 IR", "a,b", "say \"x\"", "", "\ttab", "caf\xC3\xA9"};
  EXPECT_EQ(ToCommaText(items), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\",\"\",\"\ttab\",caf\xC3\xA9");
  EXPECT_EQ(FromCommaText(ToCommaText(items)), items);
}

}  // namespace
}  // namespace skyreel
