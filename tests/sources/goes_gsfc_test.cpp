#include "sources/goes_gsfc.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using std::chrono::minutes;
using test::Picture;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class TGoes : public testing::Test {
 protected:
  TGoes() {
    settings_.OutputPath = fixture_.OutputPath();
    fixture_.Context.Shared.BackDays = 1;
  }
  ~TGoes() override { EXPECT_EQ(fixture_.AtRest(), ""); }

  void ServeAll(std::size_t size = 2000) {
    fixture_.Server.SetHandler(
        [size](const std::string&, const std::string&) { return test::HttpReply(Picture(size)); });
  }
  void Run() { TGoesJob(fixture_.Context, settings_).Run(); }
  void At(int year, int month, int day, int hour, int minute) {
    fixture_.Clock.Now = TDateTime::FromDate(year, month, day, hour, minute);
  }
  test::TJobFixture fixture_{TDateTime::FromDate(2006, 1, 2, 1, 30)};
  TGoesSettings settings_;
};

TEST_F(TGoes, ProductsInListOrder) {
  ASSERT_THAT(GoesProductItems(), SizeIs(18));
  EXPECT_EQ(GoesProductItems()[0], "GOES-E conus vis");
  EXPECT_EQ(GoesProductItems()[4], "GOES-E fulldisk IR");
  EXPECT_EQ(GoesProductItems()[8], "GOES-E overview WV");
  EXPECT_EQ(GoesProductItems()[9], "GOES-W conus vis");
  EXPECT_EQ(GoesProductItems()[17], "GOES-W overview WV");
  EXPECT_THAT(GoesSectorNames(), ElementsAre("antilles", "conus", "fulldisk", "overview"));
}

TEST_F(TGoes, EveryProductHasItsPathFolderAndName) {
  // At half past midnight exactly one picture of each product is half an hour old.
  const struct {
    bool Lzw;
    const char* East;
    const char* West;
    const char* End;
    std::size_t Size;
  } variants[] = {{true, "/goeseast-lzw/", "/goeswest-lzw/", ".tif", 2000},
                  {false, "/goeseast/", "/goeswest/", ".tiff", 1'000'000}};
  for (const auto& v : variants) {
    test::TJobFixture fixture(TDateTime::FromDate(2006, 1, 1, 0, 30));
    fixture.Context.Shared.BackDays = 1;
    fixture.Server.SetHandler(
        [&](const std::string&, const std::string&) { return test::HttpReply(Picture(v.Size)); });
    TGoesSettings settings;
    settings.OutputPath = fixture.OutputPath();
    settings.Sectors = GoesProductItems();
    settings.Lzw = v.Lzw;
    TGoesJob(fixture.Context, settings).Run();

    std::vector<std::string> paths;
    std::vector<std::string> lines;
    std::vector<testing::Matcher<std::pair<const std::string, std::int64_t>>> files;
    for (const bool east : {true, false}) {
      for (const char* sector : {"conus", "fulldisk", "overview"}) {
        for (const auto& [folder, code] :
             {std::pair("vis", "I01"), std::pair("ir4", "I04"), std::pair("ir3", "I03")}) {
          const std::string name = (east ? "0512312345G13" : "0601010000G15") + std::string(code) + v.End;
          paths.push_back((east ? v.East : v.West) + std::string(sector) + "/" + folder + "/" + name);
          lines.push_back("Get: " + name);
          lines.push_back(paths.back() + " - OK");
          files.push_back(Pair((east ? "goes-e/" : "goes-w/") + std::string(sector) + "/" + name,
                               static_cast<std::int64_t>(v.Size)));
        }
      }
    }
    EXPECT_EQ(fixture.Server.Paths(), paths);
    EXPECT_EQ(fixture.Display.AllLines, lines);
    EXPECT_THAT(fixture.Tree(), testing::UnorderedElementsAreArray(files));
    EXPECT_EQ(GetFileDateTime(fixture.Output("goes-e/conus/0512312345G13I01" + std::string(v.End))),
              TDateTime::FromDate(2005, 12, 31, 23, 45));
  }
}

