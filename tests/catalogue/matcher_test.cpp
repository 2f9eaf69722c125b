#include "catalogue/matcher.h"

#include <gtest/gtest.h>

#include "catalogue/address.h"
#include "catalogue/description.h"
#include "catalogue/sample.h"

namespace skyreel {
namespace {

/// The text as a pattern of the sample's listing.
TFieldText Pattern(const TDescription& source, const std::string& text) {
  return ParseFieldText(text, {source, nullptr, true, false, true},
                        [](std::size_t, const std::string& problem) { ADD_FAILURE() << problem; });
}

TEST(Matcher, FindsTheSlotInTextsOfTheServer) {
  const TDescription source = test::Described(test::kSample);
  const TCombination vis = {0, 1};  // VIS, 22
  struct TCase {
    const char *Pattern, *Text, *Slot;
  };
  const TCase cases[] = {
      {"{product}_{%Y%m%d%H%M}.jpg", "VIS_202611260510.jpg", "2026-11-26 02:10:00"},
      {"{product}_{%Y%m%d%H%M}.jpg", "vis_202611260510.jpg", ""},
      {"{product|lower}{product.layer}_{%y%j}", "visv_26366", ""},
      {"{product|lower}{product.layer}_{%y%j}", "visv_24366", "2024-12-30 21:00:00"},
      {"{%Y%m%d}", "20261126 ", ""},
      {"{%Y%m%d}", "20261131", ""},
      {"{%d%b%Y|upper}", "26NOV2026", "2026-11-25 21:00:00"},
      {"{%d%b%Y|upper}", "26Nov2026", ""},
      {"{%s}", "1795669800", "2026-11-26 05:10:00"},
      {"{%s}{*}", "99999999999999", "5138-11-16 09:46:39"},
      {"{%Y%m%d%H}_{%Y%m%d}", "2026112600_20261125", ""},
      {"{%Y%m%d%H}_{%Y%m%d}", "2026112600_20261126", "2026-11-25 21:00:00"},
      {"{%Y%m%d%H%M%S}_{end:%H%M%S}", "20261126051000_052459", "2026-11-26 02:10:00"},
      {"{%Y%m%d%H%M%S}_{end:%H%M%S}", "20261126051000_052500", ""},
      {"{end:%Y%m%d%H%M%S}", "20261126052459", "2026-11-26 02:10:00"},
      {"{*}_{%Y%m%d}_{*}.nc", "a_b_20261126_c.d.nc", "2026-11-25 21:00:00"},
      {"{*}_{%Y%m%d}_{*}_{%Y%m%d}", "x_20261101_20261102_y_20261102", "2026-11-01 21:00:00"},
      {"{*}a{%Y%m%d}", "b/a20261126", ""},
      {"G{sat}_{%Y%m%d}", "G16_20261126", ""},
      {"G{sat}_{%Y%m%d}", "G19_20261126", "2026-11-25 21:00:00"},
      {"G{sat}_{%Y%m%d}", "G16_20241126", "2024-11-25 21:00:00"},
      {"{{{%Y%m%d}}}", "{20261126}", "2026-11-25 21:00:00"},
  };
  for (const auto& [pattern, text, slot] : cases) {
    const TFieldText parsed = Pattern(source, pattern);
    const TMatcher matcher(parsed, {source, vis, {}, std::chrono::hours(3)}, false);
    const auto found = matcher.SlotOf(text);
    EXPECT_EQ(found ? FormatDateTime("yyyy-mm-dd hh:nn:ss", *found) : "", slot) << pattern << " " << text;
  }
}

TEST(Matcher, GivesUpNamesThatAreMadeToTakeLong) {
  const TDescription source = test::Described(test::kSample);
  const TFieldText pattern = Pattern(source, "{*}a{*}a{*}a{*}a{%Y%m%d}");
  const TMatcher matcher(pattern, {source, {0, 0}}, false);
  EXPECT_FALSE(matcher.SlotOf(std::string(60'000, 'a')));
}

TEST(Address, TheServerChoosesNeitherSchemeNorHost) {
  TDescription source = test::Described(test::kSample);
  TFind find;
  find.Read = {{"path", {}}};
  struct TCase {
    const char *Url, *Found, *Read, *Result;
  };
  const TCase cases[] = {
      {"https://a.org/{found}", "b c%#\xC3\xA9?", "", "https://a.org/b%20c%25%23%C3%A9%3F"},
      {"https://a.org{path}", "", "/v2?x=%41", "https://a.org/v2?x=%41"},
      {"https://a.org{path}", "", ".evil.org/", "! the server's list must not change the host"},
      {"https://a.org{path}", "", "@evil.org/", "! an address holds no user name"},
      {"https://a.org{path}", "", ":99/", "! the server's list must not change the host"},
      {"https{path}", "", "://evil.org/", "! the server's list must not change the host"},
      {"{path}/x", "", "https://b.org", "https://b.org/x"},
      {"{path}/x", "", "http://b.org", "! an address that the server gives must begin with https://"},
      {"{path}/x", "", "file://b.org", "! an address begins with https://, http:// or ftp://"},
      {"{path}/x", "", "https://me@b.org", "! an address holds no user name"},
      {"{path}/x", "", "https://b.org\\@c.org", "! an address holds no user name"},
      {"{path}/x", "", "https://b.org c", "! no host in the address"},
  };
  for (const auto& [url, text, read, result] : cases) {
    const TFieldText parsed =
        ParseFieldText(url, {source, &find}, [](std::size_t, const std::string&) { FAIL(); });
    const TFound found{text, {read}};
    TFieldValues values{source, {0, 1}};
    values.Found = &found;
    const TAddress address = FillAddress(parsed, values, true);
    EXPECT_EQ(address.Problem.empty() ? address.Text : "! " + address.Problem, result) << url;
  }
}

}  // namespace
}  // namespace skyreel
