#include "sources/eu_archive.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using std::chrono::minutes;
using test::Picture;
using test::TScript;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

const TDateTime kDay = TDateTime::FromDate(2005, 11, 10);

// --- Names
// ---------------------------------------------------------------------------------------------------

TEST(EuArchiveItems, AreThoseOfTheTwoPages) {
  const std::vector<std::string>& sectors = EuArchiveSectorItems();
  ASSERT_THAT(sectors, SizeIs(43));
  EXPECT_EQ(sectors[0], "C1D");
  EXPECT_EQ(sectors[8], "C9D");
  EXPECT_EQ(sectors[9], "D1");
  EXPECT_EQ(sectors[35], "F9");
  EXPECT_THAT(std::vector<std::string>(sectors.begin() + 36, sectors.end()),
              ElementsAre("CTOT", "DTOT", "ETOT", "FTOT", "HTOT", "ITOT", "JTOT"));
  const std::vector<std::string>& products = EuArchiveProductItems();
  ASSERT_THAT(products, SizeIs(27));
  EXPECT_EQ(products[0], "M1");
  EXPECT_EQ(products[9], "O1");
  EXPECT_EQ(products[26], "U9");
}

TEST(EuArchiveNames, OldNaming) {
  const struct {
    const char* Item;
    std::size_t Count;
    const char* Listing;  ///< query of the listing
    const char* Noon;     ///< the picture of 12:00
  } cases[] = {
      {"C1D", 48, "m=7,s=1,c=1", "20051110_120000_07_C1D_0.jpg"},
      {"D9", 48, "m=7,s=9,c=2", "20051110_120000_07_D9_0.jpg"},
      {"E2", 48, "m=7,s=2,c=3", "20051110_120000_07_E2_0.jpg"},
      {"CTOT", 48, "m=7,s=0,c=1", "20051110_120000_07_CTOT_0.jpg"},
      {"HTOT", 48, "m=5,s=0,c=1", "20051110_120000_05_CTOT_0.jpg"},
      {"ITOT", 48, "m=5,s=0,c=2", "20051110_120000_05_DTOT_0.jpg"},
      {"JTOT", 48, "m=5,s=0,c=3", "20051110_120000_05_ETOT_0.jpg"},
      {"M1", 48, "m=7,s=1,c=2", "20051110_120000_07_M1_0.jpg"},
      {"U9", 48, "m=7,s=9,c=2", "20051110_120000_07_U9_0.jpg"},
  };
  for (const auto& c : cases) {
    const std::vector<TEuArchiveImage> images = EuArchiveOldImages(c.Item, kDay + minutes(777));
    ASSERT_THAT(images, SizeIs(c.Count)) << c.Item;
    EXPECT_EQ(images[24].RemoteName, std::string("/~idds/images/out/") + c.Noon);
    EXPECT_EQ(images[24].LocalName, std::string(c.Item) + "_24");
    EXPECT_EQ(images[24].Time, kDay + minutes(720));
    EXPECT_THAT(images[47].RemoteName, HasSubstr("20051110_233000_")) << c.Item;
    EXPECT_EQ(EuArchiveListing(c.Item), std::string("/IDDS-cgi/listImages?") + c.Listing + ",o=0,d=0,f=1");
  }
  for (const char* item : {"F1", "F9", "FTOT", "X1", ""})
    EXPECT_THAT(EuArchiveOldImages(item, kDay), IsEmpty());
}

