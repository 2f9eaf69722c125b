
#include "sources/dundee_pdus.h"
#include "sources/eu_archive.h"
#include "sources/met_charts.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using test::HttpReply;
using test::Picture;
using test::TWords;
using testing::ElementsAre;
using testing::IsEmpty;

/// What a source makes of a fault that its transfer reports.
class TSourceFaults : public test::TJobTest {
 protected:
  TSourceFaults() : TJobTest("2005-11-10 01:44") {}
  TWords Pdus() {
    TPdusJob(Context, {OutputPath(), "user", "secret", {"0200, GMS, Visible"}}).Run();
    for (const int panel : {0, 1}) Display.SetPanel(panel, "");  // the form does so after a run
    return Lines();
  }
};

TEST_F(TSourceFaults, AListThatIsCutIsUsedAndSaidToBeIncomplete) {
  const std::string name = "/~idds/images/out/20051110_000000_07_D1_0.jpg",
                    list = "frame0 = \"" + name + "\";\n";
  const std::string whole = list + "number_of_images = 1;";
  const std::pair<std::string, const char*> pages[] = {
      {HttpReply(whole), ""},
      {HttpReply(list), "D1 20051110 - file list incomplete"},
      {"HTTP/1.0 200 OK\r\nContent-Length: 9999\r\n\r\n" + whole, "D1 20051110 - file list incomplete"},
      {HttpReply("no list", {}, "404 Not Found"),
       "D1 20051110 - failed to get file list: the page holds no list"},
      {"<close>", "D1 20051110 - failed to get file list: Connection closed before the reply"},
  };
  for (const auto& [reply, line] : pages) {
    Server.Script(EuArchiveListing("D1"), reply);
    Server.Answer(name, Picture(12'000));
    std::filesystem::remove_all(Output("2005"));
    const bool fetched = reply.find("frame0") != std::string::npos;
    TWords expected;
    if (*line != '\0') expected.push_back(line);
    if (fetched) expected.push_back(name + " - OK");
    TEuArchiveJob(Context, {OutputPath(), false, 0, {"D1"}}).Run();
    EXPECT_EQ(Lines(), expected) << line;
  }
}

TEST_F(TSourceFaults, AChartIsNamedWhereItsServerRefusesOrCutsIt) {
  const std::string zip = "/data/gss/r-uk051109.zip", url = Server.Url(zip),
                    date = "Last-Modified: Wed, 09 Nov 2005 12:00:00 GMT";
  const std::string header = "HTTP/1.0 200 OK\r\nContent-Length: 6000\r\n" + date + "\r\n\r\n";
  // The replies to HEAD and GET, and what goes behind the URL; empty: no line.
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {HttpReply("", {}, "404 Not Found"), "", ""},
      {HttpReply("", {}, "405 No"), "", " - refused by the server: 405"},
      {"HTTP/1.0 302 Found\r\nLocation: http://h:x/\r\n\r\n", "", " - Bad port in URL"},
      {header, header + Picture(3'000), " - missing or incomplete: received 3000 of 6000 bytes"},
      {header, "<close>", " - timed out"},
      {header, header + Picture(6'000), " - OK"},
  };
  for (const auto& [head, get, line] : rows) {
    Server.Script("HEAD " + zip, head);
    Server.Script("GET " + zip, get);
    const TWords expected = line.empty() ? TWords{} : TWords{url + line};
    TMetChartsJob(Context, {OutputPath(), {"Rain radar (MM) UK"}, ""}).Run();
    EXPECT_EQ(Lines(), expected);
  }
}

TEST_F(TSourceFaults, AnOrderPageOrAProductThatIsRefusedIsReported) {
  const std::string page = "/abin/filesorder?s=Date", product = "/pdus?f=0511101200";
  const std::string entry = "<a href=\"" + product + "\">0200, GMS, Visible</a>\n";
  Server.Answer(page, "", {}, "401 Who");
  EXPECT_THAT(Pdus(), ElementsAre("Tab: " + Server.Url("") + " refused the user name or the password"));
  Server.Answer(page, entry, {}, "500 Oops, Basic dXNlcjpzZWNyZXQ=, SECRET");
  EXPECT_THAT(Pdus(), ElementsAre("Dundee PDUS file list - the server answered 500 Oops, Basic ***=, ***"));
  Server.Script(page, "HTTP/1.0 200 OK\r\nContent-Length: 9999\r\n\r\n" + entry);
  Server.Answer(product, Picture(900'000));
  // The header request fails, so nothing proves that the file is whole.
  Server.Answer("HEAD " + product, "", {}, "404 Not Found");
  EXPECT_THAT(Pdus(), ElementsAre("Dundee PDUS file list - incomplete", "Get: 0511101200.pdu",
                                  "0511101200.pdu - incomplete?"));
  EXPECT_THAT(Stored(), ElementsAre(testing::StartsWith("2005/11/10/0511101200.pdu 900000 ")));
  Server.Stop();
  Context.Servers.Set(kPdusServer, Server.Url(""));
  EXPECT_THAT(Pdus(), ElementsAre("Tab: " + Server.Url("") + " refused the connection",
                                  "Dundee PDUS file list - Connection Failed"));
}

}  // namespace
}  // namespace skyreel
