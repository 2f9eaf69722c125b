#include "base/comma_text.h"

#include <gtest/gtest.h>

namespace skyreel {
namespace {

using TItems = std::vector<std::string>;

TEST(CommaText, RoundTripsEveryKindOfItem) {
  const TItems items = {"D1", "0000 Met-7 IR", "a,b", "say \"x\"", "", "\ttab", "caf\xC3\xA9"};
  EXPECT_EQ(ToCommaText(items), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\",\"\",\"\ttab\",caf\xC3\xA9");
  EXPECT_EQ(FromCommaText(ToCommaText(items)), items);
}

TEST(CommaText, ReadsWhatPeopleAndOldFilesHold) {
  const std::pair<const char*, TItems> cases[] = {{"", {}},
                                                  {" \r\n ", {}},
                                                  {"D1,D2 , D3", {"D1", "D2", "D3"}},
                                                  {"a b\r\nc", {"a", "b", "c"}},
                                                  {",a", {"", "a"}},
                                                  {"a,", {"a", ""}},
                                                  {"a,,b", {"a", "", "b"}},
                                                  {"\"never closed, by anyone", {"never closed, by anyone"}},
                                                  {"\"x\"y", {"x", "y"}},
                                                  {"in\"side", {"in\"side"}}};
  for (const auto& [text, items] : cases) EXPECT_EQ(FromCommaText(text), items) << text;
}

}  // namespace
}  // namespace skyreel
