#include "sources/goes_gsfc.h"

#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

class TGoes : public TJobTest {
 protected:
  void RunJob(const std::string& now) {
    Clock.Now = At(now);
    RunPlanned([this](TJobContext& context) { TGoesJob(context, settings_).Run(); });
  }
  TGoesSettings settings_{OutputPath(), GoesProductItems(), 0, "", ""};
};

TEST_F(TGoes, HalfHourlyThenDailyPicturesAreFetchedIntoTheirFolders) {
  settings_ = {OutputPath(), GoesProductItems(), 3, "antilles", "fulldisk", 152min, 150min, true};
  WriteOutput("goes-e/antilles/2004/03/01/0403010232G13I01.tif", Picture(20'000));
  WriteOutput("goes-w/fulldisk/2004/03/01/0403010230G15I01.tif", Picture(19'999));
  Serve(2'000);
  Server.Answer("/goeswest-lzw/fulldisk/ir3/0403010230G15I03.tif", Picture(1'999));
  RunJob("2004-03-01 03:02");
  EXPECT_THAT(Asked(), AllOf(SizeIs(18 + 5), Contains("/goeswest-lzw/overview/ir4/0403010000G15I04.tif")));
  EXPECT_THAT(Stored(),
              IsSupersetOf({"goes-e/antilles/2004/03/01/0403010232G13I04.tif 2000 2004-03-01 02:32",
                            "goes-e/conus/2004/02/29/0402292345G13I01.tif 2000 2004-02-29 23:45",
                            "goes-w/fulldisk/2004/03/01/0403010230G15I01.tif 2000 2004-03-01 02:30"}));
  EXPECT_EQ(
      Results()[0],
      "Tab: GOES-E conus vis 2004-02-29 2345, http://server/goeseast-lzw/conus/vis/0402292345G13I01.tif > "
      "goes-e/conus/2004/02/29/0402292345G13I01.tif - OK");
  EXPECT_EQ(Lines().back(), "/goeswest-lzw/fulldisk/ir3/0403010230G15I03.tif - missing or incomplete");
}

TEST_F(TGoes, AnUncompressedPictureHasAMillionBytes) {
  settings_ = {OutputPath(), {"GOES-W conus vis"}, 0, "", "", 0min, 0min, false, false};
  for (const auto& [size, outcome] :
       {std::pair(999'999U, "999999 of 1000000 bytes"), {1'000'000, ".tiff - OK"}}) {
    Serve(size);
    RunJob("2006-01-01 00:30");
    EXPECT_THAT(Results(), ElementsAre(AllOf(HasSubstr("/goeswest/conus/vis/0601010000G15I01.tiff > "),
                                             EndsWith(outcome))));
  }
  RunJob("2006-01-01 00:30");
  EXPECT_THAT(Results(), IsEmpty());
}

TEST_F(TGoes, StopEndsEitherPassAtTheNextPicture) {
  ExpectStopAt("0601020045G13I01.tif", [this] { RunJob("2006-01-02 02:00"); });
  settings_ = {OutputPath(), {}, 0, "conus", ""};
  ExpectStopAt("0601020000G13I04.tif", [this] { RunJob("2006-01-02 02:00"); });
}

TEST_F(TGoes, TheIntervalGivesThePicturesOfADayAndAHostileSectorNone) {
  settings_.Sectors = {"GOES-W conus IR", "no such product"};
  settings_.WSector = "../x";
  for (const auto& [interval, pictures] : {std::pair(0, 47), {1, 24}, {2, 12}, {3, 8}, {4, 47}, {-1, 47}}) {
    settings_.Interval = interval;
    RunJob("2006-03-01 23:59");
    EXPECT_THAT(Asked(), SizeIs(pictures)) << interval;
    EXPECT_EQ(Lines()[0], "\"../x\" is not a sector - skipped");
  }
}

}  // namespace
}  // namespace skyreel::test
