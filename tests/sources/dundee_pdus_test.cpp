#include "sources/dundee_pdus.h"

#include <random>

#include "base/text.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using namespace test;
using namespace testing;

TEST(PdusPages, HoldTheStationsProducts) {
  std::vector<std::pair<std::string, std::size_t>> sizes;
  for (const TPdusPage& page : PdusPages()) sizes.emplace_back(page.Caption, page.Items.size());
  EXPECT_THAT(sizes, ElementsAre(Pair("Europe", 144), Pair("Met 7", 144), Pair("GMS", 13), Pair("GOES-E", 12),
                                 Pair("GOES-W", 13), Pair("Indian Ocean", 49)));
  EXPECT_EQ(PdusPages()[0].Items[5], "0030, Meteosat Europe, Water Vapour");
  EXPECT_EQ(PdusPages()[1].Items.back(), "2330, Meteosat Earth, Water Vapour");
  EXPECT_EQ(PdusPages()[3].Items[5], "1200, GOES-E, Visible");
  EXPECT_EQ(PdusPages()[4].Items.back(), "2130, GOES-W, Visible");
  EXPECT_THAT(PdusPages()[5].Items, Contains("1500, INDOEX, Infra-Red"));
}

TEST(PdusNames, CarryTheImageTime) {
  const std::pair<const char*, TDateTime> cases[] = {{"0207011230IR", At("2002-07-01 12:30")},
                                                     {"5607011230", At("2056-07-01 12:30")},
                                                     {"5707011230", At("1957-07-01 12:30")},
                                                     {"0402290000", At("2004-02-29")},
                                                     {"0302290000", {}},
                                                     {"0207012430", {}},
                                                     {"020701123", {}},
                                                     {"02 701 230", {}},
                                                     {"-207011230", {}},
                                                     {"", {}}};
  for (const auto& [name, time] : cases) EXPECT_EQ(PdusNameToDateTime(name), time) << name;
}

TEST(OrderPage, GivesTheWantedEntriesLastFirst) {
  const std::string page =
      "<a href=\"/pdus?f=pdus0207011200MET7.x&s=1\">1200, Meteosat Europe, Visible at 01/07/2002</a>\r\n"
      "<a href=\"/pdus?f=0207011230\">1230, IODC, Visible</a>\r\n"
      "<a href=\"/pdus?f=0207011230X\">1230, INDOEX, Visible</a>\r\n"
      "<a href=\"/other?f=0207011200\">1200, Meteosat Europe, Visible</a>\r\n"
      "/pdus 1200, Meteosat Europe, Visible without quotes\r\n"
      "/pdus 1200, Meteosat Europe, Visible with \"one\r\n" +
      std::string(1 << 20, '0') + "\"/pdus?f=1\"1230, IODC, Visible";
  const TPdusOrder order = ParseOrderPage(
      page, "http://h", PdusWantedTexts({"1200, Meteosat Europe, Visible", "1230, INDOEX, Visible"}));
  TWords entries;
  for (const TPdusOrder::TEntry& entry : order.Entries) entries.push_back(entry.Url + " " + entry.Name);
  EXPECT_THAT(entries, ElementsAre("http://h/pdus?f=1 1", "http://h/pdus?f=0207011230 0207011230",
                                   "http://h/pdus?f=pdus0207011200MET7.x&s=1 0207011200MET7.X"));
  EXPECT_THAT(order.Refused, IsEmpty());
}

TEST(OrderPage, RefusesHostileEntriesWithALineEach) {
  const std::string away = "link leads away from the server", name = "unsafe file name",
                    blank = "blank or control character in the link";
  const std::pair<std::string, std::string> cases[] = {{"http://elsewhere/pdus?f=0207010200", away},
                                                       {"//elsewhere/pdus?f=0207010200", away},
                                                       {"@elsewhere/pdus?f=0207010200", away},
                                                       {":81/pdus?f=0207010200", away},
                                                       {"/pdus?f=0207010200 HTTP/1.0", blank},
                                                       {"/pdus?f=0207010200\tx", blank},
                                                       {"/pdus?f=../0207010200", name},
                                                       {"/pdus?f=C:0207010200", name},
                                                       {"/pdus", name},  // no parameter: the whole link
                                                       {"/pdus?f=", name},
                                                       {"/pdus?f=PDUS", name},
                                                       {"/pdus?f=.&s=1", name},
                                                       {"/pdus?f=" + std::string(252, '1'), name}};
  for (const auto& [target, refusal] : cases) {
    const TPdusOrder order = ParseOrderPage("/pdus \"" + target + "\" GMS", "http://h", {"GMS"});
    EXPECT_THAT(order.Entries, IsEmpty()) << target;
    ASSERT_THAT(order.Refused, ElementsAre(EndsWith(" - refused: " + refusal))) << target;
    EXPECT_FALSE(HasControlCharacter(order.Refused[0]));
    EXPECT_LT(order.Refused[0].size(), 200u);
  }
}

