#include "sources/eu_data.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "demo/lzw_encoder.h"
#include "sources/ftp_conversation.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using testing::ElementsAre;

TEST(EuDataItems, AreThoseOfTheServer) {
  EXPECT_THAT(EuDataSatelliteItems(), ElementsAre("M5", "M7"));
  ASSERT_EQ(EuDataSlotItems().size(), 48u);
  EXPECT_EQ(EuDataSlotItems().front(), "0030");
  EXPECT_EQ(EuDataSlotItems()[46], "2330");
  EXPECT_EQ(EuDataSlotItems().back(), "2400");
  EXPECT_EQ(EuDataIntervalItems().size(), 7u);
}

TEST(EuDataWantedSlots, AreEverySoManyRoundTheClock) {
  EXPECT_THAT(EuDataWantedSlots(0, 3),
              ElementsAre("0030", "0330", "0630", "0930", "1230", "1530", "1830", "2130"));
  EXPECT_THAT(EuDataWantedSlots(47, 5), ElementsAre("1200", "2400"));
  EXPECT_THAT(EuDataWantedSlots(46, 4), ElementsAre("0530", "1130", "1730", "2330"));
  EXPECT_THAT(EuDataWantedSlots(5, 6), ElementsAre("0300"));
  EXPECT_EQ(EuDataWantedSlots(7, 0).size(), 48u);
  EXPECT_EQ(EuDataWantedSlots(7, 1).size(), 24u);
  EXPECT_EQ(EuDataWantedSlots(7, 2).size(), 12u);
  // A combo box without a choice gives -1.
  EXPECT_EQ(EuDataWantedSlots(-1, -1).size(), 48u);
  EXPECT_THAT(EuDataWantedSlots(-1, 6), ElementsAre("0030"));
}

TEST(EuDataSlot, MidnightBelongsToTheDayBefore) {
  const struct {
    TDateTime Time;
    const char* Name;
    const char* File;
    const char* Folder;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 1, 12, 30), "1230", "FES_2003-02-01_1230_M7_IR.OPEN_MTP.bz2",
       "2003/02/01"},
      {TDateTime::FromDate(2003, 2, 2), "2400", "FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2", "2003/02/01"},
      {TDateTime::FromDate(2004, 3, 1), "2400", "FES_2004-02-29_2400_M7_IR.OPEN_MTP.bz2", "2004/02/29"},
      {TDateTime::FromDate(2003, 1, 1), "2400", "FES_2002-12-31_2400_M7_IR.OPEN_MTP.bz2", "2002/12/31"},
      {TDateTime::FromDate(2003, 1, 1, 0, 30), "0030", "FES_2003-01-01_0030_M7_IR.OPEN_MTP.bz2",
       "2003/01/01"},
  };
  for (const auto& c : cases) {
    const TEuDataSlot slot = EuDataSlotAt(c.Time);
    EXPECT_EQ(slot.Name, c.Name);
    EXPECT_EQ(EuDataFileName(slot, 1, "IR", "OPEN_MTP.bz2"), c.File);
    EXPECT_EQ(FormatDateTime("yyyy/mm/dd", slot.Day), c.Folder);
    EXPECT_EQ(slot.Time, c.Time);
  }
  EXPECT_EQ(EuDataFileName(EuDataSlotAt(TDateTime::FromDate(2003, 2, 1, 12)), 0, "VISSN", "GIF"),
            "FES_2003-02-01_1200_M5_VISSN.GIF");
}

