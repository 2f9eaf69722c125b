#include "sources/eu_archive.h"

#include "sources/wanted_names.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using namespace test;
using namespace testing;

const TDateTime kDay = At("2005-11-10");
const std::string kFolder = "/~idds/images/out/";

/// How many pictures of a day there are, and the noon one's name at the server.
std::string NoonOf(const std::vector<TEuArchiveImage>& images, const std::string& item) {
  if (images.empty()) return "0";
  const TEuArchiveImage& noon = images[images.size() / 2];
  EXPECT_EQ(noon.LocalName + FormatDateTime(" yyyymmddhhnn", noon.Time), item + "_24 200511101200");
  EXPECT_THAT(noon.RemoteName, StartsWith(kFolder));
  return std::to_string(images.size()) + " " + noon.RemoteName.substr(kFolder.size());
}

TEST(EuArchiveNames, FollowTheNamingTheItemAndTheSatellite) {
  const std::pair<const char*, const char*> old[] = {
      {"C1D", "m=7,s=1,c=1 07_C1D"},   {"D9", "m=7,s=9,c=2 07_D9"},     {"E2", "m=7,s=2,c=3 07_E2"},
      {"CTOT", "m=7,s=0,c=1 07_CTOT"}, {"HTOT", "m=5,s=0,c=1 05_CTOT"}, {"ITOT", "m=5,s=0,c=2 05_DTOT"},
      {"JTOT", "m=5,s=0,c=3 05_ETOT"}, {"U9", "m=7,s=9,c=2 07_U9"}};
  for (const auto& [item, expected] : old) {
    const std::string query(expected, 11);
    EXPECT_EQ(EuArchiveListing(item), "/IDDS-cgi/listImages?" + query + ",o=0,d=0,f=1");
    EXPECT_EQ(NoonOf(EuArchiveOldImages(item, kDay + std::chrono::minutes(777)), item),
              "48 20051110_120000_" + std::string(expected + 12) + "_0.jpg");
  }
  for (const char* item : {"F1", "FTOT", "X1", ""})
    EXPECT_EQ(NoonOf(EuArchiveOldImages(item, kDay), item), "0");
  const struct {
    const char* Item;
    int MsgName;
    const char *Count, *Noon;
  } cases[] = {{"C2D", 0, "24", "BNW-08-VIS006-02-600"}, {"C1D", 1, "8", "BNW-09-VIS006-01-600"},
               {"D9", 2, "8", "BNW-10-IR_108-09-600"},   {"E2", 0, "24", "BNW-08-WV_062-02-600"},
               {"F2", 3, "24", "BNW-08-IR_039-02-600"},  {"CTOT", -1, "8", "BNW-08-VIS006-00-800"},
               {"FTOT", 2, "8", "BNW-10-IR_039-00-800"}, {"HTOT", 2, "8", "BNW-07-VIS-00-600"},
               {"ITOT", 0, "8", "BNW-07-IR-00-600"},     {"JTOT", 1, "8", "BNW-07-WV-00-600"},
               {"M1", 1, "24", "RGB-09-AIR-01-1237"},    {"O2", 0, "24", "RGB-08-FOG-02-1237"},
               {"U9", 2, "24", "RGB-10-DUST-09-1237"}};
  for (const auto& c : cases) {
    EXPECT_EQ(NoonOf(EuArchiveNewImages(c.Item, kDay, c.MsgName), c.Item),
              std::string(c.Count) + " SDDI-20051110-1200-" + c.Noon + ".jpg");
  }
  for (const char* item : {"X1", "1", ""}) EXPECT_EQ(NoonOf(EuArchiveNewImages(item, kDay, 0), item), "0");
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
    std::vector<int> Slots;  ///< the slots kept
    TEuArchiveList List = TEuArchiveList::Cut;
  } cases[] = {
      {"only between the marks",
       name("0100") + "\n" + frame("1200") + frame("1230") + "number_of_images\n" + name("0200"),
       {24, 25},
       TEuArchiveList::Whole},
      {"an end before the beginning", "number_of_images\n" + frame("1200"), {24}},
      {"carriage returns, and no end", frame("0000") + "\r\n" + frame("2330"), {0, 47}},
      {"the page's own text, in whatever line", "frame0\n<img src=" + name("0030") + ">", {1}},
      {"made by taking the quote away", "frame00=  " + kFolder + "20051110\";_0030" + end, {1}},
      {"completed by the server's root", "frame00 =  /images/out/20051110_0030" + end, {1}},
      {"an equals sign at the sixth place", "frame=  /images/out/20051110_0030" + end + "\nframe0", {}},
      {"another day", "frame0 = \"" + kFolder + "20051111_1200" + end, {}},
      {"cut off in a name", "frame0 = \"/~idds/images/out/20051110_12", {}},
      {"a line that ends at its equals sign", "frame0=\nframe12=\nframe12=x", {}},
      {"no list", "<html>not found</html>", {}, TEuArchiveList::None},
      {"binary", std::string("\0\xff\0frame", 8), {}, TEuArchiveList::None},
  };
  for (const auto& c : cases) {
    std::vector<TEuArchiveImage> images = EuArchiveOldImages("C1D", kDay);
    std::vector<int> slots;
    EXPECT_EQ(KeepListedImages(c.Page, "http://server/~idds", images), c.List) << c.What;
    for (const TEuArchiveImage& image : images) slots.push_back(std::stoi(image.LocalName.substr(4)));
    EXPECT_EQ(slots, c.Slots) << c.What;
  }
}

