#include "sources/msfc_data.h"

#include <gmock/gmock.h>

namespace skyreel {
namespace {

using testing::ElementsAre;

std::vector<std::string> Names(const TMsfcSettings& settings, TDateTime now, int back_days) {
  std::vector<std::string> names;
  for (const TMsfcFile& file : MsfcFiles(settings, now, back_days)) names.push_back(file.Name);
  return names;
}

TMsfcSettings Everything() {
  TMsfcSettings settings;
  settings.Channels = MsfcChannelItems();
  settings.Slots = MsfcSlotItems();
  return settings;
}

TEST(MsfcFiles, AFullDayHasElevenWithoutTheVisibleAtMidnight) {
  EXPECT_THAT(
      Names(Everything(), TDateTime::FromDate(2003, 2, 1, 23, 50), 1),
      ElementsAre("ME7-200302010000.ir1.ara.Z", "ME7-200302010000.ir2.ara.Z", "ME7-200302010600.ir1.ara.Z",
                  "ME7-200302010600.ir2.ara.Z", "ME7-200302010600.vis.ara.Z", "ME7-200302011200.ir1.ara.Z",
                  "ME7-200302011200.ir2.ara.Z", "ME7-200302011200.vis.ara.Z", "ME7-200302011800.ir1.ara.Z",
                  "ME7-200302011800.ir2.ara.Z", "ME7-200302011800.vis.ara.Z"));
}

TEST(MsfcFiles, AnImageIsWantedFromAnHourAfterItsTime) {
  TMsfcSettings settings = Everything();
  settings.Channels = {"IR"};
  const struct {
    TDateTime Now;
    std::size_t Count;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 1, 0, 10), 0}, {TDateTime::FromDate(2003, 2, 1, 0, 59, 59), 0},
      {TDateTime::FromDate(2003, 2, 1, 1, 0), 1},  {TDateTime::FromDate(2003, 2, 1, 12, 59), 2},
      {TDateTime::FromDate(2003, 2, 1, 13, 0), 3}, {TDateTime::FromDate(2003, 2, 1, 19, 0), 4},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Names(settings, c.Now, 1).size(), c.Count) << FormatDateTime("hhnn", c.Now);
}

TEST(MsfcFiles, DaysComeOldestFirstAcrossALeapDay) {
  TMsfcSettings settings;
  settings.Channels = {"VISSN", "WV"};
  settings.Slots = {"0000", "1800"};
  EXPECT_THAT(
      Names(settings, TDateTime::FromDate(2004, 3, 1, 0, 10), 2),
      ElementsAre("ME7-200402290000.ir2.ara.Z", "ME7-200402291800.ir2.ara.Z", "ME7-200402291800.vis.ara.Z"));
}

}  // namespace
}  // namespace skyreel
