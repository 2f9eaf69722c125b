#include "sources/met_charts.h"

#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

/// The charts of an item, one a line as "address > dd hhnn file", of many the first and the last. The run
/// began at 11:00; every server says that its chart is of 13:47 on 10 November 2005.
std::string Plan(std::string_view item, const char* now, int back_days) {
  const TChartPlan when{TServerRoots(), "b/a.gif", back_days, At("2004-03-01 11:00"), At(now)};
  std::string plan;
  auto charts = ChartRequests(item, when);
  std::erase_if(charts, [&](const TChartRequest& chart) { return !IsDue(chart, when.Now); });
  for (const TChartRequest& chart : charts) {
    const bool ends = &chart == &charts.front() || &chart == &charts.back();
    if (charts.size() > 4 && !ends) continue;
    const TDateTime time = ChartTime(chart, At("2005-11-10 13:47"));
    plan += chart.Url + " > " + FormatDateTime("dd hhnn ", time) + ChartFileName(chart, time) + "\n";
  }
  return plan;
}

TEST(MetChartsPlan, NamesAddressTimeAndFileOfEachChart) {
  std::string plan;
  for (const std::string& item : MetChartItems()) plan += Plan(item, "2004-03-01 00:45:01", 1);
  plan += Plan("Lightning (Europe)", "2004-03-01 23:50", 2) +
          Plan("Rain radar (MM) Denmark, UK", "2004-03-01", 2);
  for (const char* none : {"Rain radar (central Europe)", "Rain radar (MM) Spain", "Bracknell "})
    plan += Plan(none, "2005-01-01 00:30", 1);
  EXPECT_EQ(plan,
            R"(http://www.bom.gov.au/difacs/archives/2004/03/IDX0032.20040301.gif > 10 1200 aus_pac_1200.gif
http://www.bom.gov.au/difacs/archives/2004/02/IDX0532.20040229.gif > 10 1200 aus_pac_1200.gif
http://www.bom.gov.au/difacs/archives/2004/03/IDX0033.20040301.gif > 10 1200 aus_ind_1200.gif
http://www.bom.gov.au/difacs/archives/2004/02/IDX0533.20040229.gif > 10 1200 aus_ind_1200.gif
b/a.gif > 10 1200 bracka_1200.gif
http://weather.noaa.gov/pub/fax/QPAA99.TIF > 10 0000 QPAA99.tif
http://www.opc.ncep.noaa.gov/shtml/ppag50bw.gif > 10 0000 ppag50bw.gif
http://www.metservice.co.nz/data/swp_0000_anal.gif > 10 1200 nz_swp_1200.gif
http://www.metservice.co.nz/data/tnz_1800_anal.gif > 10 1200 nz_tnz_1200.gif
http://www.opc.ncep.noaa.gov/shtml/ppaa50bw.gif > 10 0000 ppaa50bw.gif
http://weather-site.example/daten/blitze/2004/03/euro010000.gif > 01 0000 blitz_eu_0000.gif
http://www.wetterzentrale.de/wz/pics/archive/2004/sfloc/Rsfloc20040229.gif > 10 1347 Rsfloc.gif
http://www.wetterzentrale.de/wz/pics/archive/2004/sfloc/Rsfloc220040229.gif > 10 1347 Rsfloc2.gif
http://weather-site.example/daten/radar/nleurg/2004/03/010000.gif > 01 0000 radar_eu_0000.gif
http://weather-site.example/daten/radar/nleurg/2004/03/010015.gif > 01 0015 radar_eu_0015.gif
http://radar-archive.example/data/gss/r-we040229.zip > 29 0000 r-we040229.zip
http://radar-archive.example/data/gss/r-ce040229.zip > 29 0000 r-ce040229.zip
http://radar-archive.example/data/gss/r-uk040229.zip > 29 0000 r-uk040229.zip
http://radar-archive.example/data/gss/r-nl040229.zip > 29 0000 r-nl040229.zip
http://radar-archive.example/data/gss/r-dk040229.zip > 29 0000 r-dk040229.zip
http://radar-archive.example/data/gss/r-fr040229.zip > 29 0000 r-fr040229.zip
http://www.nhc.noaa.gov/tafb/PACFUL_00Zbw.gif > 10 0000 PACFUL_00Zbw.gif
http://www.opc.ncep.noaa.gov/shtml/pyba02bw.gif > 10 0000 pyba02bw.gif
http://weather-site.example/daten/blitze/2004/03/euro010000.gif > 01 0000 blitz_eu_0000.gif
http://weather-site.example/daten/blitze/2004/02/euro292330.gif > 29 2330 blitz_eu_2330.gif
http://radar-archive.example/data/gss/r-uk040229.zip > 29 0000 r-uk040229.zip
http://radar-archive.example/data/gss/r-uk040228.zip > 28 0000 r-uk040228.zip
)");
  for (const char* url : {"http://h/", "http://h/..", "http://h/a:b"})
    EXPECT_EQ(ChartFileName({url, 14, 1, {}}, {}), "") << url;
}