TEST(WantedNames, ComeFromAListThatCanBeRead) {
  const struct {
    std::string List;
    const char* Wanted;  ///< of these three names
    std::string Line;
  } cases[] = {{"c1d_24, \"C1D_30\"", "C1D_24 c1d_24 ", ""},
               {"\xEF\xBB\xBF" + std::string("C1D_24\r\nC1D_30\r\n"), "C1D_24 c1d_24 ", ""},
               {"Z", "", ""},
               {"", "C1D_24 c1d_24 Other ", ""},
               {std::string("C1D_24\0\1", 8), "C1D_24 c1d_24 Other ", "a.txt - not used: not a text file"},
               {std::string(5'000'000, ','), "C1D_24 c1d_24 Other ", "a.txt - not used: too large"}};
  const TTempFolder folder;
  TRecordingDisplay display;
  for (const auto& c : cases) {
    const TWantedNames names = TWantedNames::FromFile(folder.Write("a.txt", c.List), display);
    std::string wanted;
    for (const std::string name : {"C1D_24", "c1d_24", "Other"})
      wanted += names.Wants(name) ? name + " " : "";
    EXPECT_EQ(wanted, c.Wanted) << c.List.substr(0, 50);
    EXPECT_EQ(std::exchange(display.Lines, {}), c.Line.empty() ? TWords() : TWords{c.Line});
  }
  EXPECT_TRUE(TWantedNames::FromFile(folder / "none", display).Wants("Z"));
  TWantedNames::FromFile(folder.Path(), display);
  EXPECT_THAT(display.Lines, ElementsAre(EndsWith(" - not used: Invalid argument")));
}

class TEuArchive : public TJobTest {
 protected:
  TEuArchive() : TJobTest("2005-11-10 01:30") {}

  void RunJob(bool new_naming, TWords items) {
    TEuArchiveJob(Context, {OutputPath(), new_naming, 0, std::move(items)}).Run();
  }
  /// What the old naming knows of the day.
  const std::string Listing = [] {
    std::string page = "frame0\n";
    for (const char* item : {"C1D", "C2D", "HTOT"}) {
      for (const TEuArchiveImage& image : EuArchiveOldImages(item, kDay)) page += image.RemoteName + "\n";
    }
    return page + "number_of_images\n";
  }();
};

TEST_F(TEuArchive, ComputedNamesAreAskedForItemByItemOnce) {
  Serve(10000);
  for (int run = 1; run <= 2; ++run) RunJob(true, {"C2D", "c1d", "M1"});
  const std::string begin = kFolder + "SDDI-20051110-0000-";
  EXPECT_THAT(Asked(), ElementsAre(begin + "BNW-08-VIS006-02-600.jpg", begin + "BNW-08-VIS006-01-600.jpg",
                                   begin + "RGB-08-AIR-01-1237.jpg"));
  EXPECT_THAT(Stored(), ElementsAre("2005/11/10/C1D_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/C2D_00.jpg 10000 2005-11-10 00:00",
                                    "2005/11/10/M1_00.jpg 10000 2005-11-10 00:00"));
}

TEST_F(TEuArchive, TheListingIsAskedFirstAndOnlyForWhatItMayHold) {
  Serve(10000, "/IDDS-cgi/", Listing);
  RunJob(false, {"C1D", "F1", "HTOT"});
  EXPECT_THAT(
      Asked(),
      ElementsAre("/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1", kFolder + "20051110_000000_07_C1D_0.jpg",
                  kFolder + "20051110_003000_07_C1D_0.jpg", "/IDDS-cgi/listImages?m=5,s=0,c=1,o=0,d=0,f=1",
                  kFolder + "20051110_000000_05_CTOT_0.jpg", kFolder + "20051110_003000_05_CTOT_0.jpg"));
  EXPECT_THAT(Display.Panels, IsSupersetOf({Pair(0, "C1D 20051110"), Pair(1, "Getting file list for CTOT")}));
}

TEST_F(TEuArchive, AsksForWhatBeganMoreThanFortyMinutesAgoTodayFirst) {
  const struct {
    const char* Now;
    int BackDays;
    std::size_t Count;
    const char *First, *Last;
  } cases[] = {{"2005-11-10 01:40", 1, 1, "20051110-0000", "20051110-0000"},
               {"2005-11-10 01:40:01", 1, 2, "20051110-0000", "20051110-0100"},
               {"2005-11-10 23:50", 1, 24, "20051110-0000", "20051110-2300"},
               {"2005-11-10 00:10", 1, 0, "", ""},
               {"2005-11-01 00:45", 2, 25, "20051101-0000", "20051031-2300"},
               {"2004-03-01 00:10", 3, 48, "20040229-0000", "20040228-2300"}};
  for (const auto& c : cases) {
    Clock.Now = At(c.Now);
    Context.Shared.BackDays = c.BackDays;
    RunJob(true, {"C2D"});
    const TWords asked = Asked();
    ASSERT_THAT(asked, SizeIs(c.Count)) << c.Now;
    if (c.Count == 0) continue;
    const std::string begin = kFolder + "SDDI-", end = "-BNW-08-VIS006-02-600.jpg";
    EXPECT_EQ(asked.front(), begin + c.First + end);
    EXPECT_EQ(asked.back(), begin + c.Last + end);
  }
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
  ExpectStopAt("0600-BNW-08-VIS006-02-600.jpg", [this] { RunJob(true, {"C2D", "M1"}); });
  ExpectStopAt(
      "060000_07_C1D_0.jpg",
      [this] {
        RunJob(false, {"C1D", "C2D"});
      },
      "/IDDS-cgi/", Listing);
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
