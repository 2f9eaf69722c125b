#include "sources/msfc_data.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "demo/lzw_encoder.h"
#include "sources/ftp_conversation.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using testing::ElementsAre;

std::vector<std::string> Names(const TMsfcSettings& settings, TDateTime now, int back_days) {
  std::vector<std::string> names;
  for (const TMsfcFile& file : MsfcFiles(settings, now, back_days)) names.push_back(file.Name);
  return names;
}

TMsfcSettings Everything() {
  TMsfcSettings settings;
  settings.Channels = MsfcChannelItems();
  settings.Slots = MsfcSlotItems();
  return settings;
}

TEST(MsfcFiles, AFullDayHasElevenWithoutTheVisibleAtMidnight) {
  EXPECT_THAT(
      Names(Everything(), TDateTime::FromDate(2003, 2, 1, 23, 50), 1),
      ElementsAre("ME7-200302010000.ir1.ara.Z", "ME7-200302010000.ir2.ara.Z", "ME7-200302010600.ir1.ara.Z",
                  "ME7-200302010600.ir2.ara.Z", "ME7-200302010600.vis.ara.Z", "ME7-200302011200.ir1.ara.Z",
                  "ME7-200302011200.ir2.ara.Z", "ME7-200302011200.vis.ara.Z", "ME7-200302011800.ir1.ara.Z",
                  "ME7-200302011800.ir2.ara.Z", "ME7-200302011800.vis.ara.Z"));
}

TEST(MsfcFiles, AnImageIsWantedFromAnHourAfterItsTime) {
  TMsfcSettings settings = Everything();
  settings.Channels = {"IR"};
  const struct {
    TDateTime Now;
    std::size_t Count;
  } cases[] = {
      {TDateTime::FromDate(2003, 2, 1, 0, 10), 0}, {TDateTime::FromDate(2003, 2, 1, 0, 59, 59), 0},
      {TDateTime::FromDate(2003, 2, 1, 1, 0), 1},  {TDateTime::FromDate(2003, 2, 1, 12, 59), 2},
      {TDateTime::FromDate(2003, 2, 1, 13, 0), 3}, {TDateTime::FromDate(2003, 2, 1, 19, 0), 4},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Names(settings, c.Now, 1).size(), c.Count) << FormatDateTime("hhnn", c.Now);
}

TEST(MsfcFiles, DaysComeOldestFirstAcrossALeapDay) {
  TMsfcSettings settings;
  settings.Channels = {"VISSN", "WV"};
  settings.Slots = {"0000", "1800"};
  EXPECT_THAT(
      Names(settings, TDateTime::FromDate(2004, 3, 1, 0, 10), 2),
      ElementsAre("ME7-200402290000.ir2.ara.Z", "ME7-200402291800.ir2.ara.Z", "ME7-200402291800.vis.ara.Z"));
}

using test::FtpConversation;
using test::ImageBytes;
using test::TFtpAsked;
using test::TScriptedServer;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr std::size_t kImage = 6'321'008;

class MsfcJob : public testing::Test {
 protected:
  MsfcJob() : fixture_(TDateTime::FromDate(2003, 2, 1, 23, 50)), settings_(Everything()) {
    fixture_.Context.Shared.BackDays = 1;
    settings_.OutputPath = fixture_.OutputPath();
  }

  /// Runs the job against a server that expects exactly these files to be asked for.
  void Run(const std::vector<TFtpAsked>& files) {
    TScriptedServer server(FtpConversation("anonymous", "skyreel@quenmoor.example", files));
    fixture_.Context.Servers.MSFC = server.Address();
    TMsfcJob(fixture_.Context, settings_).Run();
    server.WaitForConnections(1);
    EXPECT_THAT(server.Errors(), IsEmpty());
  }
  static std::string Path(const std::string& time, const std::string& channel) {
    return "/Weather/METEOSAT-7/McIDAS_areas/" + channel + "/5km/ME7-20030201" + time + "." + channel +
           ".ara.Z";
  }
  const std::vector<std::string>& Lines() const { return fixture_.Display.Lines; }

  test::TJobFixture fixture_;
  TMsfcSettings settings_;
};

TEST_F(MsfcJob, AFullDayAsksForElevenFilesEachRunAnew) {
  std::vector<TFtpAsked> day;
  for (const char* time : {"0000", "0600", "1200", "1800"}) {
    for (const char* channel : {"ir1", "ir2", "vis"}) {
      if (time != std::string("0000") || channel != std::string("vis"))
        day.push_back({Path(time, channel), "area"});
    }
  }
  ASSERT_EQ(day.size(), 11u);
  Run(day);
  EXPECT_EQ(fixture_.Tree().size(), 11u);
  EXPECT_EQ(GetFileDateTime(fixture_.Output("2003/02/01/ME7-200302011800.vis.ara.Z")),
            TDateTime::FromDate(2003, 2, 1, 18));
  // Twice 300 ms a file toward the server.
  EXPECT_EQ(fixture_.Clock.Slept, std::chrono::milliseconds(11 * 600));
  // kept: without uncompressing, what is there is fetched again.
  Run(day);
}

TEST_F(MsfcJob, AWholeAreaTakesThePlaceOfItsCompressedFile) {
  settings_.Uncompress = true;
  settings_.Channels = {"IR"};
  settings_.Slots = {"0000", "0600", "1200", "1800"};
  const std::string packed = LzwEncode(ImageBytes(kImage));
  ASSERT_GT(packed.size(), 200'000u);
  const std::string other = LzwEncode(ImageBytes(kImage + 1));
  Run({{Path("0000", "ir1"), packed},
       {Path("0600", "ir1"), other},
       {Path("1200", "ir1"), packed.substr(0, 200'000)},
       {Path("1800", "ir1"), std::string(200'001, 'x')}});
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("2003/02/01/ME7-200302010000.ir1.ara", kImage),
                                           Pair("2003/02/01/ME7-200302010600.ir1.ara", kImage + 1),
                                           Pair("2003/02/01/ME7-200302010600.ir1.ara.Z", other.size()),
                                           Pair("2003/02/01/ME7-200302011200.ir1.ara.Z", 200'000),
                                           Pair("2003/02/01/ME7-200302011800.ir1.ara.Z", 200'001)));
  EXPECT_THAT(Lines(),
              ElementsAre("Get: ME7-200302010000.ir1.ara.Z", "Get: ME7-200302010600.ir1.ara.Z",
                          "ME7-200302010600.ir1.ara.Z - kept: it uncompresses to 6321009 bytes in place of "
                          "6321008",
                          "Get: ME7-200302011200.ir1.ara.Z", "Get: ME7-200302011800.ir1.ara.Z",
                          StartsWith("ME7-200302011800.ir1.ara.Z - not uncompressed: ")));
  EXPECT_EQ(GetFileDateTime(fixture_.Output("2003/02/01/ME7-200302010000.ir1.ara")),
            TDateTime::FromDate(2003, 2, 1));
  // An uncompressed file, of whatever size, is there; a compressed one does not count.
  Run({{Path("1200", "ir1"), std::nullopt}, {Path("1800", "ir1"), std::nullopt}});
}

TEST_F(MsfcJob, StopsBetweenFiles) {
  fixture_.Clock.OnSleep = [this] {
    fixture_.Run.Stop = fixture_.Clock.Slept > std::chrono::milliseconds(900);
  };
  Run({{Path("0000", "ir1"), "area"}, {Path("0000", "ir2"), "area"}});
}

}  // namespace
}  // namespace skyreel
