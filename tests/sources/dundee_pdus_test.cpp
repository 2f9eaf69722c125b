#include "sources/dundee_pdus.h"

#include <random>

#include "support/job_fixture.h"

namespace skyreel::test {
namespace {

using namespace testing;

TEST(PdusPages, HoldTheStationsProducts) {
  std::string pages;
  for (const auto& [caption, items] : PdusPages())
    pages += caption + " " + std::to_string(items.size()) + ", " + items[4] + "; ";
  EXPECT_EQ(pages, R"(Europe 144, 0030, Meteosat Europe, Visible; Met 7 144, 0030, Meteosat Earth, Visible; )"
                   R"(GMS 13, 0600, GMS, Infra-Red; GOES-E 12, 1200, GOES-E, Infra-Red; )"
                   R"(GOES-W 13, 0630, GOES-W, Infra-Red; Indian Ocean 49, 0230, INDOEX, Water Vapour; )");
}

TEST(PdusNames, CarryTheImageTime) {
  EXPECT_EQ(PdusNameToDateTime("5607011230IR"), At("2056-07-01 12:30"));
  EXPECT_EQ(PdusNameToDateTime("5702280059"), At("1957-02-28 00:59"));
  for (const char* name : {"0302290000", "0207012430", "020701123", "02 701 230", "-207011230", ""})
    EXPECT_EQ(PdusNameToDateTime(name), TDateTime()) << name;
}

TEST(EntryFinder, AgreesWithThePlainSearch) {
  const TWords parts = {"", "a", "ab", "b\xFF", "ba", "aab"};
  for (const std::string& a : parts)
    for (const std::string& b : parts)
      for (const std::string& text : parts)
        EXPECT_EQ(TEntryFinder({a, b}).HasEntryIn(text + a + text), ListHasEntryIn(text + a + text, {a, b}));
}

TEST(AnalysePdus, ListsTheProductsOfSavedPagesByAreaTimeAndChannel) {
  const TTempFolder program, current;
  program.Write("_PdusList0001.txt",
                "/pdus? at 1230, INDOEX, Visible</a> x\n/pdus? 01/11/1993 at 0000, GMS, Visible\n"
                "/pdus? at 0030, GOES-W, Visible\n/pdus? at 0030, GOES-W, Infra-Red</a>\n/pdus? no time\n");
  program.Write("_PdusList0002.txt",
                "/pdus? at 1230, INDOEX, Visible\r\n/pdu? at 0, GMS\n/pdus? at 0000, indoex, Visible");
  program.Write("_PdusList0004.txt", "/pdus? at 0000, GMS, Visible");
  AnalysePdus(program.Path(), current.Path());
  EXPECT_EQ(ReadWholeFile(current / "_all_pdus.txt"),
            "0030, GOES-W, Infra-Red\n0030, GOES-W, Visible\n0000, indoex, Visible\n1230, INDOEX, Visible\n");
}

class TPdus : public TJobTest {
 protected:
  void RunJob(const std::string& last_panel) {
    RunPlanned([&](TJobContext& context) {
      TPdusJob(context, {OutputPath(), "user", "secret", {"0200, INDOEX, Visible"}}).Run();
    });
    EXPECT_EQ(Display.Panel(0) + ", " + Display.Panel(1), "Dundee PDUS, " + last_panel);
    for (const int panel : {0, 1}) Display.SetPanel(panel, "");  // as the form does at the end of a run
  }
  static std::string Link(const std::string& path) { return "\"" + path + "\" 0200, IODC, Visible\n"; }
};

TEST_F(TPdus, FetchesTheLastOfferFirstAndOnceAndSizesDecide) {
  constexpr int kWhole = 890'120;
  // The product, bytes of a present file (0: no file), bytes announced, bytes that come (0: only the
  // header is asked for), bytes kept, the outcome.
  const std::tuple<std::string, int, int, int, int, const char*> cases[] = {
      {"0207010200", kWhole, kWhole, 0, kWhole, ""},
      {"0207010230", 10, 0, 0, 10, ""},
      {"0207010300", 10, kWhole, kWhole, kWhole, " - OK"},
      {"0207010330", 0, kWhole - 1, kWhole - 1, kWhole - 1, " - incomplete?"},
      {"0207010400", kWhole, 29, 29, kWhole, " - incomplete?"},
      {"0207010430", kWhole, kWhole + 5, kWhole, kWhole, " - incomplete?"},
      {"0207010500", kWhole, kWhole + 5, kWhole + 5, kWhole + 5, " - OK"}};
  const std::string order = "/abin/filesorder?s=Date", folder = "2002/07/01/", ones(252, '1'),
                    away = " - refused: link leads away from the server",
                    name = " - refused: unsafe file name",
                    blank = " - refused: blank or control character in the link";
  std::string page =
      Link("@e/pdus?f=1") + Link("//e/pdus?f=1") + Link("/pdus?f=1 HTTP") + Link("/pdus?f=\t") +
      Link("/pdus?f=../1") + Link("/pdus") + Link("/pdus?f=pdus") + Link("/pdus?f=" + ones) +
      "\"/pdus?f=1\" 0200, INDOEX, Visible\n\"/p?f=1\" 0200, IODC, Visible\n/pdus 0200, IODC, Visible \"x";
  TWords lines = {"@e/pdus?f=1" + away,     "//e/pdus?f=1" + away,
                  "/pdus?f=1 HTTP" + blank, "/pdus?f=?" + blank,
                  "/pdus?f=../1" + name,    "/pdus" + name,
                  "/pdus?f=pdus" + name,    "/pdus?f=" + ones.substr(0, 112) + "..." + name};
  std::map<std::string, std::int64_t> tree;
  for (const auto& [product, present, announced, sent, kept, outcome] : cases) {
    const std::string path = "/pdus?f=pdus" + product + "&s=1", file = product + ".pdu";
    page = Link(path) + Link(path) + page;
    Server.Script(path, "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" +
                            Picture(static_cast<std::size_t>(sent)));
    if (present > 0) WriteOutput(folder + file, Picture(static_cast<std::size_t>(present)));
    if (sent > 0) lines.insert(lines.end(), {"Get: " + file, file + outcome});
    tree[folder + file] = kept;
  }
  Server.Answer(order, page);
  RunJob("All files done");
  EXPECT_THAT(Requests(), AllOf(SizeIs(1 + 7 + 5), Contains("HEAD /pdus?f=pdus0207010200&s=1")));
  EXPECT_THAT(Display.Panels, Contains(Pair(1, "Getting available PDUS data list...")));
  EXPECT_EQ(Lines(), lines);
  EXPECT_EQ(Tree(), tree);
  EXPECT_THAT(Stored(), Contains(folder + "0207010500.pdu 890125 2002-07-01 05:00"));
  EXPECT_EQ(Results()[1], "Tab:  2002-07-01 0330, http://server/pdus?f=pdus0207010330&s=1 > " + folder +
                              "0207010330.pdu - missing or incomplete: the server announced 890119 bytes");
  EXPECT_THAT(Server.Received(), Each(HasSubstr("Authorization: Basic dXNlcjpzZWNyZXQ=\r\n")));
  EXPECT_EQ(NMHTTP.HeaderInfo.UserId + NMHTTP.HeaderInfo.Password, "") << "no other server gets them";
}

TEST_F(TPdus, OnlyTheFirstOfVeryManyRefusedEntriesAreNamedAndAStopEndsTheRun) {
  std::string page;
  for (int i = 0; i < 1000; ++i) page += Link("//x/pdus");
  Serve(0, "/abin/", page);
  RunJob("No new files found");
  EXPECT_THAT(Lines(), AllOf(SizeIs(21), Contains("... and 980 more refused")));
  ExpectStopAt(
      "=2", [this] { RunJob("All files done"); }, "/abin/", Link("/pdus?f=1") + Link("/pdus?f=2"));
  EXPECT_THAT(Tree(), ElementsAre(Key("2.pdu"))) << "no date, no folder";
}

}  // namespace
}  // namespace skyreel::test