TEST(EuArchiveNames, NewNaming) {
  const struct {
    const char* Item;
    int MsgName;
    int Step;  ///< slots between two pictures
    const char* Noon;
  } cases[] = {
      {"C2D", 0, 2, "1200-BNW-08-VIS006-02-600"},  {"C1D", 1, 6, "1200-BNW-09-VIS006-01-600"},
      {"D2", 2, 2, "1200-BNW-10-IR_108-02-600"},   {"D9", 0, 6, "1200-BNW-08-IR_108-09-600"},
      {"E2", 0, 2, "1200-BNW-08-WV_062-02-600"},   {"F3", 0, 6, "1200-BNW-08-IR_039-03-600"},
      {"F2", 3, 2, "1200-BNW-08-IR_039-02-600"},   {"CTOT", -1, 6, "1200-BNW-08-VIS006-00-800"},
      {"DTOT", 1, 6, "1200-BNW-09-IR_108-00-800"}, {"ETOT", 1, 6, "1200-BNW-09-WV_062-00-800"},
      {"FTOT", 2, 6, "1200-BNW-10-IR_039-00-800"}, {"HTOT", 2, 6, "1200-BNW-07-VIS-00-600"},
      {"ITOT", 0, 6, "1200-BNW-07-IR-00-600"},     {"JTOT", 1, 6, "1200-BNW-07-WV-00-600"},
      {"M1", 1, 2, "1200-RGB-09-AIR-01-1237"},     {"O2", 0, 2, "1200-RGB-08-FOG-02-1237"},
      {"U9", 2, 2, "1200-RGB-10-DUST-09-1237"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Item);
    const std::vector<TEuArchiveImage> images = EuArchiveNewImages(c.Item, kDay, c.MsgName);
    ASSERT_THAT(images, SizeIs(static_cast<std::size_t>(48 / c.Step)));
    const TEuArchiveImage& noon = images[static_cast<std::size_t>(24 / c.Step)];
    EXPECT_EQ(noon.RemoteName, std::string("/~idds/images/out/SDDI-20051110-") + c.Noon + ".jpg");
    EXPECT_EQ(noon.LocalName, std::string(c.Item) + "_24");
    EXPECT_EQ(noon.Time, kDay + minutes(720));
    EXPECT_EQ(images[1].Time, kDay + c.Step * minutes(30));
  }
  for (const char* item : {"X1", "1", ""}) EXPECT_THAT(EuArchiveNewImages(item, kDay, 0), IsEmpty());
}

// --- The listing page
// ----------------------------------------------------------------------------------------

struct TPageCase {
  const char* What;
  std::string Page;
  bool Listing;
  std::vector<int> Slots;  ///< the slots kept
};

TEST(EuArchiveListingPage, KeepsWhatIsListed) {
  const auto name = [](const char* time) {
    return std::string("/~idds/images/out/20051110_") + time + "00_07_C1D_0.jpg";
  };
  const TPageCase cases[] = {
      {"frames",
       "x\nframe0 = \"" + name("1200") + "\";\nframe1 = \"" + name("1230") + "\";\nnumber_of_images = 2;\n",
       true,
       {24, 25}},
      {"carriage returns, and no end",
       "frame0 = \"" + name("0000") + "\";\r\nframe1 = \"" + name("2330") + "\";",
       true,
       {0, 47}},
      {"before the first frame and behind the end nothing counts",
       name("0100") + "\nframe0 = \"" + name("1200") + "\";\nnumber_of_images\n" + name("0200"),
       true,
       {24}},
      {"the page's own text counts, in whatever line", "frame0\n<img src=" + name("0030") + ">", true, {1}},
      {"a name that comes about by taking the quote away",
       "frame00=  /~idds/images/out/20051110\";_003000_07_C1D_0.jpg",
       true,
       {1}},
      {"a name that the server's root completes",
       "frame00 =  /images/out/20051110_003000_07_C1D_0.jpg",
       true,
       {1}},
      {"but not behind an equals sign at the sixth place",
       "frame=  /images/out/20051110_003000_07_C1D_0.jpg\nframe0",
       true,
       {}},
      {"other days, items and times",
       "frame0 = \"/~idds/images/out/20051111_120000_07_C1D_0.jpg\";\n"
       "frame1 = \"/~idds/images/out/20051110_120000_07_C2D_0.jpg\";\n"
       "frame2 = \"/~idds/images/out/20051110_121500_07_C1D_0.jpg\";\nnumber_of_images",
       true,
       {}},
      {"cut off in a name", "frame0 = \"/~idds/images/out/20051110_12", true, {}},
      {"a line that ends at its equals sign", "frame0=\nframe12=\nframe12=x", true, {}},
      {"no list", "<html>not found</html>", false, {}},
      {"nothing", "", false, {}},
      {"binary", std::string("\0\xff\0frame", 8), false, {}},
  };
  for (const TPageCase& c : cases) {
    SCOPED_TRACE(c.What);
    std::vector<TEuArchiveImage> images = EuArchiveOldImages("C1D", kDay);
    EXPECT_EQ(KeepListedImages(c.Page, "http://server/~idds", images), c.Listing);
    std::vector<int> slots;
    for (const TEuArchiveImage& image : images) slots.push_back(std::stoi(image.LocalName.substr(4)));
    EXPECT_EQ(slots, c.Slots);
  }
}