TEST_F(TGoes, IntervalsAndTheAgeOfHalfAnHour) {
  settings_.Lzw = true;
  const struct {
    const char* Item;
    int Interval;
    int Hour, Minute;
    std::vector<std::string> Times;
  } cases[] = {
      {"GOES-W conus IR", 0, 2, 0, {"0603010000", "0603010030", "0603010100", "0603010130"}},
      {"GOES-W conus IR", 0, 1, 59, {"0603010000", "0603010030", "0603010100"}},
      {"GOES-W conus IR", 1, 2, 0, {"0603010000", "0603010100"}},
      {"GOES-W conus IR", 2, 3, 0, {"0603010000", "0603010200"}},
      {"GOES-W conus IR",
       3,
       23,
       50,
       {"0603010000", "0603010300", "0603010600", "0603010900", "0603011200", "0603011500", "0603011800",
        "0603012100"}},
      {"GOES-E conus IR",
       3,
       23,
       50,
       {"0602282345", "0603010245", "0603010545", "0603010845", "0603011145", "0603011445", "0603011745",
        "0603012045"}},
      {"GOES-E conus IR", 0, 1, 0, {"0602282345", "0603010015"}},
      {"GOES-E conus IR", 0, 0, 15, {"0602282345"}},
      {"GOES-E conus IR", 0, 0, 10, {}},
      {"GOES-E conus IR", 7, 0, 45, {"0602282345", "0603010015"}},
      {"no such product", 0, 12, 0, {}},
  };
  for (const auto& c : cases) {
    test::TJobFixture fixture(TDateTime::FromDate(2006, 3, 1, c.Hour, c.Minute));
    fixture.Context.Shared.BackDays = 1;
    settings_.OutputPath = fixture.OutputPath();
    settings_.Sectors = {c.Item};
    settings_.Interval = c.Interval;
    TGoesJob(fixture.Context, settings_).Run();
    std::vector<std::string> times;
    for (const std::string& path : fixture.Server.Paths())
      times.push_back(path.substr(path.rfind('/') + 1, 10));
    EXPECT_EQ(times, c.Times) << c.Item << ", interval " << c.Interval << ", " << c.Hour << ":" << c.Minute;
  }
}

TEST_F(TGoes, DailyPassFollowsTheHalfHourlyOneDayByDay) {
  ServeAll();
  At(2004, 3, 1, 18, 1);
  fixture_.Context.Shared.BackDays = 2;
  settings_.Sectors = {"GOES-W overview WV"};
  settings_.Interval = 3;
  settings_.ESector = "antilles";
  settings_.ETime = minutes(17 * 60 + 32);
  settings_.WSector = "fulldisk";
  settings_.WTime = minutes(17 * 60 + 30);
  Run();
  const std::string overview = "/goeswest-lzw/overview/ir3/";
  EXPECT_THAT(
      fixture_.Server.Paths(),
      ElementsAre(overview + "0403010000G15I03.tif", overview + "0403010300G15I03.tif",
                  overview + "0403010600G15I03.tif", overview + "0403010900G15I03.tif",
                  overview + "0403011200G15I03.tif", overview + "0403011500G15I03.tif",
                  // Today's 17:32 is not half an hour old at 18:01, 17:30 is.
                  "/goeswest-lzw/fulldisk/vis/0403011730G15I01.tif",
                  "/goeswest-lzw/fulldisk/ir4/0403011730G15I04.tif",
                  "/goeswest-lzw/fulldisk/ir3/0403011730G15I03.tif", overview + "0402290000G15I03.tif",
                  overview + "0402290300G15I03.tif", overview + "0402290600G15I03.tif",
                  overview + "0402290900G15I03.tif", overview + "0402291200G15I03.tif",
                  overview + "0402291500G15I03.tif", overview + "0402291800G15I03.tif",
                  overview + "0402292100G15I03.tif", "/goeseast-lzw/antilles/vis/0402291732G13I01.tif",
                  "/goeseast-lzw/antilles/ir4/0402291732G13I04.tif",
                  "/goeseast-lzw/antilles/ir3/0402291732G13I03.tif",
                  "/goeswest-lzw/fulldisk/vis/0402291730G15I01.tif",
                  "/goeswest-lzw/fulldisk/ir4/0402291730G15I04.tif",
                  "/goeswest-lzw/fulldisk/ir3/0402291730G15I03.tif"));
  EXPECT_EQ(FileSizeOf(fixture_.Output("goes-e/antilles/0402291732G13I01.tif")), 2000);
  EXPECT_EQ(FileSizeOf(fixture_.Output("goes-w/fulldisk/0403011730G15I03.tif")), 2000);
}