using TMetCharts = TJobTest;

TEST_F(TMetCharts, ChartsGoThroughTheProxyWhenTheirSizeChangesAndTheirDateIsGood) {
  Context.Shared = {20, 1, true, "127.0.0.1", std::to_string(Server.Port())};
  for (const auto& [modified, size, requests, outcome] :
       {std::tuple(Modified, 1U, 2, " - OK"),
        {Modified, 1, 1, ""},
        {Modified, 2, 2, " - OK"},
        {"Fri, 01 Jan 1960 00:00:00 GMT", 9, 1, ""},
        {"Fri, 11 Nov 2005 12:00:01 GMT", 9, 1, ": dated in the future, 2005-11-11"}}) {
    Modified = modified;
    Serve(size);
    RunPlanned([&](TJobContext& context) {
      TMetChartsJob(context, {OutputPath(), {"Bracknell"}, "http://host/a.gif"}).Run();
    });
    EXPECT_THAT(Asked(), AllOf(SizeIs(requests), Each("http://host/a.gif")));
    EXPECT_THAT(Lines(), AllOf(SizeIs(*outcome != 0),
                               Each(AllOf(StartsWith("http://host/a.gif - "), EndsWith(outcome)))));
  }
  EXPECT_EQ(Results()[0],
            "Tab: Bracknell 2005-11-10 1200, http://host/a.gif > 2005/11/10/bracka_1200.gif - OK");
  EXPECT_EQ(NMHTTP.TimeOut, 20'000);
  EXPECT_EQ(Clock.Slept, 2 * 150ms);
}

TEST_F(TMetCharts, RadarPicturesCountFromMoreThan5000BytesUntilAStop) {
  const std::string path = "/daten/radar/nleurg/2005/11/10", local = "2005/11/10/radar_eu_";
  WriteOutput(local + "0000.gif", Picture(5'000));
  WriteOutput(local + "0015.gif", Picture(5'001));
  Server.Answer(path + "0030.gif", Picture(5'000), {"Last-Modified: " + Modified});
  ExpectStopAt("0045.gif", [this] {
    RunPlanned([&](TJobContext& context) {
      TMetChartsJob(context, {OutputPath(), {MetChartItems()[8]}, ""}).Run();
    });
  });
  EXPECT_THAT(Server.Requests(), ElementsAre("HEAD " + path + "0000.gif", "GET " + path + "0000.gif",
                                             "HEAD " + path + "0030.gif", "HEAD " + path + "0045.gif",
                                             "GET " + path + "0045.gif"));
  EXPECT_THAT(Stored(), Contains(local + "0045.gif 20000 2005-11-10 00:45"));
  Serve(20'000);
  Clock.Now = At("2005-11-10 12:00");
  RunPlanned([&](TJobContext& context) {
    TMetChartsJob(context, {OutputPath(), {MetChartItems()[8]}, ""}).Run();
  });
  EXPECT_THAT(Asked().back(), EndsWith("1130.gif")) << "the pauses of the run made it due";
}

}  // namespace
}  // namespace skyreel::test
