#include "sources/eu_data.h"

#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

TEST(EuDataPlan, WantsEverySoManySlotsRoundTheClock) {
  std::string plan;
  for (const auto& [start, interval] :
       {std::pair(0, 3), {46, 4}, {47, 5}, {-1, 6}, {7, -1}, {7, 0}, {7, 1}, {7, 2}, {7, 7}}) {
    const TWords slots = EuDataWantedSlots(start, interval);
    plan += std::to_string(slots.size()) + ": " + slots.front() + " " + slots.back() + "; ";
  }
  EXPECT_EQ(plan,
            "8: 0030 2130; 4: 0530 2330; 2: 1200 2400; 1: 0030 0030; 48: 0030 2400; 48: 0030 2400; 24: 0100 "
            "2400; 12: 0200 2400; 48: 0030 2400; ");
}

/// Ten past midnight, one day back, the slot "2230" of Meteosat 5 and "2400" of Meteosat 7, twice each.
/// `size` bytes as of an image: neither equal nor random.
inline std::string ImageBytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i / 900 % 64 + i * i / 7 % 4);
  return bytes;
}

class TEuData : public TJobTest {
 protected:
  TEuData() : TJobTest("2004-03-03 00:10") {}
  void TearDown() override { EXPECT_EQ(Display.Panel(1), ""); }  // the form resets the rest
  void Expect(const std::vector<TFtpAsked>& files) {
    Session(kEuDataServer, "user", "secret", files,
            [this](TJobContext& context) { TEuDataJob(context, settings_).Run(); });
  }
  TEuDataSettings settings_;
  const std::string kFirst = "/M7/FES_2004-02-29_2400_M7_", kSecond = "/M7/FES_2004-03-01_2400_M7_";
};

TEST_F(TEuData, AsksForTheWantedSlotsUpToOneDayAgoOldestFirst) {
  settings_ = {OutputPath(),          "user",   "secret", false, false, false, {true, true}, {"IR"},
               {"GIF", "OPEN_MTP.Z"}, {44, 47}, {6, 6}};
  const std::string z = "IR.OPEN_MTP.Z";
  Expect({{"/M5/FES_2004-02-29_2230_M5_IR.GIF", {}},
          {"/M5/FES_2004-02-29_2230_M5_" + z, {}},
          {"/M5/FES_2004-03-01_2230_M5_IR.GIF", {}},
          {"/M5/FES_2004-03-01_2230_M5_" + z, {}},
          {kFirst + "IR.GIF", "GIF89a"},
          {kFirst + z, {}},
          {kSecond + "IR.GIF", "G"},
          {kSecond + z, {}}});
  EXPECT_THAT(Stored(), ElementsAre("2004/02/29/FES_2004-02-29_2400_M7_IR.GIF 6 2004-03-01 00:00",
                                    "2004/03/01/FES_2004-03-01_2400_M7_IR.GIF 1 2004-03-02 00:00"));
  EXPECT_EQ(Results()[5], "Tab: M7 IR OPEN_MTP.Z 2004-03-01 0000, ftp://server" + kFirst + z +
                              " > 2004/02/29/FES_2004-02-29_2400_M7_" + z + " - timed out: 550 No such file");
  EXPECT_EQ(Display.Panel(0), "2004-Mar-02 0000");
  // What is there is not asked for again, of the rest only what is known, and nothing after a stop.
  Folder.Write(
      "program/EuDAFiles.txt",
      "fes_2004-02-29_2400_m7_ir.open_mtp.z\nFES_2004-02-29_2400_M7_IR.GIF," + kSecond.substr(4) + z);
  Clock.OnSleep = [this] { Run.Stop = true; };
  Expect({{kFirst + z, {}}});
}

TEST_F(TEuData, AWholeImageTakesThePlaceOfItsCompressedFileAndNoOther) {
  settings_ = {OutputPath(),         "user",  "secret", false, false, true, {false, true}, {"VISSN", "IR"},
               {"MTP.Z", "MTP.bz2"}, {0, 47}, {0, 6}};
  const std::string whole = ImageBytes(6'475'860), packed = LzwEncode(whole);
  // The cut file would decode without an error, only shorter.
  Expect({{kFirst + "VISSN.MTP.Z", packed.substr(0, 20'000), packed.size()},
          {kFirst + "VISSN.MTP.bz2", Picture(10'000)},
          {kFirst + "IR.MTP.Z", LzwEncode(whole.substr(1))},
          {kSecond + "VISSN.MTP.Z", Picture(10'001)},
          {kSecond + "VISSN.MTP.bz2", demo::CompressBz2(whole)},
          {kSecond + "IR.MTP.Z", packed}});
  EXPECT_EQ(ReadWholeFile(Output("2004/03/01" + kSecond.substr(3) + "IR.MTP")), whole);
  TWords files;
  for (const std::string& file : Stored()) files.push_back(file.substr(34));
  EXPECT_THAT(files, ElementsAre("IR.MTP 6475859 2004-03-01 00:00", StartsWith("IR.MTP.Z "),
                                 "VISSN.MTP.Z 20000 2004-03-01 00:00", "VISSN.MTP.bz2 10000 2004-03-01 00:00",
                                 "IR.MTP 6475860 2004-03-02 00:00", "VISSN.MTP 6475860 2004-03-02 00:00",
                                 "VISSN.MTP.Z 10001 2004-03-02 00:00", StartsWith("VISSN.MTP.bz2 ")));
  EXPECT_THAT(Lines(),
              IsSupersetOf({EndsWith("IR.MTP.Z - kept: uncompressed to 6475859 bytes, expected 6475860"),
                            EndsWith("bz2 - kept: uncompressed to 6475860 bytes, expected 25354344")}));
  EXPECT_THAT(Display.Panels, Contains(Pair(1, "Uncompressing:  FES_2004-02-29_2400_M7_IR.MTP.Z")));
  // An image stands for its compressed forms; the cut file is fetched again.
  Expect({{kFirst + "VISSN.MTP.Z", "short"}});
}

}  // namespace
}  // namespace skyreel::test
