#include "sources/eu_data.h"

#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using demo::CompressBz2;
using namespace test;
using namespace testing;

TEST(EuDataWantedSlots, AreEverySoManyRoundTheClock) {
  const struct {
    int Start, Interval;
    TWords Slots;
  } cases[] = {
      {0, 3, {"0030", "0330", "0630", "0930", "1230", "1530", "1830", "2130"}},
      {46, 4, {"0530", "1130", "1730", "2330"}},
      {47, 5, {"1200", "2400"}},
      {5, 6, {"0300"}},
      {-1, 6, {"0030"}},  // a combo box without a choice
  };
  for (const auto& c : cases) EXPECT_EQ(EuDataWantedSlots(c.Start, c.Interval), c.Slots) << c.Start;
  for (const auto& [interval, count] : {std::pair(-1, 48u), {0, 48u}, {1, 24u}, {2, 12u}, {7, 48u}})
    EXPECT_EQ(EuDataWantedSlots(7, interval).size(), count) << interval;
}

TEST(EuDataSlots, ReachToOneDayAgoAndMidnightBelongsToTheDayBefore) {
  const struct {
    const char *Now, *Name, *File, *Folder;
  } cases[] = {
      {"2003-02-02 12:59:59", "1230", "FES_2003-02-01_1230_M7_IR.GIF", "2003/02/01"},
      {"2003-02-03 00:10", "2400", "FES_2003-02-01_2400_M7_IR.GIF", "2003/02/01"},
      {"2004-03-02 00:29:59", "2400", "FES_2004-02-29_2400_M7_IR.GIF", "2004/02/29"},
      {"2004-03-01 00:30", "0030", "FES_2004-02-29_0030_M7_IR.GIF", "2004/02/29"},
      {"2003-01-02 00:00", "2400", "FES_2002-12-31_2400_M7_IR.GIF", "2002/12/31"},
  };
  for (const auto& c : cases) {
    const std::vector<TEuDataSlot> slots = EuDataSlots(At(c.Now), 2);
    ASSERT_EQ(slots.size(), 100u);
    EXPECT_EQ(slots[0].Time + 99 * std::chrono::minutes(30), slots[99].Time);
    EXPECT_EQ(slots[99].Name, c.Name);
    EXPECT_EQ(EuDataFileName(slots[99], 1, "IR", "GIF"), c.File);
    EXPECT_EQ(FormatDateTime("yyyy/mm/dd", slots[99].Day), c.Folder);
  }
}

/// Ten past midnight, one day back, the slot "2400" of Meteosat 7: the images of 31 January and 1 February.
class TEuData : public TJobTest {
 protected:
  TEuData() : TJobTest("2003-02-03 00:10") {
    settings_.OutputPath = OutputPath();
    settings_.UserName = "user";
    settings_.Password = "secret";
    settings_.Satellites = {false, true};
    settings_.Channels = {"IR"};
    settings_.Formats = {"GIF"};
    settings_.StartSlot = {47, 47};
    settings_.Interval = {6, 6};
  }
  /// The form resets the rest at the end of a run.
  void TearDown() override { EXPECT_EQ(Display.Panel(1), ""); }
  void Expect(const std::vector<TFtpAsked>& files) {
    Session(kEuDataServer, "user", "secret", files, [this] { TEuDataJob(Context, settings_).Run(); });
  }

  TEuDataSettings settings_;
  const std::string kFirst = "/M7/FES_2003-01-31_2400_M7_", kSecond = "/M7/FES_2003-02-01_2400_M7_";
  const std::string kLocalFirst = "2003/01/31" + kFirst.substr(3),
                    kLocalSecond = "2003/02/01" + kSecond.substr(3);
};

TEST_F(TEuData, AsksForBothSatellitesWantedSlotsOldestFirst) {
  settings_.Satellites = {true, true};
  settings_.StartSlot = {5, 47};
  settings_.Formats = {"GIF", "OPEN_MTP.Z"};
  const std::string fifth = "/M5/FES_2003-02-01_0300_M5_IR.";
  Expect({{fifth + "GIF", {}},
          {fifth + "OPEN_MTP.Z", {}},
          {kFirst + "IR.GIF", "GIF89a"},
          {kFirst + "IR.OPEN_MTP.Z", {}},
          {kSecond + "IR.GIF", "G"},
          {kSecond + "IR.OPEN_MTP.Z", {}}});
  EXPECT_THAT(Stored(), ElementsAre(kLocalFirst + "IR.GIF 6 2003-02-01 00:00",
                                    kLocalSecond + "IR.GIF 1 2003-02-02 00:00"));
  EXPECT_THAT(Lines(),
              AllOf(SizeIs(10), Contains("FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z - 550 No such file")));
  EXPECT_EQ(Display.Panel(0), "2003-Feb-02 0000");
  // What is there is not asked for again, and of the rest what is on the list of known names alone.
  Folder.Write("program/EuDAFiles.txt",
               "fes_2003-01-31_2400_m7_ir.open_mtp.z,FES_2003-01-31_2400_M7_IR.GIF\r\n");
  Expect({{kFirst + "IR.OPEN_MTP.Z", {}}});
}

