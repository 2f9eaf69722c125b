#include "sources/goes_gsfc.h"

#include "support/job_fixture.h"

namespace skyreel {
namespace {

using namespace test;
using namespace testing;

class TGoes : public TJobTest {
 protected:
  TGoes() : TJobTest("2006-01-01 00:30") { settings_.OutputPath = OutputPath(); }
  void RunJob() { TGoesJob(Context, settings_).Run(); }

  TGoesSettings settings_;
};

TEST_F(TGoes, EveryProductHasItsPathFolderNameAndTime) {
  // At half past midnight one picture of each product is half an hour old.
  settings_.Sectors = GoesProductItems();
  for (const bool lzw : {true, false}) {
    settings_.Lzw = lzw;
    const int size = lzw ? 2000 : 1'000'000;
    Serve(static_cast<std::size_t>(size));
    RunJob();
    TWords paths, files;
    for (const std::string side : {"east", "west"}) {
      for (const char* sector : {"/conus/", "/fulldisk/", "/overview/"}) {
        for (const auto& [folder, code] : {std::pair("vis/", "I01"), {"ir4/", "I04"}, {"ir3/", "I03"}}) {
          const std::string name = (side == "east" ? "0512312345G13" : "0601010000G15") + std::string(code) +
                                   (lzw ? ".tif" : ".tiff");
          paths.push_back("/goes" + side + (lzw ? "-lzw" : "") + sector + folder + name);
          files.push_back("goes-" + side.substr(0, 1) + sector + name + " " + std::to_string(size) +
                          (side == "east" ? " 2005-12-31 23:45" : " 2006-01-01 00:00"));
        }
      }
    }
    EXPECT_EQ(Asked(), paths);
    EXPECT_THAT(Stored(), UnorderedElementsAreArray(files));
    std::filesystem::remove_all(OutputPath());
  }
}

TEST_F(TGoes, AsksByIntervalForWhatIsHalfAnHourOld) {
  const struct {
    const char* Item;
    int Interval;
    const char* Now;
    TWords Times;
  } cases[] = {
      {"GOES-W conus IR", 0, "2006-03-01 01:59", {"010000", "010030", "010100"}},
      {"GOES-W conus IR", 0, "2006-03-01 02:00", {"010000", "010030", "010100", "010130"}},
      {"GOES-W conus IR", 1, "2006-03-01 02:00", {"010000", "010100"}},
      {"GOES-W conus IR", 2, "2006-03-01 05:00", {"010000", "010200", "010400"}},
      {"GOES-W conus IR", 3, "2006-03-01 09:29", {"010000", "010300", "010600"}},
      {"GOES-E conus IR", 3, "2006-03-01 09:29", {"282345", "010245", "010545", "010845"}},
      {"GOES-E conus IR", 7, "2006-03-01 01:00", {"282345", "010015"}},
      {"GOES-E conus IR", 0, "2006-03-01 00:14", {}},
      {"no such product", 0, "2006-03-01 12:00", {}},
  };
  for (const auto& c : cases) {
    Clock.Now = At(c.Now);
    settings_.Sectors = {c.Item};
    settings_.Interval = c.Interval;
    RunJob();
    TWords times;
    for (const std::string& path : Asked()) times.push_back(path.substr(path.rfind('/') + 5, 6));
    EXPECT_EQ(times, c.Times) << c.Item << ", interval " << c.Interval << ", " << c.Now;
  }
}

TEST_F(TGoes, TheDailyPassFollowsTheHalfHourlyOneIntoFoldersOfThePicturesDate) {
  Clock.Now = At("2004-03-01 03:02");
  settings_.Sectors = {"GOES-E overview WV"};
  settings_.Interval = 3;
  settings_.DateInFolder = true;
  settings_.ESector = "antilles";
  settings_.ETime = std::chrono::minutes(2 * 60 + 32);
  settings_.WSector = "fulldisk";
  settings_.WTime = std::chrono::minutes(2 * 60 + 30);
  Serve(20'000);
  RunJob();
  TWords asked;
  for (const std::string& path : Asked()) asked.push_back(path.substr(14, path.size() - 18));
  EXPECT_THAT(asked, ElementsAre("overview/ir3/0402292345G13I03", "antilles/vis/0403010232G13I01",
                                 "antilles/ir4/0403010232G13I04", "antilles/ir3/0403010232G13I03",
                                 "fulldisk/vis/0403010230G15I01", "fulldisk/ir4/0403010230G15I04",
                                 "fulldisk/ir3/0403010230G15I03"));
  EXPECT_THAT(Files(), IsSupersetOf({"goes-e/overview/2004/02/29/0402292345G13I03.tif",
                                     "goes-w/fulldisk/2004/03/01/0403010230G15I01.tif"}));
}

TEST_F(TGoes, SizesDecide) {
  const struct {
    bool Lzw;
    int Local;  ///< bytes of the file that is there already; -1 none
    int Served, After;
    const char* Line;  ///< "" nothing is asked for
  } cases[] = {
      {true, -1, 2000, 2000, " - OK"},
      {true, -1, 1999, -1, " - missing or incomplete"},
      {true, 19999, 2000, 2000, " - OK"},
      {true, 19999, 1999, -1, " - missing or incomplete"},
      {true, 20000, 50000, 20000, ""},
      {false, 999'999, 1'000'000, 1'000'000, " - OK"},
      {false, -1, 999'999, -1, " - missing or incomplete"},
      {false, 1'000'000, 2'000'000, 1'000'000, ""},
  };
  settings_.Sectors = {"GOES-W conus vis"};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.Lzw << " " << c.Local << " " << c.Served);
    settings_.Lzw = c.Lzw;
    const std::string name = std::string("0601010000G15I01") + (c.Lzw ? ".tif" : ".tiff");
    const std::string path = std::string(c.Lzw ? "/goeswest-lzw" : "/goeswest") + "/conus/vis/" + name;
    std::filesystem::remove_all(Output("goes-w"));
    if (c.Local >= 0) WriteOutput("goes-w/conus/" + name, Picture(static_cast<std::size_t>(c.Local)));
    Serve(static_cast<std::size_t>(c.Served));
    RunJob();
    EXPECT_EQ(FileSizeOf(Output("goes-w/conus/" + name)), c.After);
    EXPECT_EQ(Lines(), *c.Line != '\0' ? TWords{path + c.Line} : TWords());
  }
}

TEST_F(TGoes, StopEndsTheRunAtTheNextPicture) {
  settings_.ESector = "conus";
  Clock.Now = At("2006-01-02 02:00");
  // Of the half-hourly pass, and the second channel of the daily one.
  for (const TWords& sectors : {GoesProductItems(), TWords()}) {
    settings_.Sectors = sectors;
    ExpectStopAt(sectors.empty() ? "0601020000G13I04.tif" : "0601020045G13I01.tif", [this] { RunJob(); });
  }
}

TEST_F(TGoes, ASectorThatWouldLeaveTheOutputFolderIsRefused) {
  for (const char* sector : {"..", "../../x", "a\\b", "a\nb"}) {
    settings_.ESector = sector;
    RunJob();
    EXPECT_THAT(Lines(), ElementsAre("\"" + std::string(sector) + "\" is not a sector - skipped"));
  }
  EXPECT_THAT(Asked(), IsEmpty());
  EXPECT_THAT(Folder.Tree(), IsEmpty());
}

}  // namespace
}  // namespace skyreel