// --- The job
// -------------------------------------------------------------------------------------------------

class TEuArchive : public testing::Test {
 protected:
  ~TEuArchive() override { EXPECT_EQ(fixture_.AtRest(), ""); }

  /// Answers every listing with a page that names all pictures of the item, and every picture with a good
  /// one.
  void ServeAll() {
    fixture_.Server.SetHandler([](const std::string& path, const std::string&) {
      if (!path.starts_with("/IDDS-cgi/")) return test::HttpReply(Picture(10000));
      std::string page = "var a;\nframe0 = \"\";\n";
      for (const char* item : {"C1D", "C2D", "CTOT", "M1"}) {
        for (TDateTime day = TDateTime::FromDate(2004, 2, 27); day < TDateTime::FromDate(2004, 3, 3);
             day = day + std::chrono::days(1)) {
          for (const TEuArchiveImage& image : EuArchiveOldImages(item, day)) {
            page += "frame1 = \"" + image.RemoteName + "\";\n";
          }
        }
        for (const TEuArchiveImage& image :
             EuArchiveOldImages(std::string(item) == "CTOT" ? "HTOT" : item, kDay)) {
          page += "frame1 = \"" + image.RemoteName + "\";\n";
        }
      }
      return test::HttpReply(page + "number_of_images = 1;\n");
    });
  }
  void Run(bool new_naming, std::vector<std::string> items, int back_days = 1) {
    fixture_.Context.Shared.BackDays = back_days;
    TEuArchiveJob(fixture_.Context, {fixture_.OutputPath(), new_naming, 0, std::move(items)}).Run();
  }
  /// The paths asked for, listings and the folder that all pictures share left out.
  std::vector<std::string> Pictures() const {
    const std::string folder = "/~idds/images/out/";
    std::vector<std::string> names;
    for (const std::string& path : fixture_.Server.Paths()) {
      if (path.starts_with(folder)) names.push_back(path.substr(folder.size()));
    }
    return names;
  }
  void At(int year, int month, int day, int hour, int minute, int second = 0) {
    fixture_.Clock.Now = TDateTime::FromDate(year, month, day, hour, minute, second);
  }

  test::TJobFixture fixture_{kDay + minutes(2 * 60)};
};

