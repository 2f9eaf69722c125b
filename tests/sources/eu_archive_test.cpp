#include "sources/eu_archive.h"

#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

const TDateTime kDay = At("2005-11-10");
const std::string kFolder = "/~idds/images/out/";

TEST(EuArchivePlan, FollowsTheNamingTheItemAndTheSatellite) {
  // Of each item the query for the list, and how many pictures of a day there are and the noon one's name.
  std::string plan;
  int msg_name = -1;
  for (const char* item :
       {"C1D", "C2D", "D9", "E2", "F2", "CTOT", "HTOT", "ITOT", "JTOT", "M1", "O2", "U9", "X"}) {
    plan += item + EuArchiveListing(item).substr(20, 12);
    const auto new_images = EuArchiveNewImages(item, kDay + 777min, msg_name++ % 4);
    for (const auto& images : {EuArchiveOldImages(item, kDay + 777min), new_images}) {
      if (!images.empty())
        plan += " " + std::to_string(images.size()) + images[images.size() / 2].RemoteName.substr(17);
    }
    plan += "\n";
  }
  EXPECT_EQ(plan,
            R"(C1D?m=7,s=1,c=1 48/20051110_120000_07_C1D_0.jpg 8/SDDI-20051110-1200-BNW-08-VIS006-01-600.jpg
C2D?m=7,s=2,c=1 48/20051110_120000_07_C2D_0.jpg 24/SDDI-20051110-1200-BNW-08-VIS006-02-600.jpg
D9?m=7,s=9,c=2 48/20051110_120000_07_D9_0.jpg 8/SDDI-20051110-1200-BNW-09-IR_108-09-600.jpg
E2?m=7,s=2,c=3 48/20051110_120000_07_E2_0.jpg 24/SDDI-20051110-1200-BNW-10-WV_062-02-600.jpg
F2?m=7,s=2,c=0 24/SDDI-20051110-1200-BNW-08-IR_039-02-600.jpg
CTOT?m=7,s=0,c=1 48/20051110_120000_07_CTOT_0.jpg 8/SDDI-20051110-1200-BNW-08-VIS006-00-800.jpg
HTOT?m=5,s=0,c=1 48/20051110_120000_05_CTOT_0.jpg 8/SDDI-20051110-1200-BNW-07-VIS-00-600.jpg
ITOT?m=5,s=0,c=2 48/20051110_120000_05_DTOT_0.jpg 8/SDDI-20051110-1200-BNW-07-IR-00-600.jpg
JTOT?m=5,s=0,c=3 48/20051110_120000_05_ETOT_0.jpg 8/SDDI-20051110-1200-BNW-07-WV-00-600.jpg
M1?m=7,s=1,c=2 48/20051110_120000_07_M1_0.jpg 24/SDDI-20051110-1200-RGB-08-AIR-01-1237.jpg
O2?m=7,s=2,c=2 48/20051110_120000_07_O2_0.jpg 24/SDDI-20051110-1200-RGB-09-FOG-02-1237.jpg
U9?m=7,s=9,c=2 48/20051110_120000_07_U9_0.jpg 24/SDDI-20051110-1200-RGB-10-DUST-09-1237.jpg
X?m=7,s=0,c=2
)");
  EXPECT_THAT(EuArchiveSectorItems(), AllOf(SizeIs(43), Contains("C9D"), Contains("F9")));
  EXPECT_THAT(EuArchiveProductItems(), AllOf(SizeIs(27), Contains("U9")));
}

