#include "catalogue/volume.h"

#include <gmock/gmock.h>

#include "catalogue/sample.h"

namespace skyreel {
namespace {

using test::Described;
using test::kSample;
using test::With;

TEST(Volume, TellsWhatADayAndARunComeTo) {
  const std::string sized =
      With(kSample, "type = \"image/jpeg\"", "type = \"image/jpeg\"\ntypical = \"900KB\"");
  const std::string once = With(sized, "\"VIS\", layer", "\"VIS\", at = \"0300\", layer");
  // The description, the products that are ticked, and what a day and a run of the newest slots give.
  const std::tuple<std::string, std::vector<std::string>, std::string, std::string> cases[] = {
      {kSample, {"VIS"}, "144 pictures a day", "1 picture"},
      {sized, {"VIS", "IR"}, "288 pictures a day, about 259 MB", "2 pictures, about 2 MB"},
      {once, {"VIS", "IR"}, "145 pictures a day, about 130 MB", "2 pictures, about 2 MB"},
      {sized, {}, "0 pictures a day", "0 pictures"}};
  for (const auto& [text, products, daily, newest] : cases) {
    const TDescription source = Described(text);
    const TChoices choices{{"product", products}};
    EXPECT_EQ(DailyVolume(source, choices)->DailyText(), daily);
    const TPlan plan = MakePlan({source, TDateTime::FromDate(2026, 11, 26, 6, 10), choices});
    EXPECT_EQ(VolumeOf(source, plan, {}).Text(), newest);
  }
  TVolume both{1, 999'500'000, true};
  both += {2, 0, false};
  EXPECT_EQ(both.Text(), "3 pictures, more than 1.0 GB");
}

TEST(Volume, TellsHowOftenPicturesCome) {
  TTimeRules time;
  EXPECT_EQ(CadenceText(time), "at irregular times");
  using namespace std::chrono_literals;
  const std::pair<TDateTime::TSpan, const char*> cases[] = {
      {24h, "once a day"}, {1h, "every hour"}, {90min, "every 90 minutes"}, {30s, "every 30 seconds"}};
  for (const auto& [every, text] : cases) {
    time.Every = every;
    EXPECT_EQ(CadenceText(time), text);
  }
}

}  // namespace
}  // namespace skyreel