TEST_F(TEuArchive, NewNamingAsksForComputedNamesAndFilesThem) {
  ServeAll();
  Run(true, {"C2D", "c1d", "HTOT", "M1"});
  EXPECT_THAT(fixture_.Server.Paths(),
              ElementsAre("/~idds/images/out/SDDI-20051110-0000-BNW-08-VIS006-02-600.jpg",
                          "/~idds/images/out/SDDI-20051110-0100-BNW-08-VIS006-02-600.jpg",
                          "/~idds/images/out/SDDI-20051110-0000-BNW-08-VIS006-01-600.jpg",
                          "/~idds/images/out/SDDI-20051110-0000-BNW-07-VIS-00-600.jpg",
                          "/~idds/images/out/SDDI-20051110-0000-RGB-08-AIR-01-1237.jpg",
                          "/~idds/images/out/SDDI-20051110-0100-RGB-08-AIR-01-1237.jpg"));
  EXPECT_THAT(fixture_.Files(),
              ElementsAre("2005/11/10/C1D_00.jpg", "2005/11/10/C2D_00.jpg", "2005/11/10/C2D_02.jpg",
                          "2005/11/10/HTOT_00.jpg", "2005/11/10/M1_00.jpg", "2005/11/10/M1_02.jpg"));
  EXPECT_EQ(GetFileDateTime(fixture_.Output("2005/11/10/M1_02.jpg")), kDay + minutes(60));
  EXPECT_THAT(fixture_.Display.Lines, Each(EndsWith(" - OK")));
  EXPECT_THAT(fixture_.Display.Panels, IsSupersetOf({Pair(0, "C1D 20051110-"), Pair(0, "C2D 20051110-")}));
  EXPECT_THAT(fixture_.Display.Panels, Not(Contains(Pair(1, StartsWith("Getting file list")))));

  Run(true, {"C2D", "c1d", "HTOT", "M1"});
  EXPECT_THAT(fixture_.Server.Paths(), SizeIs(6)) << "a second run finds everything there";
}

TEST_F(TEuArchive, OldNamingAsksTheListingFirst) {
  ServeAll();
  Run(false, {"C1D", "M1"});
  EXPECT_THAT(
      fixture_.Server.Paths(),
      ElementsAre(
          "/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1", "/~idds/images/out/20051110_000000_07_C1D_0.jpg",
          "/~idds/images/out/20051110_003000_07_C1D_0.jpg", "/~idds/images/out/20051110_010000_07_C1D_0.jpg",
          "/IDDS-cgi/listImages?m=7,s=1,c=2,o=0,d=0,f=1", "/~idds/images/out/20051110_000000_07_M1_0.jpg",
          "/~idds/images/out/20051110_003000_07_M1_0.jpg", "/~idds/images/out/20051110_010000_07_M1_0.jpg"));
  EXPECT_THAT(fixture_.Files(),
              ElementsAre("2005/11/10/C1D_00.jpg", "2005/11/10/C1D_01.jpg", "2005/11/10/C1D_02.jpg",
                          "2005/11/10/M1_00.jpg", "2005/11/10/M1_01.jpg", "2005/11/10/M1_02.jpg"));
  EXPECT_THAT(
      fixture_.Display.Panels,
      IsSupersetOf({Pair(0, "C1D 20051110"), Pair(1, "Getting file list for C1D"), Pair(0, "M1 20051110")}));
  EXPECT_TRUE(fixture_.NMHTTPNotts.InputFileMode) << "put back after the listing";
}

TEST_F(TEuArchive, OldNamingKnowsMeteosat7ByItsOtherItemName) {
  ServeAll();
  Run(false, {"HTOT"});
  EXPECT_THAT(fixture_.Server.Paths(), ElementsAre("/IDDS-cgi/listImages?m=5,s=0,c=1,o=0,d=0,f=1",
                                                   "/~idds/images/out/20051110_000000_05_CTOT_0.jpg",
                                                   "/~idds/images/out/20051110_003000_05_CTOT_0.jpg",
                                                   "/~idds/images/out/20051110_010000_05_CTOT_0.jpg"));
  EXPECT_THAT(fixture_.Files(),
              ElementsAre("2005/11/10/HTOT_00.jpg", "2005/11/10/HTOT_01.jpg", "2005/11/10/HTOT_02.jpg"));
  EXPECT_THAT(fixture_.Display.Panels, Contains(Pair(1, "Getting file list for CTOT")));
}

TEST_F(TEuArchive, OldNamingHasNoShortWaveInfraRed) {
  Run(false, {"F1", "FTOT"}, 3);
  EXPECT_THAT(fixture_.Server.Paths(), IsEmpty());
  EXPECT_THAT(fixture_.Files(), IsEmpty());
  EXPECT_THAT(fixture_.Display.Lines, IsEmpty());
}

