#include "sources/msfc_data.h"

#include <sys/stat.h>

#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

TEST(MsfcPlan, ComesOldestFirstAnHourAfterTheImagesWithoutTheVisibleAtMidnight) {
  const TDateTime now = At("2004-03-01 01:00");
  std::string names;
  for (const auto& file :
       MsfcFiles({"", false, false, false, {"WV", "VISSN", "IR"}, {"0600", "0000"}}, now, 2))
    if (IsMsfcFileOut(file, now)) names += file.Name.substr(10, 10) + " ";
  EXPECT_EQ(names, "290000.ir1 290000.ir2 290600.ir1 290600.ir2 290600.vis 010000.ir1 010000.ir2 ");
  EXPECT_FALSE(IsMsfcFileOut({now, "", ""}, At("2004-03-01 01:59:59")));
}

class TMsfc : public TJobTest {
 protected:
  TMsfc() : TJobTest("2003-02-01 18:59:59") {}
  void TearDown() override { EXPECT_EQ(Display.Panel(1), ""); }  // the form resets the rest
  void Expect(const std::vector<TFtpAsked>& files) {
    Session(kMsfcServer, "anonymous", "skyreel@quenmoor.example", files,
            [this](TJobContext& context) { TMsfcJob(context, settings_).Run(); });
  }
  static std::string Path(const std::string& time, const std::string& code = "ir1") {
    return "/Weather/METEOSAT-7/McIDAS_areas/" + code + "/5km/ME7-20030201" + time + "." + code + ".ara.Z";
  }
  TMsfcSettings settings_{OutputPath(), false, false, false, {"IR"}, MsfcSlotItems()};
};

TEST_F(TMsfc, EachRunAsksForEachFileWhateverItsListUntilAStop) {
  Folder.Write("program/MSFCFiles.txt", std::string(5'000'000, 'x'));
  settings_.Slots = {"0000", "0600", "1800"};
  // The last one comes out during the run.
  Expect({{Path("0000"), "area"}, {Path("0600"), {}}, {Path("1800"), "area"}});
  EXPECT_THAT(Lines(), Contains("MSFCFiles.txt - not used: too large"));
  EXPECT_THAT(Stored(), ElementsAre("2003/02/01/ME7-200302010000.ir1.ara.Z 4 2003-02-01 00:00",
                                    "2003/02/01/ME7-200302011800.ir1.ara.Z 4 2003-02-01 18:00"));
  EXPECT_EQ(Results()[2], "Tab: IR 2003-02-01 1800, ftp://server" + Path("1800") +
                              " > 2003/02/01/ME7-200302011800.ir1.ara.Z - OK");
  Clock.OnSleep = [this] { Run.Stop = Clock.Slept > 4 * 600ms; };
  std::filesystem::remove(Folder / "program/MSFCFiles.txt");
  ::mkfifo((Folder / "program/MSFCFiles.txt").c_str(), 0600);
  Expect({{Path("0000"), "area"}, {Path("0600"), {}}});
  EXPECT_THAT(Lines(), Contains("MSFCFiles.txt - not used: not a regular file"));
}

TEST_F(TMsfc, OnlyAWholeAreaReplacesItsCompressedFileOfMoreThan200000Bytes) {
  settings_ = {OutputPath(), false, false, true, {"IR", "WV"}, {"0000", "0600"}};
  Folder.Write("program/MSFCFiles.txt", std::string(1, '\0'));
  // A kill came between a whole image and the deletion of its compressed file.
  WriteOutput("2003/02/01/ME7-200302010000.ir1.ara", Picture(6'321'008));
  const auto compressed = WriteOutput("2003/02/01/ME7-200302010000.ir1.ara.Z", "area");
  ASSERT_TRUE(Ledger.Begin(compressed));
  Ledger.End(compressed, TTransferEnd::Cut);
  WriteOutput("2003/02/01/ME7-200302010600.ir1.ara", "part");
  Expect({{Path("0000", "ir2"), Picture(200'000)}, {Path("0600", "ir2"), Picture(200'001)}});
  EXPECT_THAT(Stored(), ElementsAre("2003/02/01/ME7-200302010000.ir1.ara 6321008 2003-02-01 00:00",
                                    "2003/02/01/ME7-200302010000.ir2.ara.Z 200000 2003-02-01 00:00",
                                    StartsWith("2003/02/01/ME7-200302010600.ir1.ara 4 "),
                                    "2003/02/01/ME7-200302010600.ir2.ara.Z 200001 2003-02-01 06:00"));
  EXPECT_THAT(Lines(), ElementsAre("MSFCFiles.txt - not used: not a text file", _, _,
                                   StartsWith("ME7-200302010600.ir2.ara.Z - not uncompressed: ")));
}

}  // namespace
}  // namespace skyreel::test
