#include <gmock/gmock.h>

#include "demo/archive.h"
#include "demo/ftp_service.h"
#include "demo/http_service.h"
#include "net/nm_ftp.h"
#include "net/nm_http.h"
#include "sources/met_charts.h"

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

}  // namespace
}  // namespace skyreel