TEST_F(TGoes, DatesInFoldersAreThePicturesOwn) {
  ServeAll();
  At(2005, 1, 1, 1, 0);
  settings_.Sectors = {"GOES-E conus vis"};
  settings_.DateInFolder = true;
  settings_.WSector = "overview";
  Run();
  EXPECT_THAT(fixture_.Files(), ElementsAre("goes-e/conus/2004/12/31/0412312345G13I01.tif",
                                            "goes-e/conus/2005/01/01/0501010015G13I01.tif",
                                            "goes-w/overview/2005/01/01/0501010000G15I01.tif",
                                            "goes-w/overview/2005/01/01/0501010000G15I03.tif",
                                            "goes-w/overview/2005/01/01/0501010000G15I04.tif"));
}

TEST_F(TGoes, SizesDecide) {
  const struct {
    bool Lzw;
    int Local;  ///< bytes of the file that is there already; -1 none
    int Served;
    int After;         ///< -1 none
    const char* Line;  ///< "" nothing is asked for
  } cases[] = {
      {true, -1, 2000, 2000, " - OK"},
      {true, -1, 1999, -1, " - missing or incomplete"},
      {true, 19999, 2000, 2000, " - OK"},
      {true, 19999, 1999, -1, " - missing or incomplete"},
      {true, 19999, 0, 19999, " - timed out"},
      {true, 20000, 50000, 20000, ""},
      {false, -1, 1000000, 1000000, " - OK"},
      {false, -1, 999999, -1, " - missing or incomplete"},
      {false, 999999, 999999, -1, " - missing or incomplete"},
      {false, 1000000, 2000000, 1000000, ""},
  };
  At(2006, 1, 1, 0, 30);
  settings_.Sectors = {"GOES-W conus vis"};
  for (const auto& c : cases) {
    const std::string name = std::string("0601010000G15I01") + (c.Lzw ? ".tif" : ".tiff");
    const std::string path = std::string(c.Lzw ? "/goeswest-lzw" : "/goeswest") + "/conus/vis/" + name;
    SCOPED_TRACE(testing::Message() << name << " " << c.Local << " " << c.Served);
    std::filesystem::remove(fixture_.Output("goes-w/conus/" + name));
    if (c.Local >= 0)
      fixture_.WriteOutput("goes-w/conus/" + name, Picture(static_cast<std::size_t>(c.Local), 'o'));
    ServeAll(static_cast<std::size_t>(c.Served));
    fixture_.Display.Lines.clear();
    settings_.Lzw = c.Lzw;
    Run();
    EXPECT_EQ(FileSizeOf(fixture_.Output("goes-w/conus/" + name)), c.After);
    if (*c.Line) {
      EXPECT_THAT(fixture_.Display.Lines, ElementsAre(path + c.Line));
    } else {
      EXPECT_THAT(fixture_.Display.Lines, IsEmpty());
    }
  }
}