TEST(EuDataSlots, ReachFromTheOldestToOneDayAgo) {
  const struct {
    TDateTime Now, Newest;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 3, 23, 50), TDateTime::FromDate(2003, 2, 2, 23, 30)},
      {TDateTime::FromDate(2003, 2, 3, 0, 10), TDateTime::FromDate(2003, 2, 2)},
      {TDateTime::FromDate(2004, 3, 1, 0, 29, 59), TDateTime::FromDate(2004, 2, 29)},
      {TDateTime::FromDate(2004, 3, 1, 0, 30), TDateTime::FromDate(2004, 2, 29, 0, 30)},
  };
  for (const auto& c : cases) {
    const auto slots = EuDataSlots(c.Now, 2);
    ASSERT_EQ(slots.size(), 100u);
    EXPECT_EQ(slots.back().Time, c.Newest);
    EXPECT_EQ(slots.front().Time, c.Newest - 99 * std::chrono::minutes(30));
    EXPECT_EQ(slots[1].Time, slots[0].Time + std::chrono::minutes(30));
  }
}

using test::Bzip2;
using test::FtpConversation;
using test::ImageBytes;
using test::TFtpAsked;
using test::TScriptedServer;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr std::size_t kInfraRed = 6'475'860;
constexpr std::size_t kVisible = 25'354'344;

class EuDataJob : public testing::Test {
 protected:
  // Ten past midnight: the newest slot is the "2400" of two days ago.
  EuDataJob() : fixture_(TDateTime::FromDate(2003, 2, 3, 0, 10)) {
    fixture_.Context.Shared.BackDays = 1;
    settings_.OutputPath = fixture_.OutputPath();
    settings_.UserName = "user";
    settings_.Password = "secret";
    settings_.Satellites = {false, true};
    settings_.Channels = {"IR"};
    settings_.Formats = {"GIF"};
    settings_.StartSlot = {47, 47};
    settings_.Interval = {6, 6};
  }
  ~EuDataJob() override {
    for (const std::string& line : fixture_.Display.AllLines)
      EXPECT_THAT(line, testing::Not(HasSubstr("secret")));
  }

  /// Runs the job against a server that expects exactly these files to be asked for.
  void Run(const std::vector<TFtpAsked>& files) {
    TScriptedServer server(FtpConversation("user", "secret", files));
    fixture_.Context.Servers.EuDA = server.Address();
    TEuDataJob(fixture_.Context, settings_).Run();
    server.WaitForConnections(1);
    EXPECT_THAT(server.Errors(), IsEmpty());
    std::string detail;
    for (const auto& [panel, text] : fixture_.Display.Panels) {
      if (panel == 1) detail = text;
    }
    EXPECT_EQ(detail, "");
  }
  const std::vector<std::string>& Lines() const { return fixture_.Display.Lines; }

  test::TJobFixture fixture_;
  TEuDataSettings settings_;
};

TEST_F(EuDataJob, AsksForTheWantedSlotsOldestFirst) {
  settings_.Channels = {"IR", "WV"};
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.GIF", "GIF89a"},
       {"/M7/FES_2003-01-31_2400_M7_WV.GIF", std::nullopt},
       {"/M7/FES_2003-02-01_2400_M7_IR.GIF", "GIF89"},
       {"/M7/FES_2003-02-01_2400_M7_WV.GIF", "GIF8"}});
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.GIF", 6),
                                           Pair("2003/02/01/FES_2003-02-01_2400_M7_IR.GIF", 5),
                                           Pair("2003/02/01/FES_2003-02-01_2400_M7_WV.GIF", 4)));
  EXPECT_EQ(GetFileDateTime(fixture_.Output("2003/02/01/FES_2003-02-01_2400_M7_IR.GIF")),
            TDateTime::FromDate(2003, 2, 2));
  EXPECT_THAT(Lines(),
              ElementsAre("Get: FES_2003-01-31_2400_M7_IR.GIF", "Get: FES_2003-01-31_2400_M7_WV.GIF",
                          "FES_2003-01-31_2400_M7_WV.GIF - 550 No such file",
                          "Get: FES_2003-02-01_2400_M7_IR.GIF", "Get: FES_2003-02-01_2400_M7_WV.GIF"));
  EXPECT_THAT(fixture_.Display.Panels, testing::Contains(std::pair(0, "2003-Feb-01 0000")));
  // What is there is not asked for again.
  Run({{"/M7/FES_2003-01-31_2400_M7_WV.GIF", "GIF"}});
}