TEST(EntryFinder, AgreesWithThePlainSearch) {
  // Few letters, so that entries overlap, repeat and begin one another.
  std::mt19937 random(1);
  const auto text = [&](unsigned most) {
    std::string made;
    for (auto n = random() % (most + 1); n > 0; --n) made += "ab0\xFF"[random() % 4];
    return made;
  };
  int hits = 0;
  for (int round = 0; round < 3000; ++round) {
    TWords list;
    for (auto n = random() % 6; n > 0; --n) list.push_back(text(5));
    const std::string line = text(20);
    const bool expected = ListHasEntryIn(line, list);
    hits += expected;
    ASSERT_EQ(TEntryFinder(list).HasEntryIn(line), expected) << line << " in round " << round;
  }
  EXPECT_TRUE(hits > 500 && hits < 2900) << hits;
}

TEST(AnalysePdus, ListsTheProductsOfSavedPagesByAreaTimeAndChannel) {
  const TTempFolder program, current;
  const auto link = [](const char* text) {
    return "<a href=\"/pdus?f=1\">" + std::string(text) + "</a> x\r\n";
  };
  program.Write("_PdusList0001.txt",
                link("01/07/2002 at 1230, INDOEX, Visible") + link("01/07/2002 at 0030, GOES-W, Visible") +
                    link("01/07/2002 at 0030, GOES-W, Infra-Red") + link("01/11/1993 at 0000, GMS, Visible") +
                    link("no time") + "<a href=\"/pdu?f=5\">01/07/2002 at 0000, GMS, Visible</a>\r\n");
  program.Write("_PdusList0002.txt",
                link("02/07/2002 at 1230, INDOEX, Visible") + link("02/07/2002 at 0000, indoex, Visible"));
  program.Write("_PdusList0004.txt", link("02/07/2002 at 0000, GMS, Visible"));
  AnalysePdus(program.Path(), current.Path());
  EXPECT_EQ(ReadWholeFile(current / "_all_pdus.txt"),
            "0030, GOES-W, Infra-Red\n0030, GOES-W, Visible\n0000, indoex, Visible\n1230, INDOEX, Visible\n");
}

constexpr std::size_t kProduct = 890'120;

class TPdus : public TJobTest {
 protected:
  TPdus() : TJobTest("2005-11-10 12:00") {}
  void TearDown() override {
    for (const int panel : {0, 1}) Display.SetPanel(panel, "");  // as the form does at the end of a run
    TJobTest::TearDown();
  }
  void RunJob(TWords wanted = {"0200, INDOEX, Visible"}) {
    TPdusJob(Context, {OutputPath(), "user", "secret", std::move(wanted)}).Run();
  }
  static std::string Link(const std::string& path) { return "\"" + path + "\" 0200, IODC, Visible\n"; }
  std::string LastDetail() const { return Display.Panels.back().second; }

  const std::string Order = "/abin/filesorder?s=Date";
  const std::string Path = "/pdus?f=PDUS0207010200&s=1";
  const std::string File = "2002/07/01/0207010200.pdu";
};

TEST_F(TPdus, FetchesWhatTheOrderPageOffersLastFirst) {
  Serve(kProduct, Order,
        Link("/pdus?f=PDUS0402290200MET5") + "\"/pdus?f=x\" 0300, IODC, Visible\n" + Link("//away/pdus") +
            Link("/pdus?f=README"));
  RunJob();
  EXPECT_THAT(Requests(), ElementsAre("GET " + Order, "HEAD /pdus?f=README", "GET /pdus?f=README",
                                      "HEAD /pdus?f=PDUS0402290200MET5", "GET /pdus?f=PDUS0402290200MET5"));
  for (const std::string& request : Server.Received())
    EXPECT_THAT(request, HasSubstr("Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"));
  EXPECT_THAT(Tree(),
              ElementsAre(Pair("2004/02/29/0402290200MET5.pdu", kProduct), Pair("README.pdu", kProduct)));
  EXPECT_EQ(GetFileDateTime(Output("2004/02/29/0402290200MET5.pdu")), At("2004-02-29 02:00"));
  EXPECT_GT(GetFileDateTime(Output("README.pdu")), At("2020-01-01")) << "no date, so its time stays";
  EXPECT_THAT(Lines(),
              ElementsAre("//away/pdus - refused: link leads away from the server", "Get: README.pdu",
                          "README.pdu - OK", "Get: 0402290200MET5.pdu", "0402290200MET5.pdu - OK"));
  EXPECT_EQ(LastDetail(), "All files done");
  EXPECT_THAT(Display.Panels, Contains(Pair(1, "Getting available PDUS data list...")));
  EXPECT_EQ(NMHTTP.HeaderInfo.UserId + NMHTTP.HeaderInfo.Password, "") << "no other server gets them";
}