TEST_F(TEuArchive, SlotsAreAskedForFortyMinutesAfterTheirBegin) {
  ServeAll();
  At(2005, 11, 10, 1, 40);
  Run(true, {"C2D"});
  EXPECT_THAT(Pictures(), ElementsAre(StartsWith("SDDI-20051110-0000")));
  fixture_.Clock.Now = fixture_.Clock.Now + std::chrono::milliseconds(1);
  Run(true, {"C2D"});
  EXPECT_THAT(Pictures(), ElementsAre(StartsWith("SDDI-20051110-0000"), StartsWith("SDDI-20051110-0100")));
}

TEST_F(TEuArchive, DaysAndTheirChangeAtAwkwardTimes) {
  const struct {
    TDateTime Now;
    int BackDays;
    std::vector<std::string> First, Last;  ///< of each day walked: first and last slot asked for; "" none
  } cases[] = {
      {TDateTime::FromDate(2005, 11, 10, 23, 50), 1, {"20051110-0000"}, {"20051110-2300"}},
      {TDateTime::FromDate(2005, 11, 10, 0, 10), 1, {""}, {""}},
      {TDateTime::FromDate(2005, 11, 10, 0, 10), 2, {"", "20051109-0000"}, {"", "20051109-2300"}},
      {TDateTime::FromDate(2005, 11, 1, 0, 45),
       2,
       {"20051101-0000", "20051031-0000"},
       {"20051101-0000", "20051031-2300"}},
      {TDateTime::FromDate(2004, 3, 1, 0, 10),
       3,
       {"", "20040229-0000", "20040228-0000"},
       {"", "20040229-2300", "20040228-2300"}},
      {TDateTime::FromDate(2006, 1, 1, 0, 41),
       2,
       {"20060101-0000", "20051231-0000"},
       {"20060101-0000", "20051231-2300"}},
  };
  for (const auto& c : cases) {
    test::TJobFixture fixture(c.Now);
    fixture.Context.Shared.BackDays = c.BackDays;
    TEuArchiveJob(fixture.Context, {fixture.OutputPath(), true, 0, {"C2D"}}).Run();
    std::vector<std::string> asked;
    for (const std::string& path : fixture.Server.Paths()) asked.push_back(path.substr(23, 13));
    std::vector<std::string> expected;
    for (std::size_t day = 0; day < c.First.size(); ++day) {
      if (c.First[day].empty()) continue;
      const std::string date = c.First[day].substr(0, 9);
      const int last = std::stoi(c.Last[day].substr(9, 2));
      for (int hour = 0; hour <= last; ++hour) {
        expected.push_back(date + (hour < 10 ? "0" : "") + std::to_string(hour) + "00");
      }
    }
    EXPECT_EQ(asked, expected) << FormatDateTime("yyyy-mm-dd hh:nn", c.Now);
  }
}

TEST_F(TEuArchive, LeapDayIsFiledInItsFolder) {
  ServeAll();
  At(2004, 3, 1, 0, 11);
  fixture_.Folder.Write("program/EuArchive.txt", "c1d_47,C1D_00");
  Run(false, {"C1D"}, 2);
  EXPECT_THAT(Pictures(), ElementsAre("20040229_000000_07_C1D_0.jpg", "20040229_233000_07_C1D_0.jpg"));
  EXPECT_THAT(fixture_.Files(), ElementsAre("2004/02/29/C1D_00.jpg", "2004/02/29/C1D_47.jpg"));
}