TEST_F(EuDataJob, VisitsBothSatellitesWithTheirOwnSlots) {
  settings_.Satellites = {true, true};
  settings_.StartSlot = {5, 47};
  settings_.Formats = {"GIF", "OPEN_MTP.Z"};
  Run({{"/M5/FES_2003-02-01_0300_M5_IR.GIF", std::nullopt},
       {"/M5/FES_2003-02-01_0300_M5_IR.OPEN_MTP.Z", std::nullopt},
       {"/M7/FES_2003-01-31_2400_M7_IR.GIF", std::nullopt},
       {"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", std::nullopt},
       {"/M7/FES_2003-02-01_2400_M7_IR.GIF", std::nullopt},
       {"/M7/FES_2003-02-01_2400_M7_IR.OPEN_MTP.Z", std::nullopt}});
}

TEST_F(EuDataJob, AListOfKnownNamesLetsThoseAlonePass) {
  fixture_.Folder.Write("program/EuDAFiles.txt", "fes_2003-01-31_2400_m7_ir.gif,FES_OTHER\r\n");
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.GIF", "GIF"}});
  fixture_.Folder.Write("program/EuDAFiles.txt", "");
  Run({{"/M7/FES_2003-02-01_2400_M7_IR.GIF", "GIF"}});
}

TEST_F(EuDataJob, AWholeImageTakesThePlaceOfItsCompressedFile) {
  settings_.Uncompress = true;
  settings_.Formats = {"OPEN_MTP.Z", "OPEN_MTP.bz2"};
  fixture_.Folder.Write("program/EuDAFiles.txt",
                        "FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z,FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2");
  const std::string image = ImageBytes(kInfraRed);
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", LzwEncode(image)},
       {"/M7/FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2", Bzip2(image)}});
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP", kInfraRed),
                                           Pair("2003/02/01/FES_2003-02-01_2400_M7_IR.OPEN_MTP", kInfraRed)));
  const auto path = fixture_.Output("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP");
  EXPECT_EQ(ReadWholeFile(path), image);
  EXPECT_EQ(GetFileDateTime(path), TDateTime::FromDate(2003, 2, 1));
  EXPECT_THAT(fixture_.Display.Panels,
              testing::Contains(std::pair(1, "Uncompressing:  FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z")));
  EXPECT_EQ(Lines().size(), 2u);
  // The image stands for its compressed forms.
  Run({});
}

TEST_F(EuDataJob, VisibleImagesAreOfTheirOwnSize) {
  settings_.Uncompress = true;
  settings_.Channels = {"VISSN"};
  settings_.Formats = {"OPEN_MTP.Z"};
  Run({{"/M7/FES_2003-01-31_2400_M7_VISSN.OPEN_MTP.Z", LzwEncode(ImageBytes(kVisible))},
       {"/M7/FES_2003-02-01_2400_M7_VISSN.OPEN_MTP.Z", LzwEncode(ImageBytes(kInfraRed))}});
  EXPECT_THAT(fixture_.Files(), ElementsAre("2003/01/31/FES_2003-01-31_2400_M7_VISSN.OPEN_MTP",
                                            "2003/02/01/FES_2003-02-01_2400_M7_VISSN.OPEN_MTP",
                                            "2003/02/01/FES_2003-02-01_2400_M7_VISSN.OPEN_MTP.Z"));
  EXPECT_EQ(Lines().back(),
            "FES_2003-02-01_2400_M7_VISSN.OPEN_MTP.Z - kept: it uncompresses to 6475860 bytes in "
            "place of 25354344");
}