TEST_F(TGoes, ErrorPageInPlaceOfAPictureIsMissing) {
  for (const std::size_t size : {3'000, 2'000'000}) {
    for (const bool lzw : {true, false}) {
      fixture_.Server.SetHandler([size](const std::string&, const std::string&) {
        return test::HttpReply("\n<!DOCTYPE HTML>" + std::string(size, '.'), {}, "404 Not Found");
      });
      settings_.Lzw = lzw;
      settings_.Sectors = {"GOES-W conus vis"};
      At(2006, 1, 1, 0, 30);
      Run();
      EXPECT_THAT(fixture_.Display.Lines.back(), EndsWith(" - missing or incomplete"));
      EXPECT_THAT(fixture_.Files(), IsEmpty());
    }
  }
}

TEST_F(TGoes, OtherVariantsFilesAreNotSeenAsPresent) {
  ServeAll();
  At(2006, 1, 1, 0, 30);
  settings_.Sectors = {"GOES-W conus vis"};
  fixture_.WriteOutput("goes-w/conus/0601010000G15I01.tiff", Picture(1'000'000));
  Run();
  EXPECT_THAT(fixture_.Files(),
              ElementsAre("goes-w/conus/0601010000G15I01.tif", "goes-w/conus/0601010000G15I01.tiff"));
}

TEST_F(TGoes, StopEndsTheRunAtTheNextPicture) {
  settings_.Sectors = GoesProductItems();
  settings_.ESector = "conus";
  settings_.WSector = "conus";
  fixture_.Context.Shared.BackDays = 3;
  At(2006, 1, 2, 23, 0);
  for (const char* last : {"0601020045G13I01.tif", "0601020000G15I04.tif", "0601020000G13I04.tif"}) {
    // The last is the daily pass's second channel.
    if (std::string(last).ends_with("0000G13I04.tif")) settings_.Sectors.clear();
    bool stop = false;
    fixture_.Run.Stop = false;
    fixture_.Server.SetHandler([&](const std::string& path, const std::string&) {
      if (stop) return test::HttpReply("asked for after the stop");
      if (path.ends_with(last)) stop = fixture_.Run.Stop = true;
      return test::HttpReply(Picture(20000));
    });
    Run();
    EXPECT_THAT(fixture_.Server.Paths().back(), EndsWith(last));
  }
}

TEST_F(TGoes, FolderThatCannotBeMadeCostsOneLineAndTheRunGoesOn) {
  ServeAll();
  At(2006, 1, 1, 6, 30);
  fixture_.WriteOutput("goes-w/conus", "a file in the way");
  settings_.Sectors = {"GOES-W conus vis", "GOES-W conus IR", "GOES-W overview vis"};
  settings_.Interval = 3;
  Run();
  EXPECT_THAT(fixture_.Display.Lines,
              ElementsAre("Cannot file into " + fixture_.OutputPath() + "goes-w/conus/: Not a directory",
                          "/goeswest-lzw/overview/vis/0601010000G15I01.tif - OK",
                          "/goeswest-lzw/overview/vis/0601010300G15I01.tif - OK",
                          "/goeswest-lzw/overview/vis/0601010600G15I01.tif - OK"));
}

TEST_F(TGoes, SectorThatWouldLeaveTheOutputFolderIsRefused) {
  ServeAll();
  for (const char* sector : {"..", "../../x", "a/b", "a\\b", "a\nb"}) {
    settings_.ESector = sector;
    Run();
    EXPECT_EQ(fixture_.Display.Lines.back(), "\"" + std::string(sector) + "\" is no sector - skipped");
  }
  EXPECT_THAT(fixture_.Server.Paths(), IsEmpty());
  EXPECT_THAT(fixture_.Folder.Tree(), IsEmpty());
}

TEST_F(TGoes, ServerThatRefusesCostsOneLineAPicture) {
  fixture_.Server.StopListening();
  settings_.Sectors = {"GOES-W conus vis"};
  Run();
  EXPECT_THAT(fixture_.Display.Lines, AllOf(SizeIs(3), Each(EndsWith(".tif - timed out"))));
}

}  // namespace
}  // namespace skyreel
