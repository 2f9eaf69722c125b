#include "sources/eu_data.h"

#include <gmock/gmock.h>

namespace skyreel {
namespace {

using testing::ElementsAre;

TEST(EuDataItems, AreThoseOfTheServer) {
  EXPECT_THAT(EuDataSatelliteItems(), ElementsAre("M5", "M7"));
  ASSERT_EQ(EuDataSlotItems().size(), 48u);
  EXPECT_EQ(EuDataSlotItems().front(), "0030");
  EXPECT_EQ(EuDataSlotItems()[46], "2330");
  EXPECT_EQ(EuDataSlotItems().back(), "2400");
  EXPECT_EQ(EuDataIntervalItems().size(), 7u);
}

TEST(EuDataWantedSlots, AreEverySoManyRoundTheClock) {
  EXPECT_THAT(EuDataWantedSlots(0, 3),
              ElementsAre("0030", "0330", "0630", "0930", "1230", "1530", "1830", "2130"));
  EXPECT_THAT(EuDataWantedSlots(47, 5), ElementsAre("1200", "2400"));
  EXPECT_THAT(EuDataWantedSlots(46, 4), ElementsAre("0530", "1130", "1730", "2330"));
  EXPECT_THAT(EuDataWantedSlots(5, 6), ElementsAre("0300"));
  EXPECT_EQ(EuDataWantedSlots(7, 0).size(), 48u);
  EXPECT_EQ(EuDataWantedSlots(7, 1).size(), 24u);
  EXPECT_EQ(EuDataWantedSlots(7, 2).size(), 12u);
  // A combo box without a choice gives -1.
  EXPECT_EQ(EuDataWantedSlots(-1, -1).size(), 48u);
  EXPECT_THAT(EuDataWantedSlots(-1, 6), ElementsAre("0030"));
}

TEST(EuDataSlot, MidnightBelongsToTheDayBefore) {
  const struct {
    TDateTime Time;
    const char* Name;
    const char* File;
    const char* Folder;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 1, 12, 30), "1230", "FES_2003-02-01_1230_M7_IR.OPEN_MTP.bz2",
       "2003/02/01"},
      {TDateTime::FromDate(2003, 2, 2), "2400", "FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2", "2003/02/01"},
      {TDateTime::FromDate(2004, 3, 1), "2400", "FES_2004-02-29_2400_M7_IR.OPEN_MTP.bz2", "2004/02/29"},
      {TDateTime::FromDate(2003, 1, 1), "2400", "FES_2002-12-31_2400_M7_IR.OPEN_MTP.bz2", "2002/12/31"},
      {TDateTime::FromDate(2003, 1, 1, 0, 30), "0030", "FES_2003-01-01_0030_M7_IR.OPEN_MTP.bz2",
       "2003/01/01"},
  };
  for (const auto& c : cases) {
    const TEuDataSlot slot = EuDataSlotAt(c.Time);
    EXPECT_EQ(slot.Name, c.Name);
    EXPECT_EQ(EuDataFileName(slot, 1, "IR", "OPEN_MTP.bz2"), c.File);
    EXPECT_EQ(FormatDateTime("yyyy/mm/dd", slot.Day), c.Folder);
    EXPECT_EQ(slot.Time, c.Time);
  }
  EXPECT_EQ(EuDataFileName(EuDataSlotAt(TDateTime::FromDate(2003, 2, 1, 12)), 0, "VISSN", "GIF"),
            "FES_2003-02-01_1200_M5_VISSN.GIF");
}

TEST(EuDataSlots, ReachFromTheOldestToOneDayAgo) {
  const struct {
    TDateTime Now, Newest;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 3, 23, 50), TDateTime::FromDate(2003, 2, 2, 23, 30)},
      {TDateTime::FromDate(2003, 2, 3, 0, 10), TDateTime::FromDate(2003, 2, 2)},
      {TDateTime::FromDate(2004, 3, 1, 0, 29, 59), TDateTime::FromDate(2004, 2, 29)},
      {TDateTime::FromDate(2004, 3, 1, 0, 30), TDateTime::FromDate(2004, 2, 29, 0, 30)},
  };
  for (const auto& c : cases) {
    const auto slots = EuDataSlots(c.Now, 2);
    ASSERT_EQ(slots.size(), 100u);
    EXPECT_EQ(slots.back().Time, c.Newest);
    EXPECT_EQ(slots.front().Time, c.Newest - 99 * std::chrono::minutes(30));
    EXPECT_EQ(slots[1].Time, slots[0].Time + std::chrono::minutes(30));
  }
}

}  // namespace
}  // namespace skyreel
