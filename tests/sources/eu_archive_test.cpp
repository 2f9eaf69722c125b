#include "sources/eu_archive.h"

#include "sources/source_test.h"
#include "sources/wanted_names.h"

namespace skyreel {
namespace {

using namespace test;
using namespace testing;

const TDateTime kDay = At("2005-11-10");
const std::string kFolder = "/~idds/images/out/";

TEST(EuArchiveNames, OldNaming) {
  const struct {
    const char *Item, *Query, *Name;
  } cases[] = {{"C1D", "m=7,s=1,c=1", "07_C1D"},   {"D9", "m=7,s=9,c=2", "07_D9"},
               {"E2", "m=7,s=2,c=3", "07_E2"},     {"CTOT", "m=7,s=0,c=1", "07_CTOT"},
               {"HTOT", "m=5,s=0,c=1", "05_CTOT"}, {"ITOT", "m=5,s=0,c=2", "05_DTOT"},
               {"JTOT", "m=5,s=0,c=3", "05_ETOT"}, {"U9", "m=7,s=9,c=2", "07_U9"}};
  for (const auto& c : cases) {
    const std::vector<TEuArchiveImage> images = EuArchiveOldImages(c.Item, kDay + std::chrono::minutes(777));
    ASSERT_THAT(images, SizeIs(48u)) << c.Item;
    EXPECT_EQ(images[25].RemoteName, kFolder + "20051110_123000_" + c.Name + "_0.jpg");
    EXPECT_EQ(images[25].LocalName, std::string(c.Item) + "_25");
    EXPECT_EQ(images[25].Time, At("2005-11-10 12:30"));
    EXPECT_EQ(EuArchiveListing(c.Item), std::string("/IDDS-cgi/listImages?") + c.Query + ",o=0,d=0,f=1");
  }
  for (const char* item : {"F1", "FTOT", "X1", ""}) EXPECT_THAT(EuArchiveOldImages(item, kDay), IsEmpty());
}

TEST(EuArchiveNames, NewNaming) {
  const struct {
    const char* Item;
    int MsgName;
    int Step;  ///< slots between two pictures
    const char* Noon;
  } cases[] = {{"C2D", 0, 2, "BNW-08-VIS006-02-600"},  {"C1D", 1, 6, "BNW-09-VIS006-01-600"},
               {"D9", 2, 6, "BNW-10-IR_108-09-600"},   {"E2", 0, 2, "BNW-08-WV_062-02-600"},
               {"F2", 3, 2, "BNW-08-IR_039-02-600"},   {"CTOT", -1, 6, "BNW-08-VIS006-00-800"},
               {"FTOT", 2, 6, "BNW-10-IR_039-00-800"}, {"HTOT", 2, 6, "BNW-07-VIS-00-600"},
               {"ITOT", 0, 6, "BNW-07-IR-00-600"},     {"JTOT", 1, 6, "BNW-07-WV-00-600"},
               {"M1", 1, 2, "RGB-09-AIR-01-1237"},     {"O2", 0, 2, "RGB-08-FOG-02-1237"},
               {"U9", 2, 2, "RGB-10-DUST-09-1237"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Item);
    const std::vector<TEuArchiveImage> images = EuArchiveNewImages(c.Item, kDay, c.MsgName);
    ASSERT_THAT(images, SizeIs(static_cast<std::size_t>(48 / c.Step)));
    const TEuArchiveImage& noon = images[static_cast<std::size_t>(24 / c.Step)];
    EXPECT_EQ(noon.RemoteName, kFolder + "SDDI-20051110-1200-" + c.Noon + ".jpg");
    EXPECT_EQ(noon.LocalName, std::string(c.Item) + "_24");
    EXPECT_EQ(noon.Time, At("2005-11-10 12:00"));
  }
  for (const char* item : {"X1", "1", ""}) EXPECT_THAT(EuArchiveNewImages(item, kDay, 0), IsEmpty());
}

TEST(EuArchiveNames, EveryItemOfThePagesHasPictures) {
  EXPECT_THAT(EuArchiveSectorItems(), SizeIs(43));
  EXPECT_THAT(EuArchiveProductItems(), SizeIs(27));
  for (const std::vector<std::string>& items : {EuArchiveSectorItems(), EuArchiveProductItems()}) {
    for (const std::string& item : items) EXPECT_FALSE(EuArchiveNewImages(item, kDay, 0).empty()) << item;
  }
}

TEST(EuArchiveListingPage, KeepsWhatIsListed) {
  const std::string end = "00_07_C1D_0.jpg";
  const auto name = [&](const char* time) { return kFolder + "20051110_" + time + end; };
  const auto frame = [&](const char* time) { return "frame0 = \"" + name(time) + "\";\n"; };
  const struct {
    const char* What;
    std::string Page;
    std::vector<int> Slots;  ///< the slots kept; -1: the page is no list
  } cases[] = {
      {"only between the marks",
       name("0100") + "\n" + frame("1200") + frame("1230") + "number_of_images\n" + name("0200"),
       {24, 25}},
      {"carriage returns, and no end", frame("0000") + "\r\n" + frame("2330"), {0, 47}},
      {"the page's own text, in whatever line", "frame0\n<img src=" + name("0030") + ">", {1}},
      {"made by taking the quote away", "frame00=  " + kFolder + "20051110\";_0030" + end, {1}},
      {"completed by the server's root", "frame00 =  /images/out/20051110_0030" + end, {1}},
      {"an equals sign at the sixth place", "frame=  /images/out/20051110_0030" + end + "\nframe0", {}},
      {"another day", "frame0 = \"" + kFolder + "20051111_1200" + end, {}},
      {"cut off in a name", "frame0 = \"/~idds/images/out/20051110_12", {}},
      {"a line that ends at its equals sign", "frame0=\nframe12=\nframe12=x", {}},
      {"no list", "<html>not found</html>", {-1}},
      {"binary", std::string("\0\xff\0frame", 8), {-1}},
  };
  for (const auto& c : cases) {
    std::vector<TEuArchiveImage> images = EuArchiveOldImages("C1D", kDay);
    std::vector<int> slots;
    if (!KeepListedImages(c.Page, "http://server/~idds", images)) slots.push_back(-1);
    for (const TEuArchiveImage& image : images) slots.push_back(std::stoi(image.LocalName.substr(4)));
    EXPECT_EQ(slots, c.Slots) << c.What;
  }
}

TEST(WantedNames, ComeFromAListThatCanBeRead) {
  const struct {
    std::string List;
    bool Wanted, OtherWanted;
    TWords Lines;
  } cases[] = {
      {"c1d_24, \"C1D_30\"", true, false, {}},
      {"\xEF\xBB\xBF" + std::string("C1D_24\r\nC1D_30\r\n"), true, false, {}},
      {"Z", false, false, {}},
      {"", true, true, {}},
      {std::string("C1D_24\0\1", 8), true, true, {"a.txt - not used: it is no text"}},
      {std::string(5'000'000, ','), true, true, {"a.txt - not used: it is too large"}},
  };
  const TTempFolder folder;
  for (const auto& c : cases) {
    TRecordingDisplay display;
    const TWantedNames names = TWantedNames::FromFile(folder.Write("a.txt", c.List), display);
    for (const char* name : {"C1D_24", "c1d_24"})
      EXPECT_EQ(names.Wants(name), c.Wanted) << c.List.substr(0, 50);
    EXPECT_EQ(names.Wants("Other"), c.OtherWanted) << c.List.substr(0, 50);
    EXPECT_EQ(display.Lines, c.Lines);
  }
  TRecordingDisplay display;
  EXPECT_TRUE(TWantedNames::FromFile(folder / "none", display).Wants("Z"));
  EXPECT_THAT(display.Lines, IsEmpty());
  TWantedNames::FromFile(folder.Path(), display);
  EXPECT_THAT(display.Lines, ElementsAre(EndsWith(" - not used: Invalid argument")));
}

class TEuArchive : public TSourceTest {
 protected:
  TEuArchive() : TSourceTest("2005-11-10 01:30") {}