TEST_F(TEuArchive, FilesThatAreThereAreNotAskedForAgain) {
  const struct {
    bool NewNaming;
    std::size_t Local;
    bool Asked;
  } cases[] = {{false, 999, true}, {false, 1000, false}, {false, 10000, false}, {false, 10001, false},
               {true, 999, true},  {true, 1000, false},  {true, 3000, false},   {true, 3001, false}};
  ServeAll();
  At(2005, 11, 10, 0, 45);
  std::size_t asked = 0;
  for (const auto& c : cases) {
    fixture_.WriteOutput("2005/11/10/C1D_00.jpg", Picture(c.Local, 'o'));
    Run(c.NewNaming, {"C1D"});
    asked += c.Asked ? 1 : 0;
    EXPECT_THAT(Pictures(), SizeIs(asked)) << c.Local;
    EXPECT_EQ(FileSizeOf(fixture_.Output("2005/11/10/C1D_00.jpg")),
              c.Asked ? 10000 : static_cast<int>(c.Local));
  }
}

// --- The list of wanted names
// --------------------------------------------------------------------------------

TEST_F(TEuArchive, WantedNamesLimitTheRun) {
  ServeAll();
  At(2005, 11, 10, 23, 50);
  const struct {
    const char* What;
    std::string List;
    std::vector<std::string> Files;
    const char* Line;  ///< about the list; "" none
  } cases[] = {
      {"one name", "C1D_24", {"C1D_24"}, ""},
      {"letter case and blanks", "c1d_24, \"c1d_30\"", {"C1D_24", "C1D_30"}, ""},
      {"a name a line, marked as UTF-8",
       "\xEF\xBB\xBF"
       "C1D_24\r\nC1D_30\r\n",
       {"C1D_24", "C1D_30"},
       ""},
      {"names of others", "C2D_24,Z", {}, ""},
      {"empty", "", {"C1D_00", "C1D_06", "C1D_12", "C1D_18", "C1D_24", "C1D_30", "C1D_36", "C1D_42"}, ""},
      {"binary",
       std::string("C1D_24\0\1", 8),
       {"C1D_00", "C1D_06", "C1D_12", "C1D_18", "C1D_24", "C1D_30", "C1D_36", "C1D_42"},
       "EuArchive.txt - not used: it is no text"},
      {"huge",
       std::string(5'000'000, ','),
       {"C1D_00", "C1D_06", "C1D_12", "C1D_18", "C1D_24", "C1D_30", "C1D_36", "C1D_42"},
       "EuArchive.txt - not used: it is too large"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.What);
    std::filesystem::remove_all(fixture_.OutputPath());
    fixture_.Display.Lines.clear();
    fixture_.Folder.Write("program/EuArchive.txt", c.List);
    Run(true, {"C1D"});
    std::vector<std::string> files;
    for (const std::string& name : c.Files) files.push_back("2005/11/10/" + name + ".jpg");
    EXPECT_EQ(fixture_.Files(), files);
    if (*c.Line) {
      EXPECT_EQ(fixture_.Display.Lines.front(), c.Line);
    }
    EXPECT_EQ(fixture_.Display.Lines.size(), c.Files.size() + (*c.Line ? 1 : 0));
  }
}

TEST_F(TEuArchive, ListThatCannotBeReadIsSaidAndNotUsed) {
  At(2005, 11, 10, 0, 45);
  std::filesystem::create_directories(fixture_.Folder / "program/EuArchive.txt");
  Run(true, {"C1D"});
  EXPECT_EQ(fixture_.Display.Lines.front(), "EuArchive.txt - not used: Invalid argument");
  EXPECT_THAT(Pictures(), SizeIs(1));
}

// --- Trouble
// -------------------------------------------------------------------------------------------------

