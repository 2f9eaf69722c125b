#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "demo/archive.h"
#include "demo/ftp_service.h"
#include "demo/http_service.h"
#include "demo/tcp_server.h"
#include "sources/dundee_pdus.h"
#include "sources/met_charts.h"

namespace skyreel {
namespace {

using namespace skyreel::demo;
using namespace std::chrono_literals;
using namespace testing;

const TDateTime kNow = TDateTime::FromDate(2026, 3, 10, 12, 20);

class DemoArchive : public ::testing::Test {
 protected:
  /// Everything that a server sends to one connection that asks this and no more.
  static std::string Talk(TTcpServer& server, const std::string& request) {
    const auto connection = ConnectLocally(server.Port());
    if (!connection || !connection->Write(request)) return {};
    std::string reply;
    while (const auto line = connection->ReadLine()) reply += *line + "\n";
    return reply;
  }

  TDemoArchive archive_{[] { return kNow; }};
};

TEST_F(DemoArchive, HasWhatTheSourcesAskForAndLargeEnough) {
  const TDateTime noon = TDateTime::FromDate(2026, 3, 9, 12);
  const struct {
    const char *Path, *Begin;
    std::size_t Least;
    TDateTime Time;
  } cases[] = {
      {"/~idds/images/out/20260309_120000_07_C1D_0.jpg", "\xFF\xD8", 10001, noon},
      {"/~idds/images/out/20260309_000000_05_ETOT_0.jpg", "\xFF\xD8", 10001, noon - 12h},
      {"/~idds/images/out/SDDI-20260309-1200-BNW-08-IR_108-00-800.jpg", "\xFF\xD8", 10001, noon},
      {"/~idds/images/out/SDDI-20260309-1200-BNW-07-WV-00-600.jpg", "\xFF\xD8", 10001, noon},
      {"/~idds/images/out/SDDI-20260309-1200-RGB-09-DUST-07-1237.jpg", "\xFF\xD8", 10001, noon},
      {"/goeseast-lzw/conus/vis/2603091145G13I01.tif", "II", 20000, noon - 15min},
      {"/goeswest/antilles/ir3/2603091200G15I03.tiff", "II", 1000000, noon},
      {"/abin/pdus?name=PDUS2603091230FV&order=Date", "1230, IODC", 890120, noon + 30min},
      {"/wz/pics/bracka.gif", "GIF8", 5001, kNow.RoundedDown(6h)},
      {"/data/tnz_1800_anal.gif", "GIF8", 5001, noon + 6h},
      {"/M7/FES_2026-03-08_2400_M7_IR.OPEN_MTP.bz2", "BZh", 10001, noon - 12h},
      {"/M5/FES_2026-03-09_1200_M5_WV.OPEN_MTP.Z", "\x1F\x9D", 10001, noon},
      {"/M5/FES_2026-03-09_1200_M5_VISSN.GIF", "GIF8", 10001, noon},
      {"/Weather/METEOSAT-7/McIDAS_areas/vis/5km/ME7-202603091200.vis.ara.Z", "\x1F\x9D", 200001, noon},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.Path);
    const auto file = archive_.Find(expected.Path);
    ASSERT_TRUE(file);
    EXPECT_THAT(*file->Content, StartsWith(expected.Begin));
    EXPECT_GE(file->Content->size(), expected.Least);
    EXPECT_EQ(file->Modified, expected.Time);
    EXPECT_EQ(file->Fault, TFault::None);
    EXPECT_EQ(archive_.Find(expected.Path)->Content, file->Content) << "made twice";
  }
}

TEST_F(DemoArchive, HasNoFileOfAnImplausibleNameAndShowsEveryOutcomeAtItsHour) {
  const std::string pictures = "/~idds/images/out/", sddi = pictures + "SDDI-20260309-";
  for (const std::string& path :
       {std::string("/"), std::string(), std::string(100000, 'a'), pictures + "20261309_120000_07_C1D_0.jpg",
        pictures + "20260309_126000_07_C1D_0.jpg", pictures + "20260310_123000_07_C1D_0.jpg",
        pictures + "20250309_120000_07_C1D_0.jpg", std::string("/M5/FES_2026-03-09_1200_M7_IR.GIF"),
        std::string("/../../etc/passwd"), sddi + "0300-BNW-08-VIS006-02-600.jpg"})
    EXPECT_FALSE(archive_.Find(path)) << path;
  EXPECT_EQ(archive_.Find(sddi + "0900-BNW-08-VIS006-02-600.jpg")->Fault, TFault::Cut);
  EXPECT_EQ(archive_.Find(sddi + "2100-BNW-08-IR_108-02-600.jpg")->Fault, TFault::Stall);
}

TEST_F(DemoArchive, HasWhatItListsAndWhatTheChartJobAsksFor) {
  TServerRoots roots;
  for (const TServerSetting& server : MetChartServers()) roots.Set(server, "");
  for (const std::string& item : MetChartItems()) {
    const auto requests = ChartRequests(item, {roots, "/wz/pics/bracka.gif", 1, kNow, kNow});
    const auto file = archive_.Find(requests.at(0).Url);
    ASSERT_TRUE(file) << requests[0].Url;
    EXPECT_GT(file->Content->size(), static_cast<std::size_t>(ChartKind(requests[0].Kind).MinimumSize));
  }
  const auto listing = archive_.Find("/IDDS-cgi/listImages?m=7,s=1,c=1,o=0,d=0,f=1");
  ASSERT_TRUE(listing);
  EXPECT_THAT(*listing->Content,
              HasSubstr("\nframe0 = \"/~idds/images/out/20260308_000000_07_C1D_0.jpg\";\n"));
  EXPECT_THAT(*listing->Content, HasSubstr("20260310_120000_07_C1D_0.jpg\";\nnumber_of_images"));
  const auto page = archive_.Find("/abin/filesorder?s=Date");
  ASSERT_TRUE(page);
  const TPdusOrder order = ParseOrderPage(*page->Content, "", {"1200, Meteosat Europe, Visible", "IODC"});
  EXPECT_EQ(order.RefusedCount, 0u);
  ASSERT_GT(order.Entries.size(), 50u);
  const auto product = archive_.Find(order.Entries[0].Url);
  ASSERT_TRUE(product);
  EXPECT_EQ(product->Modified, PdusNameToDateTime(order.Entries[0].Name));
}

TEST_F(DemoArchive, AnswersHttp) {
  TTcpServer server(0, [this](TConnection& client) { ServeHttp(archive_, client); });
  const std::string chart = "/wz/pics/bracka.gif";
  const std::string size = std::to_string(archive_.Find(chart)->Content->size());

  const std::string head = Talk(server, "HEAD " + chart + " HTTP/1.0\r\n\r\n");
  EXPECT_THAT(head, StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(head, HasSubstr("\nContent-Length: " + size + "\n"));
  EXPECT_THAT(head, HasSubstr("\nLast-Modified: Tue, 10 Mar 2026 12:00:00 GMT\n"));
  EXPECT_THAT(head, EndsWith("\n\n")) << "a body after HEAD";

  const std::string order = "GET /abin/filesorder?s=Date HTTP/1.0\r\n";
  const std::pair<std::string, const char*> requests[] = {
      {"GET " + chart + " HTTP/1.1\r\nHost: a\r\n\r\n", "200"},
      {"GET http://any.example" + chart + " HTTP/1.0\r\n\r\n", "200"},
      {"GET /none HTTP/1.0\r\n\r\n", "404"},
      {"POST / HTTP/1.0\r\n\r\n", "405"},
      {"rubbish\r\n\r\n", "400"},
      {order + "\r\n", "401"},
      {order + "authorization: Basic ZGVtbzpub3Bl\r\n\r\n", "401"},
      {order + "authorization: Basic ZGVtbzpkZW1v\r\n\r\n", "200"}};
  for (const auto& [request, status] : requests)
    EXPECT_EQ(Talk(server, request).substr(9, 3), status) << request;

  const std::string cut =
      Talk(server, "GET /~idds/images/out/SDDI-20260309-0900-BNW-08-VIS006-02-600.jpg HTTP/1.0\r\n\r\n");
  const auto whole =
      archive_.Find("/~idds/images/out/SDDI-20260309-0900-BNW-08-VIS006-02-600.jpg")->Content->size();
  EXPECT_THAT(cut, HasSubstr("\nContent-Length: " + std::to_string(whole) + "\n"));
  EXPECT_LT(cut.size(), whole);
}

TEST_F(DemoArchive, AnswersFtpActiveAndPassive) {
  TTcpServer server(0, [this](TConnection& client) { ServeFtp(archive_, client); });
  const auto control = ConnectLocally(server.Port());
  ASSERT_TRUE(control);
  const auto say = [&](const std::string& command) {
    control->Write(command + "\r\n");
    return control->ReadLine().value_or("");
  };
  EXPECT_THAT(control->ReadLine().value_or(""), StartsWith("220 "));
  const std::pair<const char*, const char*> commands[] = {{"PWD", "530 "},
                                                          {"USER demo", "331 "},
                                                          {"PASS wrong", "530 "},
                                                          {"USER demo", "331 "},
                                                          {"PASS demo", "230 "},
                                                          {"TYPE I", "200 "},
                                                          {"RETR /M7/FES_2026-03-09_1200_M7_WV.GIF", "425 "},
                                                          {"RETR /M7/none", "550 "},
                                                          {"PORT 1,2,3", "501 "},
                                                          {"CWD /nowhere", "550 "},
                                                          {"CWD M7", "250 "},
                                                          {"PWD", "257 \"/M7\""}};
  for (const auto& [command, reply] : commands) EXPECT_THAT(say(command), StartsWith(reply)) << command;

  const auto gif = archive_.Find("/M7/FES_2026-03-09_1200_M7_WV.GIF");
  const std::string size = std::to_string(gif->Content->size());
  EXPECT_EQ(say("SIZE FES_2026-03-09_1200_M7_WV.GIF"), "213 " + size);

  TListener data_listener(0);
  const int port = data_listener.Port();
  EXPECT_THAT(say("PORT 127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256)),
              StartsWith("200 "));
  EXPECT_THAT(say("RETR FES_2026-03-09_1200_M7_WV.GIF"), HasSubstr("(" + size + " bytes)"));
  auto data = data_listener.Accept(5s);
  ASSERT_TRUE(data);
  std::string received(gif->Content->size() + 1, '\0');
  ssize_t got = ::recv(data->Socket(), received.data(), received.size(), MSG_WAITALL);
  EXPECT_TRUE(received.substr(0, static_cast<std::size_t>(std::max<ssize_t>(got, 0))) == *gif->Content)
      << got;
  data.reset();
  EXPECT_THAT(control->ReadLine().value_or(""), StartsWith("226 "));

  const auto passive_port = [&] {
    const std::string reply = say("PASV");
    int high = 0, low = 0;
    EXPECT_EQ(std::sscanf(reply.c_str(), "227 Entering Passive Mode (127,0,0,1,%d,%d)", &high, &low), 2)
        << reply;
    return high * 256 + low;
  };
  const int aborted = passive_port();
  EXPECT_THAT(say("RETR FES_2026-03-09_1200_M7_WV.GIF"), StartsWith("150 "));
  // The transfer cannot begin, and so cannot be complete, before there is a connection for it.
  control->Write("ABOR\r\n");
  data = ConnectLocally(aborted);
  ASSERT_TRUE(data);
  EXPECT_THAT(control->ReadLine().value_or(""), StartsWith("426 "));
  EXPECT_THAT(control->ReadLine().value_or(""), StartsWith("226 "));

  const int listed = passive_port();
  EXPECT_THAT(say("NLST"), StartsWith("150 "));
  data = ConnectLocally(listed);
  ASSERT_TRUE(data);
  std::vector<std::string> names;
  while (const auto line = data->ReadLine()) names.push_back(*line);
  data.reset();
  EXPECT_THAT(control->ReadLine().value_or(""), StartsWith("226 "));
  EXPECT_THAT(names,
              IsSupersetOf({"FES_2026-03-09_1200_M7_WV.GIF", "FES_2026-03-08_2400_M7_IR.OPEN_MTP.bz2"}));
  EXPECT_THAT(say("QUIT"), StartsWith("221 "));
}

}  // namespace
}  // namespace skyreel