TEST_F(TEuData, AWholeImageTakesThePlaceOfItsCompressedFileAndNoOther) {
  constexpr std::size_t infra_red = 6'475'860, visible = 25'354'344;
  settings_.Uncompress = true;
  settings_.Channels = {"VISSN", "IR"};
  settings_.Formats = {"OPEN_MTP.Z", "OPEN_MTP.bz2"};
  const std::string whole = ImageBytes(infra_red), packed = CompressBz2(whole);
  std::string small = LzwEncode("of no use");
  small.resize(10'000);
  Expect({{kFirst + "VISSN.OPEN_MTP.Z", LzwEncode(ImageBytes(visible))},
          {kFirst + "IR.OPEN_MTP.Z", LzwEncode(whole.substr(1))},
          {kSecond + "VISSN.OPEN_MTP.Z", std::string(10'001, 'x')},
          {kSecond + "VISSN.OPEN_MTP.bz2", packed},
          {kSecond + "IR.OPEN_MTP.Z", small},
          {kSecond + "IR.OPEN_MTP.bz2", packed}});
  EXPECT_THAT(Files(), ElementsAre(kLocalFirst + "IR.OPEN_MTP", kLocalFirst + "IR.OPEN_MTP.Z",
                                   kLocalFirst + "VISSN.OPEN_MTP", kLocalSecond + "IR.OPEN_MTP",
                                   kLocalSecond + "IR.OPEN_MTP.Z", kLocalSecond + "VISSN.OPEN_MTP",
                                   kLocalSecond + "VISSN.OPEN_MTP.Z", kLocalSecond + "VISSN.OPEN_MTP.bz2"));
  EXPECT_EQ(ReadWholeFile(Output(kLocalSecond + "IR.OPEN_MTP")), whole);
  EXPECT_EQ(GetFileDateTime(Output(kLocalSecond + "IR.OPEN_MTP")), At("2003-02-02"));
  TWords kept;
  for (const std::string& line : Lines()) {
    if (!line.starts_with("Get: ")) kept.push_back(line);
  }
  EXPECT_THAT(kept, ElementsAre("FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z - kept: uncompressed to 6475859 bytes, "
                                "expected 6475860",
                                StartsWith("FES_2003-02-01_2400_M7_VISSN.OPEN_MTP.Z - not uncompressed: "),
                                "FES_2003-02-01_2400_M7_VISSN.OPEN_MTP.bz2 - kept: uncompressed to 6475860 "
                                "bytes, expected 25354344"));
  EXPECT_THAT(Display.Panels, Contains(std::pair(1, "Uncompressing:  FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z")));
  Expect({});  // an image stands for its compressed forms
}

TEST_F(TEuData, ACutDownloadIsNotDecodedAndIsFetchedAgain) {
  settings_.Uncompress = true;
  settings_.Formats = {"OPEN_MTP.Z"};
  Folder.Write("program/EuDAFiles.txt", "FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z");
  const std::string whole = LzwEncode(ImageBytes(6'475'860));
  // It would decode without an error, only shorter.
  Expect({{kFirst + "IR.OPEN_MTP.Z", whole.substr(0, 20'000), whole.size()}});
  EXPECT_THAT(Files(), ElementsAre(kLocalFirst + "IR.OPEN_MTP.Z"));
  Expect({{kFirst + "IR.OPEN_MTP.Z", whole}});
  EXPECT_THAT(Files(), ElementsAre(kLocalFirst + "IR.OPEN_MTP"));
}

TEST_F(TEuData, AFolderThatCannotBeMadeCostsItsSlotAloneAndAStopEndsTheRun) {
  WriteOutput("2003/01/31", "a file where the folder should be");
  settings_.Channels = {"VISSN", "IR"};
  Clock.OnSleep = [this] { Run.Stop = true; };
  Expect({{kSecond + "VISSN.GIF", "GIF"}});
  EXPECT_THAT(Lines(), ElementsAre(StartsWith("Cannot file into "), "Get: FES_2003-02-01_2400_M7_VISSN.GIF"));
}

}  // namespace
}  // namespace skyreel