TEST_F(TEuArchive, ListingThatFailsCostsOneLineAndNoPicture) {
  const std::string listing = "/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1";
  const struct {
    const char* What;
    TScript Script;
  } cases[] = {
      {"closes", TScript().Close()},
      {"stalls", TScript().Reply("HTTP/1.0 200 OK\r\n\r\nframe0").Stall()},
      {"an error page", TScript().Reply(test::HttpReply("<html>no such script</html>", {}, "404 Not Found"))},
      {"beyond all measure", TScript().Reply("HTTP/1.0 200 OK\r\n\r\n" + std::string(70 << 20, 'f'))},
      {"binary", TScript().Reply(test::HttpReply(std::string(1 << 20, '\0')))},
  };
  fixture_.Context.Shared.TimeoutSeconds = 1;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.What);
    fixture_.Display.Lines.clear();
    fixture_.Display.Panels.clear();
    fixture_.Server.AnswerScript(listing, c.Script);
    Run(false, {"C1D"});
    EXPECT_THAT(fixture_.Display.Lines, ElementsAre(StartsWith("C1D 20051110 - failed to get file list: ")));
    EXPECT_THAT(fixture_.Display.Panels, Contains(Pair(1, "Failed to get file list")));
    EXPECT_THAT(Pictures(), IsEmpty());
    EXPECT_TRUE(fixture_.NMHTTPNotts.InputFileMode);
    EXPECT_EQ(fixture_.AtRest(), "");
  }
}

TEST_F(TEuArchive, MissingPicturesCostOneLineEach) {
  Run(true, {"C2D", "M1"});
  EXPECT_THAT(fixture_.Display.Lines, AllOf(SizeIs(4), Each(EndsWith(".jpg - missing or incomplete"))));
  EXPECT_THAT(fixture_.Files(), IsEmpty());
}

TEST_F(TEuArchive, StopEndsTheRunAfterTheCurrentPicture) {
  for (const bool new_naming : {true, false}) {
    test::TJobFixture fixture(kDay + minutes(23 * 60));
    fixture.Context.Shared.BackDays = 3;
    fixture.Server.SetHandler([&](const std::string& path, const std::string&) {
      if (path.ends_with("0600-BNW-08-VIS006-02-600.jpg") || path.ends_with("060000_07_C2D_0.jpg")) {
        fixture.Run.Stop = true;
      }
      std::string page = "frame0\n";
      for (const TEuArchiveImage& image : EuArchiveOldImages("C2D", kDay)) page += image.RemoteName + "\n";
      return test::HttpReply(path.starts_with("/IDDS") ? page : Picture(10000));
    });
    TEuArchiveJob(fixture.Context, {fixture.OutputPath(), new_naming, 0, {"C2D", "M1"}}).Run();
    EXPECT_THAT(fixture.Files(), SizeIs(new_naming ? 7 : 13));
    EXPECT_EQ(fixture.Files().back(), "2005/11/10/C2D_12.jpg");
    EXPECT_EQ(fixture.AtRest(), "");
  }
}

TEST_F(TEuArchive, FolderThatCannotBeMadeCostsOneLineAndTheRunGoesOn) {
  ServeAll();
  fixture_.WriteOutput("2005/11/10", "a file in the way");
  Run(true, {"C1D", "C2D", "M1"}, 2);
  EXPECT_EQ(fixture_.Display.Lines.front(),
            "Cannot file into " + fixture_.OutputPath() + "2005/11/10/: Not a directory");
  EXPECT_THAT(fixture_.Display.Lines, AllOf(SizeIs(1 + 8 + 24 + 24)));
  EXPECT_THAT(Pictures(), Each(StartsWith("SDDI-20051109-")));
  EXPECT_THAT(fixture_.Tree(), Contains(Pair("2005/11/10", 17)));
}

TEST_F(TEuArchive, OutputFolderThatIsAFileCostsOneLineADay) {
  const auto path = fixture_.WriteOutput("taken", "x");
  fixture_.Context.Shared.BackDays = 2;
  TEuArchiveJob(fixture_.Context, {path.string() + "/", true, 0, {"C1D", "C2D"}}).Run();
  EXPECT_THAT(fixture_.Display.Lines, AllOf(SizeIs(2), Each(EndsWith(": Not a directory"))));
  EXPECT_THAT(fixture_.Server.Paths(), IsEmpty());
}

}  // namespace
}  // namespace skyreel
