#include <gmock/gmock.h>

#include "base/files.h"
#include "catalogue/listing.h"
#include "catalogue/whole_file.h"
#include "demo/archive.h"
#include "demo/ftp_service.h"
#include "demo/http_service.h"
#include "demo/live_archive.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "sources/met_charts.h"
#include "support/secure_server.h"

namespace skyreel {
namespace {

using namespace demo;

const TDateTime kNow = TDateTime::FromDate(2026, 3, 10, 12, 20);
TDemoArchive archive([] { return kNow; });

TEST(DemoArchive, HasEveryChartAndShowsEveryOutcomeAtItsHour) {
  const std::pair<const char*, std::optional<TFault>> cases[] = {
      {"/~idds/images/out/SDDI-20260309-0300-BNW-08-VIS006-02-600.jpg", std::nullopt},
      {"/~idds/images/out/SDDI-20260309-0900-BNW-08-VIS006-02-600.jpg", TFault::Cut},
      {"/~idds/images/out/SDDI-20260309-2100-BNW-08-IR_108-02-600.jpg", TFault::Stall},
      {"/~idds/images/out/20260310_120000_07_C1D_0.jpg", TFault::None},
      {"/~idds/images/out/20260310_123000_07_C1D_0.jpg", std::nullopt},
  };
  for (const auto& [path, fault] : cases) {
    const auto file = archive.Find(path);
    EXPECT_EQ(file ? std::optional(file->Fault) : std::nullopt, fault) << path;
  }
  TServerRoots roots;
  for (const TServerSetting& server : MetChartServers()) roots.Set(server, "");
  for (const std::string& item : MetChartItems()) {
    const auto requests = ChartRequests(item, {roots, "/wz/pics/bracka.gif", 1, kNow, kNow});
    EXPECT_TRUE(archive.Find(requests.at(0).Url)) << item;
  }
}

TEST(DemoArchive, CutsOverHttpWhatIsToBeCutAndAsksForAPassword) {
  const TTcpServer server(0, [](TConnection& client) { ServeHttp(archive, client); });
  const std::string root = "http://127.0.0.1:" + std::to_string(server.Port());
  TNMHTTP http;
  http.Get(root + "/~idds/images/out/SDDI-20260309-0900-BNW-08-VIS006-02-600.jpg");
  EXPECT_LT(http.ReceivedByteCount, http.TransferSize);
  http.Get(root + "/abin/filesorder?s=Date");
  EXPECT_EQ(http.ReplyCode, 401);
}

TEST(DemoArchive, ListsOverActiveFtp) {
  const TTcpServer server(0, [](TConnection& client) { ServeFtp(archive, client); });
  TNMFTP ftp;
  ftp.Host = "127.0.0.1";
  ftp.Port = static_cast<std::uint16_t>(server.Port());
  ftp.UserID = ftp.Password = kDemoUser;
  ftp.Connect();
  ftp.ChangeDirectory("/M7");
  std::vector<std::string> names;
  ftp.OnListItem = [&](TNMFTP&, const std::string& name) { names.push_back(name); };
  ftp.NameList();
  EXPECT_THAT(names, testing::Contains("FES_2026-03-09_1200_M7_WV.GIF"));
}

/// The archive of demo/sources.
class LiveArchive : public testing::Test {
 protected:
  /// The content of a file; "" when the archive has none.
  std::string Live(const char* host, const std::string& path) {
    const auto file = Archive.Find(host, path);
    return file ? *file->Content : "";
  }

  TLiveArchive Archive{[] { return kNow; }, SKYREEL_DEMO_SOURCES};
};

TEST_F(LiveArchive, HasWhatItsListsShowAndSomeFilesAreWrong) {
  std::string newest;
  ReadHtmlListing(Live("pictures.weather.example", "/disc/visible/"),
                  [&](const TListed& listed) { newest = listed.Text; });
  EXPECT_EQ(newest, "20260310_1210_disc-visible.jpg");
  const std::string clouds = "/2026/03/10/clouds_";
  const std::tuple<const char*, std::string, TFileType, TVerdictKind> cases[] = {
      {"pictures.weather.example", "/disc/visible/" + newest, TFileType::Jpeg, TVerdictKind::Whole},
      {"charts.weather.example", "/analysis/europe.gif", TFileType::Gif, TVerdictKind::Whole},
      {"clouds.weather.example", clouds + "0900.jpg", TFileType::Jpeg, TVerdictKind::Whole},
      {"clouds.weather.example", clouds + "0910.jpg", TFileType::Jpeg, TVerdictKind::Damaged},
      {"station.weather.example", "/now/20260310_1200.gif", TFileType::Gif, TVerdictKind::Damaged}};
  for (const auto& [host, path, type, verdict] : cases) {
    TWay way;
    way.Type = type;
    const std::string query = path.starts_with(clouds) ? "?width=400&height=300" : "";
    EXPECT_EQ(JudgeBytes(Live(host, path + query), way, {}).Kind, verdict) << path;
  }
  EXPECT_EQ(Live("clouds.weather.example", clouds + "0330.jpg?width=400&height=300"), "");
}

TEST_F(LiveArchive, IsServedWithItsOwnAuthorityAndAnswersThatNothingHasChanged) {
  const test::TTempFolder folder;
  const test::TSecureServer server(Archive.Hosts(), std::bind_front(&TLiveArchive::Find, &Archive));
  const std::string tags = "'" + (folder / "tags").string() + "'";
  const std::string curl = "curl -sS -m 30 --connect-to ::" + server.Address() + " --cacert '" +
                           server.CaFile + "' -o '" + (folder / "chart").string() + "' --etag-save " + tags +
                           " --etag-compare " + tags +
                           " -w '%{http_code} ' https://charts.weather.example/analysis/europe.gif";
  EXPECT_EQ(std::system(("(" + curl + "; " + curl + ") >'" + (folder / "codes").string() + "'").c_str()), 0);
  EXPECT_EQ(ReadWholeFile(folder / "codes"), "200 304 ");
  EXPECT_EQ(ReadWholeFile(folder / "chart"), Live("charts.weather.example", "/analysis/europe.gif"));
}

}  // namespace
}  // namespace skyreel