TEST(EuArchiveListingPage, KeepsWhatIsListed) {
  using enum TEuArchiveList;
  const std::string day = kFolder + "20051110_", end = "00_07_C1D_0.jpg", half_past = day + "0030" + end;
  const std::string noon = day + "1200" + end, without_root = half_past.substr(6);
  const std::tuple<std::string, std::string, TEuArchiveList> cases[] = {
      {half_past + "frame0 \"" + noon + "\";\nframe1\"" + day + "2330" + end + "number_of_images" + half_past,
       "24 47 ", Whole},
      {"number_of_images frame0\n" + noon, "24 ", Cut},
      {"frame00=  " + day + "\";0030" + end, "01 ", Cut},
      {"frame0=  " + without_root, "01 ", Cut},
      {"frame0\nframe=  " + without_root, "", Cut},
      {"frame0\nimage0=  " + without_root, "", Cut},
      {"frame0 " + kFolder + "20051111_1200" + end + "\nframe12=\nframe12=" + noon.substr(0, 35), "", Cut},
      {"<html>not found</html>" + noon, "", None},
  };
  for (const auto& [page, kept, list] : cases) {
    std::vector<TEuArchiveImage> images = EuArchiveOldImages("C1D", kDay);
    std::string slots;
    EXPECT_EQ(KeepListedImages(page, "http://server/~idds", images), list) << page;
    for (const TEuArchiveImage& image : images) slots += image.LocalName.substr(4) + " ";
    EXPECT_EQ(slots, kept) << page;
  }
}

using TEuArchive = TJobTest;

TEST_F(TEuArchive, WantedListedPicturesOlderThanFortyMinutesAreAskedForThroughTheProxy) {
  Context.Shared = {20, 1, true, "127.0.0.1", std::to_string(Server.Port())};
  Folder.Write("program/EuArchive.txt", "\xEF\xBB\xBFhtot_02, \"C1D_00\"\r\nC1D_01,,C1D_02,C1D_03\r\n");
  WriteOutput("2005/11/10/C1D_00.jpg", Picture(1000));
  WriteOutput("2005/11/10/C1D_01.jpg", Picture(999));
  Serve(10000, Server.Url("/IDDS-cgi/"), EuArchiveListingPage(EuArchiveOffers(kDay)));
  Clock.Now = At("2005-11-10 01:40:01");
  RunPlanned([&](TJobContext& context) {
    TEuArchiveJob(context, {OutputPath(), false, 0, {"c1d", "F1", "HTOT"}}).Run();
  });
  const std::string listing = Server.Url("/IDDS-cgi/listImages?m="),
                    image = Server.Url(kFolder + "20051110_0");
  EXPECT_THAT(Asked(), ElementsAre(listing + "7,s=1,c=1,o=0,d=0,f=1", image + "03000_07_C1D_0.jpg",
                                   image + "10000_07_C1D_0.jpg", listing + "5,s=0,c=1,o=0,d=0,f=1",
                                   image + "10000_05_CTOT_0.jpg"));
  EXPECT_EQ(NMHTTPNotts.TimeOut, 20'000);
  EXPECT_EQ(Results()[2], "Tab: HTOT 2005-11-10 0100, http://server" + kFolder +
                              "20051110_010000_05_CTOT_0.jpg > 2005/11/10/HTOT_02.jpg - OK");
  EXPECT_THAT(Display.Panels, IsSupersetOf({Pair(0, "C1D 20051110"), Pair(1, "Getting file list for CTOT")}));
}

TEST_F(TEuArchive, AFolderThatCannotBeMadeCostsOneLineAndTheRunGoesOnUntilAStop) {
  Context.Shared.BackDays = 2;
  WriteOutput("2005/11/09", "a file in the way");
  Clock.Now = At("2005-11-10 02:40");
  ExpectStopAt("0100-RGB-08-AIR-01-1237.jpg", [this] {
    RunPlanned([&](TJobContext& context) {
      TEuArchiveJob(context, {OutputPath(), true, 0, {"c2d", "M1", "M2"}}).Run();
    });
  });
  EXPECT_THAT(Server.Paths(), SizeIs(4)) << "two for each item";
  EXPECT_EQ(Lines()[2], "Cannot file into " + OutputPath() + "2005/11/09/: Not a directory");
}

}  // namespace
}  // namespace skyreel::test