TEST_F(EuDataJob, WhatIsNoWholeImageStaysCompressed) {
  settings_.Uncompress = true;
  settings_.Formats = {"OPEN_MTP.Z", "OPEN_MTP.bz2"};
  const std::string small = LzwEncode(ImageBytes(100));
  const std::string bad(10'001, 'x');
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", small + std::string(10'000 - small.size(), '\0')},
       {"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.bz2", bad},
       {"/M7/FES_2003-02-01_2400_M7_IR.OPEN_MTP.Z", bad},
       {"/M7/FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2", Bzip2(ImageBytes(kInfraRed)).substr(0, 50'000)}});
  EXPECT_THAT(fixture_.Tree(),
              ElementsAre(Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", 10'000),
                          Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP.bz2", 10'001),
                          Pair("2003/02/01/FES_2003-02-01_2400_M7_IR.OPEN_MTP.Z", 10'001),
                          Pair("2003/02/01/FES_2003-02-01_2400_M7_IR.OPEN_MTP.bz2", 50'000)));
  const std::string first = "FES_2003-01-31_2400_M7_IR.OPEN_MTP",
                    second = "FES_2003-02-01_2400_M7_IR.OPEN_MTP";
  EXPECT_THAT(Lines(), ElementsAre("Get: " + first + ".Z", "Get: " + first + ".bz2",
                                   StartsWith(first + ".bz2 - not uncompressed: "), "Get: " + second + ".Z",
                                   StartsWith(second + ".Z - not uncompressed: "), "Get: " + second + ".bz2",
                                   StartsWith(second + ".bz2 - not uncompressed: ")));
  Run({});
}

TEST_F(EuDataJob, ACutDownloadIsNotDecodedAndIsFetchedAgain) {
  settings_.Uncompress = true;
  settings_.Formats = {"OPEN_MTP.Z"};
  fixture_.Folder.Write("program/EuDAFiles.txt", "FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z");
  const std::string whole = LzwEncode(ImageBytes(kInfraRed));
  // A cut .Z file decodes without an error, only shorter.
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", whole.substr(0, 20'000), whole.size()}});
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", 20'000)));
  EXPECT_THAT(Lines(), ElementsAre("Get: FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z",
                                   StartsWith("FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z - 20000 of ")));
  Run({{"/M7/FES_2003-01-31_2400_M7_IR.OPEN_MTP.Z", whole}});
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("2003/01/31/FES_2003-01-31_2400_M7_IR.OPEN_MTP", kInfraRed)));
}

TEST_F(EuDataJob, AServerThatIsNotThereOrRefusesTheUserGetsOneLine) {
  {
    TScriptedServer server{std::vector<test::TScript>{}};
    fixture_.Context.Servers.EuDA = server.Address();
    server.StopListening();
    TEuDataJob(fixture_.Context, settings_).Run();
  }
  EXPECT_EQ(Lines().size(), 1u);
  TScriptedServer server(test::TScript()
                             .Reply("220 ready\r\n")
                             .Exchange("USER user", "331 password")
                             .Exchange("PASS secret", "530 Login incorrect: secret")
                             .WaitForClose());
  fixture_.Context.Servers.EuDA = server.Address();
  TEuDataJob(fixture_.Context, settings_).Run();
  ASSERT_EQ(Lines().size(), 2u);
  EXPECT_THAT(Lines()[1], HasSubstr("530 Login incorrect"));
  EXPECT_THAT(fixture_.Tree(), IsEmpty());
}

TEST_F(EuDataJob, StopsBetweenFilesAndSaysGoodbye) {
  settings_.Channels = {"VISSN", "IR", "WV"};
  fixture_.Clock.OnSleep = [this] { fixture_.Run.Stop = true; };
  Run({{"/M7/FES_2003-01-31_2400_M7_VISSN.GIF", "GIF"}});
  EXPECT_EQ(fixture_.Tree().size(), 1u);
}

TEST_F(EuDataJob, AFolderThatCannotBeMadeCostsItsSlotAlone) {
  fixture_.WriteOutput("2003/01/31", "a file where the folder should be");
  Run({{"/M7/FES_2003-02-01_2400_M7_IR.GIF", "GIF"}});
  EXPECT_THAT(Lines(), ElementsAre(StartsWith("Cannot file into "), "Get: FES_2003-02-01_2400_M7_IR.GIF"));
}

}  // namespace
}  // namespace skyreel