TEST_F(TPdus, SizesDecideWhatIsFetchedAndWhole) {
  const int product = kProduct;
  const struct {
    int Present;  ///< bytes of the file that is there already; -1 none
    const char* HeadStatus;
    std::string Announced;
    int Sent;  ///< bytes that come; -1: only the header must be asked for
    int Kept;
    const char* Outcome;
  } cases[] = {
      {product, "200 OK", std::to_string(product), -1, product, ""},
      {10, "200 OK", "0", -1, 10, ""},
      {10, "200 OK", "x", -1, 10, ""},
      {10, "404 Not Found", "55", -1, 10, ""},
      {10, "200 OK", std::to_string(product), product, product, " - OK"},
      {product, "200 OK", std::to_string(product + 5), product, product, " - incomplete?"},
      {product, "200 OK", "29", 29, product, " - incomplete?"},
      {-1, "200 OK", std::to_string(product - 1), product - 1, product - 1, " - incomplete?"},
      {-1, "200 OK", std::to_string(product + 5), product, product, " - incomplete?"},
      {product, "200 OK", std::to_string(product + 5), product + 5, product + 5, " - OK"},
  };
  for (const auto& c : cases) {
    std::filesystem::remove(Output(File));
    if (c.Present >= 0) WriteOutput(File, Picture(static_cast<std::size_t>(c.Present), 'o'));
    Server.Handle("*", [&](const std::string& asked, const std::string& request) {
      if (asked == Order) return HttpReply(Link(Path));
      const bool head = request.starts_with("HEAD");
      return std::string("HTTP/1.0 ") + (head ? c.HeadStatus : "200 OK") +
             "\r\nContent-Length: " + c.Announced + "\r\n\r\n" +
             (head || c.Sent < 0 ? "" : Picture(static_cast<std::size_t>(c.Sent)));
    });
    RunJob();
    EXPECT_EQ(Requests().size(), c.Sent < 0 ? 2u : 3u) << c.Announced;
    EXPECT_THAT(Tree(), ElementsAre(Pair(File, c.Kept))) << c.Announced;
    const TWords lines = Lines();
    EXPECT_EQ(lines.empty() ? "" : lines.back(),
              *c.Outcome != '\0' ? "0207010200.pdu" + std::string(c.Outcome) : "");
    EXPECT_EQ(ReadWholeFile(Output(File))[0], c.Kept == c.Present ? 'o' : 'x') << "a good older file stays";
  }
}

TEST_F(TPdus, WithoutAnOfferOrAWishNothingIsFetched) {
  const std::pair<std::string, TWords> cases[] = {{"nothing of that", {"0200, INDOEX, Visible"}},
                                                  {Link(Path), {}}};
  for (const auto& [page, wanted] : cases) {
    Serve(kProduct, Order, page);
    RunJob(wanted);
    EXPECT_THAT(Lines(), IsEmpty());
    EXPECT_THAT(Asked(), ElementsAre(Order));
    EXPECT_EQ(LastDetail(), "No new files found");
  }
}

TEST_F(TPdus, OnlyTheFirstOfVeryManyRefusedEntriesAreNamed) {
  std::string page;
  for (int i = 0; i < 1000; ++i) page += Link("//x/pdus");
  Serve(0, Order, page);
  RunJob();
  EXPECT_THAT(Lines(), AllOf(SizeIs(21), Contains("... and 980 more refused")));
}

TEST_F(TPdus, StopEndsTheRunAfterTheCurrentProduct) {
  ExpectStopAt(
      "=2", [this] { RunJob(); }, Order,
      Link("/pdus?f=PDUS0207010200") + Link("/pdus?f=2") + Link("/pdus?f=3"));
  EXPECT_THAT(Files(), ElementsAre("2.pdu", "3.pdu"));
}

}  // namespace
}  // namespace skyreel
