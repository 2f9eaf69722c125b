#include "sources/msfc_data.h"

#include "demo/lzw_encoder.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using namespace test;
using namespace testing;

TEST(MsfcFiles, ComeOldestDayFirstFromAnHourAfterTheirTimeWithoutTheVisibleAtMidnight) {
  const struct {
    const char* Now;
    int BackDays;
    std::string Names;  ///< what stands between "ME7-" and ".ara.Z"
  } cases[] = {
      {"2003-02-01 00:59:59", 1, ""},
      {"2003-02-01 01:00", 1, "200302010000.ir1 200302010000.ir2 "},
      {"2004-03-01 00:10", 2,
       "200402290000.ir1 200402290000.ir2 200402290600.ir1 200402290600.ir2 200402290600.vis "
       "200402291200.ir1 "
       "200402291200.ir2 200402291200.vis 200402291800.ir1 200402291800.ir2 200402291800.vis "},
  };
  for (const auto& c : cases) {
    std::string names;
    for (const TMsfcFile& file : MsfcFiles({"", false, false, false, {"WV", "VISSN", "IR"}, MsfcSlotItems()},
                                           At(c.Now), c.BackDays)) {
      if (!IsMsfcFileOut(file, At(c.Now))) continue;
      names += file.Name.substr(4, 16) + " ";
    }
    EXPECT_EQ(names, c.Names) << c.Now;
  }
}

class TMsfc : public TJobTest {
 protected:
  TMsfc() : TJobTest("2003-02-01 23:50") {
    settings_.OutputPath = OutputPath();
    settings_.Channels = {"IR"};
    settings_.Slots = MsfcSlotItems();
  }
  /// The form resets the rest at the end of a run.
  void TearDown() override { EXPECT_EQ(Display.Panel(1), ""); }
  void Expect(const std::vector<TFtpAsked>& files) {
    Session(kMsfcServer, "anonymous", "skyreel@quenmoor.example", files,
            [this] { TMsfcJob(Context, settings_).Run(); });
  }
  static std::string Path(const std::string& time, const std::string& channel = "ir1") {
    return "/Weather/METEOSAT-7/McIDAS_areas/" + channel + "/5km/ME7-20030201" + time + "." + channel +
           ".ara.Z";
  }

  TMsfcSettings settings_;
};

TEST_F(TMsfc, ADaysFilesAreAskedForByEachRunAnewUntilAStop) {
  settings_.Channels = {"VISSN", "IR"};
  settings_.Slots = {"0000", "1800"};
  for (int run = 1; run <= 2; ++run)
    Expect({{Path("0000"), "area"}, {Path("1800"), {}}, {Path("1800", "vis"), "area"}});
  EXPECT_THAT(Stored(), ElementsAre("2003/02/01/ME7-200302010000.ir1.ara.Z 4 2003-02-01 00:00",
                                    "2003/02/01/ME7-200302011800.vis.ara.Z 4 2003-02-01 18:00"));
  EXPECT_EQ(Clock.Slept, std::chrono::milliseconds(2 * 3 * 600)) << "twice 300 ms a file toward the server";
  Clock.OnSleep = [this] { Run.Stop = Clock.Slept > std::chrono::milliseconds(6 * 600 + 900); };
  Expect({{Path("0000"), "area"}, {Path("1800"), "area"}});
}

TEST_F(TMsfc, WhatComesOutDuringTheRunIsFetchedToo) {
  Clock.Now = At("2003-02-01 18:59:59");
  Expect({{Path("0000"), "area"}, {Path("0600"), "area"}, {Path("1200"), "area"}, {Path("1800"), "area"}});
  EXPECT_EQ(Stored().size(), 4U);
}

TEST_F(TMsfc, AWholeAreaTakesThePlaceOfItsCompressedFile) {
  constexpr std::size_t size = 6'321'008;
  settings_.Uncompress = true;
  const std::string packed = LzwEncode(ImageBytes(size)), other = LzwEncode(ImageBytes(size + 1));
  Expect({{Path("0000"), packed},
          {Path("0600"), other},
          {Path("1200"), packed.substr(0, 200'000)},
          {Path("1800"), std::string(200'001, 'x')}});
  EXPECT_THAT(Stored(), ElementsAre("2003/02/01/ME7-200302010000.ir1.ara 6321008 2003-02-01 00:00",
                                    "2003/02/01/ME7-200302010600.ir1.ara 6321009 2003-02-01 06:00",
                                    StartsWith("2003/02/01/ME7-200302010600.ir1.ara.Z "),
                                    "2003/02/01/ME7-200302011200.ir1.ara.Z 200000 2003-02-01 12:00",
                                    "2003/02/01/ME7-200302011800.ir1.ara.Z 200001 2003-02-01 18:00"));
  // An uncompressed file, of whatever size, is there; a compressed one does not count.
  Expect({{Path("1200"), {}}, {Path("1800"), {}}});
}

TEST_F(TMsfc, WhatAKillKeptFromADecodedAreaIsDoneByTheNextRun) {
  settings_.Uncompress = true;
  settings_.Slots = {"0000", "0600"};
  for (const std::string slot : {"0000", "0600"}) {
    const std::string name = "out/2003/02/01/ME7-20030201" + slot + ".ir1.ara";
    const auto compressed = Folder.Write(name + ".Z", "area");
    Folder.Write(name, std::string(slot == "0000" ? 6'321'008 : 1000, 'x'));
    EXPECT_TRUE(Context.Ledger.Begin(compressed));
    Context.Ledger.End(compressed, TTransferEnd::Cut);
  }
  Expect({});
  EXPECT_THAT(Stored(), ElementsAre("2003/02/01/ME7-200302010000.ir1.ara 6321008 2003-02-01 00:00",
                                    StartsWith("2003/02/01/ME7-200302010600.ir1.ara 1000 "),
                                    StartsWith("2003/02/01/ME7-200302010600.ir1.ara.Z 4 ")));
  EXPECT_FALSE(Context.Ledger.IsNoted(Output("2003/02/01/ME7-200302010000.ir1.ara.Z")));
}

}  // namespace
}  // namespace skyreel