  void RunJob(bool new_naming, TWords items) {
    TEuArchiveJob(Context, {OutputPath(), new_naming, 0, std::move(items)}).Run();
  }
  /// A listing of all that the old naming knows of these days.
  static std::string Listing(const std::vector<TDateTime>& days) {
    std::string page = "frame0\n";
    for (const char* item : {"C1D", "C2D", "HTOT"}) {
      for (const TDateTime day : days) {
        for (const TEuArchiveImage& image : EuArchiveOldImages(item, day)) page += image.RemoteName + "\n";
      }
    }
    return page;
  }
};

TEST_F(TEuArchive, NewNamingAsksForComputedNamesAndFilesThem) {
  Clock.Now = At("2005-11-10 02:00");
  Serve(10000);
  for (int run = 1; run <= 2; ++run) RunJob(true, {"C2D", "c1d", "HTOT", "M1"});
  const std::string bnw = kFolder + "SDDI-20051110-0000-BNW-", rgb = kFolder + "SDDI-20051110-0000-RGB-";
  EXPECT_THAT(
      Asked(),
      ElementsAre(bnw + "08-VIS006-02-600.jpg", kFolder + "SDDI-20051110-0100-BNW-08-VIS006-02-600.jpg",
                  bnw + "08-VIS006-01-600.jpg", bnw + "07-VIS-00-600.jpg", rgb + "08-AIR-01-1237.jpg",
                  kFolder + "SDDI-20051110-0100-RGB-08-AIR-01-1237.jpg"))
      << "once: a second run finds everything there";
  EXPECT_THAT(Stored(), ElementsAre("2005/11/10/C1D_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/C2D_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/C2D_02.jpg 10000 2005-11-10 01:00",
                                    "2005/11/10/HTOT_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/M1_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/M1_02.jpg 10000 2005-11-10 01:00"));
  EXPECT_THAT(Lines(), AllOf(SizeIs(6), Each(EndsWith(" - OK"))));
  EXPECT_THAT(Display.Panels, Contains(Pair(0, "C1D 20051110-")));
}

TEST_F(TEuArchive, OldNamingAsksTheListingFirst) {
  Serve(10000, "/IDDS-cgi/", Listing({kDay}));
  RunJob(false, {"C1D", "F1", "HTOT"});
  EXPECT_THAT(
      Asked(),
      ElementsAre("/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1", kFolder + "20051110_000000_07_C1D_0.jpg",
                  kFolder + "20051110_003000_07_C1D_0.jpg", "/IDDS-cgi/listImages?m=5,s=0,c=1,o=0,d=0,f=1",
                  kFolder + "20051110_000000_05_CTOT_0.jpg", kFolder + "20051110_003000_05_CTOT_0.jpg"));
  EXPECT_THAT(Files(), ElementsAre("2005/11/10/C1D_00.jpg", "2005/11/10/C1D_01.jpg", "2005/11/10/HTOT_00.jpg",
                                   "2005/11/10/HTOT_01.jpg"));
  EXPECT_THAT(Display.Panels, IsSupersetOf({Pair(0, "C1D 20051110"), Pair(1, "Getting file list for CTOT")}));
  EXPECT_TRUE(NMHTTPNotts.InputFileMode) << "put back after the listing";
}

TEST_F(TEuArchive, AListingThatIsNoneCostsOneLineAndNoPicture) {
  for (const std::string& page : {std::string("<html>no such script</html>"), std::string(1 << 20, '\0')}) {
    Serve(10000, "/IDDS-cgi/", page);
    RunJob(false, {"C1D"});
    EXPECT_THAT(Lines(), ElementsAre("C1D 20051110 - failed to get file list: the page holds no list"));
    EXPECT_THAT(Display.Panels, Contains(Pair(1, "Failed to get file list")));
    EXPECT_THAT(Asked(), SizeIs(1));
  }
}

TEST_F(TEuArchive, AsksForWhatBeganMoreThanFortyMinutesAgoTodayFirst) {
  const struct {
    const char* Now;
    int BackDays;
    std::vector<std::pair<std::string, int>> Hours;  ///< of each day walked: hours asked for
  } cases[] = {
      {"2005-11-10 01:40", 1, {{"20051110", 1}}},
      {"2005-11-10 01:40:01", 1, {{"20051110", 2}}},
      {"2005-11-10 23:50", 1, {{"20051110", 24}}},
      {"2005-11-10 00:10", 1, {}},
      {"2005-11-01 00:45", 2, {{"20051101", 1}, {"20051031", 24}}},
      {"2004-03-01 00:10", 3, {{"20040229", 24}, {"20040228", 24}}},
      {"2006-01-01 00:41", 2, {{"20060101", 1}, {"20051231", 24}}},
  };
  for (const auto& c : cases) {
    Clock.Now = At(c.Now);
    Context.Shared.BackDays = c.BackDays;
    RunJob(true, {"C2D"});
    TWords expected;
    for (const auto& [date, hours] : c.Hours) {
      for (int hour = 0; hour < hours; ++hour) {
        expected.push_back(kFolder + "SDDI-" + date + (hour < 10 ? "-0" : "-") + std::to_string(hour) +
                           "00-BNW-08-VIS006-02-600.jpg");
      }
    }
    EXPECT_EQ(Asked(), expected) << c.Now;
  }
}

TEST_F(TEuArchive, WantedNamesLimitTheRunAndALeapDayHasItsFolder) {
  Clock.Now = At("2004-03-01 00:11");
  Context.Shared.BackDays = 2;
  Folder.Write("program/EuArchive.txt", "c1d_47,C1D_00");
  Serve(10000, "/IDDS-cgi/", Listing({At("2004-02-28"), At("2004-02-29"), At("2004-03-01")}));
  RunJob(false, {"C1D"});
  EXPECT_THAT(Stored(), ElementsAre("2004/02/29/C1D_00.jpg 10000 2004-02-29 00:00",
                                    "2004/02/29/C1D_47.jpg 10000 2004-02-29 23:30"));
}

TEST_F(TEuArchive, APresentPictureIsNotAskedForAgain) {
  Clock.Now = At("2005-11-10 00:45");
  Serve(10000);
  for (const auto& [size, asked] : {std::pair(999, 1), {1000, 0}, {10001, 0}}) {
    WriteOutput("2005/11/10/C1D_00.jpg", Picture(static_cast<std::size_t>(size)));
    RunJob(true, {"C1D"});
    EXPECT_THAT(Asked(), SizeIs(asked)) << size;
  }
}

TEST_F(TEuArchive, StopEndsTheRunAfterTheCurrentPicture) {
  Clock.Now = At("2005-11-10 23:00");
  Context.Shared.BackDays = 3;
  for (const bool new_naming : {true, false}) {
    const std::string last = new_naming ? "0600-BNW-08-VIS006-02-600.jpg" : "060000_07_C1D_0.jpg";
    Serve(10000, "/IDDS-cgi/", Listing({kDay}), last);
    new_naming ? RunJob(true, {"C2D", "M1"}) : RunJob(false, {"C1D", "C2D"});
    EXPECT_THAT(Asked().back(), EndsWith(last));
  }
  EXPECT_THAT(Files(), SizeIs(7 + 13));
}

TEST_F(TEuArchive, AFolderThatCannotBeMadeCostsOneLineAndTheRunGoesOn) {
  WriteOutput("2005/11/10", "a file in the way");
  Serve(10000);
  Context.Shared.BackDays = 2;
  RunJob(true, {"C1D", "D1"});
  EXPECT_THAT(Asked(), AllOf(SizeIs(8 + 8), Each(StartsWith(kFolder + "SDDI-20051109-"))));
  EXPECT_EQ(Display.Lines.front(), "Cannot file into " + OutputPath() + "2005/11/10/: Not a directory");
  EXPECT_THAT(Lines(), SizeIs(1 + 8 + 8));
}

}  // namespace
}  // namespace skyreel
