#include "catalogue/described_run.h"

#include <cstring>

#include "catalogue/sample.h"
#include "image/image_file.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using namespace testing;
using test::HttpReply;
using test::TWords;

/// Runs descriptions against the fixture's server, at 06:10.
class TDescribedRunTest : public test::TJobTest {
 protected:
  TDescribedRunTest() : TJobTest("2026-11-26 06:10") {}

  /// A run of a description with these lines of [time], rest of [get], and name; {S} is the server.
  TRunRecord Run(const std::string& time, const std::string& get, const std::string& name,
                 std::optional<int> days = {}, std::optional<int> keep_days = {}, const char* id = "a.b") {
    const std::string text = std::string("format = 1\nid = \"") + id +
                             "\"\ntitle = \"T\"\nlicence = { name = \"n\", use = \"any\" }\n[time]\n" + time +
                             "\n[get]\ntype = \"image/gif\"\n" + get +
                             "\n[keep]\nfolder = \"{%Y-%m}\"\nname = \"" + name + "\"\n";
    const TDescription source = test::Described(ReplaceAll(text, "{S}", "http://" + Server.Address()));
    TJournal journal(Folder / "journal.sqlite", Clock);
    TDescribedRun run{.Context = Context, .Journal = journal, .Output = Folder / "out", .KeepsFiles = true};
    journal.BeginRun("test");
    const std::int64_t ended = static_cast<std::int64_t>(Display.Results.size()) - TJobTest::Run.Expected;
    const TWantedSource wanted =
        again_.empty() ? TWantedSource{source, {}, days, keep_days} : WantedAgain(source, again_, Clock.Now);
    TRunRecord record = RunDescribedSources(run, {wanted})[0];
    EXPECT_EQ(static_cast<std::int64_t>(Display.Results.size()) - TJobTest::Run.Expected, ended)
        << "as many files ended as were announced";
    // As the journal's recorder does.
    for (const TFileResult& file : record.Files) {
      if (file.State == TFileState::Missing)
        journal.Add({.Source = id, .SlotTime = file.SlotTime, .Outcome = TJournalOutcome::Missing});
    }
    journal.EndRun(0);
    return record;
  }
  /// The counts of such a run: "1 new, 0 present, ...".
  template <typename... TArguments>
  std::string Counts(const TArguments&... arguments) {
    const std::string text = Run(arguments...).Counts.Text();
    return text.substr(0, text.find(';'));
  }
  static std::string Picture(const std::string& name) {
    return ReadWholeFile(SKYREEL_TEST_PICTURES "/" + name);
  }

  std::vector<TPictureKey> again_;
  const std::string gif_ = Picture("colour.gif");
};

TEST_F(TDescribedRunTest, GoesBackFromTheNewestSlotUntilAPictureIsWhole) {
  const std::string time = "every = \"1h\"\ngrace = \"30m\"\nwalk_back = 2", get = "url = \"{S}/{%d%H}.gif\"";
  Server.Answer("/2605.gif", gif_.substr(0, gif_.size() / 2));
  Server.Answer("/2604.gif", "", {}, "304 Not Modified");
  EXPECT_EQ(Counts(time, get, "{%d%H}.gif"), "0 new, 0 present, 1 not yet, 0 missing, 2 failed");
  Lines();
  Server.Answer("/2604.gif", gif_);
  EXPECT_EQ(Counts(time, get, "{%d%H}.gif"), "1 new, 0 present, 1 not yet, 0 missing, 1 failed");
  EXPECT_THAT(Lines(),
              ElementsAre(StartsWith("2605.gif - failed: "), "2604.gif - OK", StartsWith("T: 1 new")));
  EXPECT_THAT(Stored(), ElementsAre("2026-11/2604.gif " + std::to_string(gif_.size()) + " 2026-11-26 04:00"));
  // A whole day: what is not there is overdue, and is left alone for a while.
  Asked();
  EXPECT_EQ(Counts(time, get, "{%d%H}.gif", 1), "0 new, 1 present, 1 not yet, 4 missing, 1 failed");
  EXPECT_THAT(Asked(), SizeIs(6));
  EXPECT_EQ(Counts(time, get, "{%d%H}.gif", 1), "0 new, 1 present, 1 not yet, 4 missing, 1 failed");
  EXPECT_THAT(Asked(), UnorderedElementsAre("/2606.gif", "/2605.gif"));
}

TEST_F(TDescribedRunTest, FetchesChosenFilesAnewAndKeepsTheOldOnesUntilThen) {
  const std::string time = "every = \"1h\"\nkept = \"3d\"", get = "url = \"{S}/{%d%H}.gif\"";
  for (const char* name : {"/2604.gif", "/2605.gif"}) Server.Answer(name, gif_);
  Counts(time, get, "{%d%H}.gif", 1);
  again_ = {{"", test::At("2026-11-26 04:00"), "2026-11/2604.gif"},
            {"", test::At("2026-11-20 01:00"), "2026-11/2001.gif"}};
  const std::string other = Picture("colour_interlaced.gif");
  for (const std::string& body : {other.substr(0, other.size() / 2), other}) {
    EXPECT_EQ(Tree().at("2026-11/2604.gif"), static_cast<std::int64_t>(gif_.size()));
    Server.Answer("/2604.gif", body);
    Asked();
    Lines();
    Counts(time, get, "{%d%H}.gif");
    EXPECT_THAT(Asked(), ElementsAre("/2604.gif"));
  }
  EXPECT_THAT(Lines(), ElementsAre("T: 1 files are older than the server keeps them", "2604.gif - updated",
                                   StartsWith("T: 1 new, 0 present, 0 not yet, 0 missing, 0 failed")));
  EXPECT_EQ(Tree().at("2026-11/2604.gif"), static_cast<std::int64_t>(other.size()));
}

TEST_F(TDescribedRunTest, AFixedNameIsNewOnlyWhenItsBytesAre) {
  std::string modified = "Thu, 26 Nov 2026 05:00:00 GMT", body = gif_, asked;
  Server.Handle("/chart.gif", [&](const std::string&, const std::string& request) {
    asked = request;
    const bool known =
        request.find("If-None-Match: \"" + std::to_string(body.size()) + modified) != request.npos;
    return HttpReply(
        known ? "" : body,
        {"Last-Modified: " + modified, "ETag: \"" + std::to_string(body.size()) + modified + "\""},
        known ? "304 Not Modified" : "200 OK");
  });
  const auto run = [&](const char* id = "a.b") {
    return Counts("every = \"6h\"\ndelay = \"4h\"", "url = \"{S}/chart.gif\"", "chart_{%d%H}.gif",
                  std::optional<int>(), std::optional<int>(), id);
  };
  const std::string present = "0 new, 1 present, 0 not yet, 0 missing, 0 failed",
                    added = "1 new, 0 present, 0 not yet, 0 missing, 0 failed";
  EXPECT_EQ(run(), added);
  EXPECT_EQ(run(), present);
  EXPECT_THAT(asked, HasSubstr("If-None-Match: "));
  modified = "Thu, 26 Nov 2026 05:10:00 GMT";
  EXPECT_EQ(run(), present) << "another date, the same bytes";
  body = Picture("colour_interlaced.gif");
  EXPECT_EQ(run("c.d"), "0 new, 0 present, 0 not yet, 0 missing, 1 failed") << "another source has that file";
  EXPECT_EQ(run(), added);
  EXPECT_THAT(Lines(), Contains("chart_2600.gif - updated"));
  std::filesystem::remove(Folder / "journal.sqlite");
  EXPECT_EQ(run(), present) << "the journal is lost";
  EXPECT_THAT(Tree(), ElementsAre(Pair("2026-11/chart_2600.gif", body.size())));
  std::filesystem::remove(Folder / "journal.sqlite");
  WriteOutput("2026-11/chart_2600.gif", "the user's own");
  EXPECT_EQ(run(), "0 new, 0 present, 0 not yet, 0 missing, 1 failed");
}

TEST_F(TDescribedRunTest, AnotherWayAnotherFormatAndTilesMakeAPicture) {
  const std::string time = "every = \"1d\"\nwalk_back = 0", url = "url = \"{S}/a.gif?{%d}\"\n";
  Server.Answer("/a.gif?26", "<html>busy</html>");
  Server.Answer("/b.gif?26", gif_);
  const std::string other = url + "[[alternate]]\ntype = \"image/gif\"\nurl = \"{S}/b.gif?{%d}\"";
  EXPECT_EQ(Counts(time, other, "{%d}.png"), "1 new, 0 present, 0 not yet, 0 missing, 0 failed");
  const std::string tiles = "url = \"{S}/t{y}{x}.gif?{%d}\"\n[tiles]\ncolumns = 2\nrows = 1";
  Server.Answer("/t00.gif?26", gif_);
  EXPECT_EQ(Counts(time, tiles, "t{%d}.png"), "0 new, 0 present, 0 not yet, 1 missing, 0 failed");
  Server.Answer("/t01.gif?26", gif_);
  Clock.Now = Clock.Now + std::chrono::hours(1);
  const std::string tall = "[[alternate]]\ntype = \"image/gif\"\nurl = \"{S}/t{y}{x}.gif?{%d}\"\n";
  EXPECT_EQ(Counts(time, ReplaceAll(tiles, "/t", "/no") + "\n" + tall + "tiles = { columns = 2, rows = 1 }",
                   "u{%d}.png"),
            "1 new, 0 present, 0 not yet, 0 missing, 0 failed");
  EXPECT_EQ(Counts(time, tiles, "t{%d}.png"), "1 new, 0 present, 0 not yet, 0 missing, 0 failed");
  // A tile is missing in the first way; the fixed name of the last one has yesterday's picture.
  const std::string ways =
      "url = \"{S}/u{y}{x}.gif?{%d}\"\n[tiles]\ncolumns = 2\nrows = 1\n"
      "[[alternate]]\ntype = \"image/gif\"\ntiles = { columns = 2, rows = 1 }\n"
      "url = \"{S}/t{y}{x}.gif?{%d}\"\n[[alternate]]\ntype = \"image/gif\"\nurl = \"{S}/now.gif\"";
  Server.Answer("/u00.gif?26", gif_);
  Server.Answer("/now.gif", gif_, {"Last-Modified: Wed, 25 Nov 2026 13:00:00 GMT"});
  EXPECT_EQ(Counts("every = \"1d\"\nwalk_back = 1", ways, "v{%d}.png", 2),
            "2 new, 0 present, 0 not yet, 0 missing, 0 failed");
  TExtBitmap one(TPixelFormat::Bits24), two(TPixelFormat::Bits24);
  LoadImage(one, Output("2026-11/26.png"));
  LoadImage(two, Output("2026-11/t26.png"));
  EXPECT_EQ(two.Width(), 2 * one.Width());
  EXPECT_EQ(0, std::memcmp(one.ScanLine(3), two.ScanLine(3) + one.Width() * 3, 3 * 37));
}

TEST_F(TDescribedRunTest, ListsTellTheSlotsAndOldFilesGoOnlyAfterAWholeList) {
  const std::string get =
      "url = \"{S}/{found}\"\n[find]\nkind = \"s3\"\nurl = \"{S}/bucket\"\n"
      "match = \"{%Y%m%d%H%M%S}.gif\"";
  const auto page = [](const std::string& key, const std::string& next) {
    return "<ListBucketResult><Contents><Key>p/" + key + "</Key></Contents>" +
           (next.empty() ? ""
                         : "<IsTruncated>true</IsTruncated><NextContinuationToken>" + next +
                               "</NextContinuationToken>") +
           "</ListBucketResult>";
  };
  Server.Answer("/bucket?list-type=2&prefix=", page("20261126010000.gif", "a/b"));
  Server.Answer("/bucket?list-type=2&prefix=&continuation-token=a%2Fb", page("20261124010000.gif", ""));
  for (const char* name : {"/20261126010000.gif", "/20261124010000.gif"}) Server.Answer(name, gif_);
  const auto run = [&](std::optional<int> keep) { return Counts("", get, "{%d%H%M%S}.gif", 3, keep); };
  EXPECT_EQ(run({}), "2 new, 0 present, 0 not yet, 0 missing, 0 failed");
  WriteOutput("2026-11/2301.gif", "the user's own");
  Server.Answer("/bucket?list-type=2&prefix=", "<html>sorry</html>");
  EXPECT_EQ(run(1), "0 new, 0 present, 0 not yet, 0 missing, 1 failed");
  EXPECT_THAT(Lines(), Contains(HasSubstr("T: the list http://" + Server.Address() + "/bucket")));
  EXPECT_THAT(Tree(), SizeIs(3));
  Server.Answer("/bucket?list-type=2&prefix=", page("20261126010000.gif", ""));
  EXPECT_EQ(run(1), "0 new, 1 present, 0 not yet, 0 missing, 0 failed");
  EXPECT_THAT(Tree(), ElementsAre(Key("2026-11/2301.gif"), Key("2026-11/26010000.gif")));
  Server.Answer("/bucket?list-type=2&prefix=", page("2026-11-26.gif", ""));
  run({});
  EXPECT_THAT(Lines(), Contains(HasSubstr("&prefix= fits (1 names, such as \"2026-11-26.gif\")")));
}

TEST_F(TDescribedRunTest, WhatCannotBeKeptOrReachedCostsItsSourceAlone) {
  const std::string time = "every = \"1d\"\nwalk_back = 0", get = "url = \"{S}/a.gif?{%d}\"";
  const std::string failed = "0 new, 0 present, 0 not yet, 0 missing, 1 failed";
  Server.Answer("/a.gif?26", gif_);
  EXPECT_EQ(Counts(time, get + "\nmax_size = \"100B\"", "{%d}.gif"), failed);
  EXPECT_THAT(Lines(), Contains(StartsWith("26.gif - refused: ")));
  std::filesystem::remove(Output("2026-11"));
  WriteOutput("2026-11", "");
  EXPECT_EQ(Counts(time, get, "{%d}.gif"), failed);
  EXPECT_THAT(Lines(), Contains(StartsWith("Cannot file into ")));
  EXPECT_THAT(Tree(), ElementsAre(Key("2026-11")));
  std::filesystem::remove(Output("2026-11"));
  Server.Stop();
  EXPECT_THAT(Run(time, get, "{%d}.gif").ServerProblems, ElementsAre(HasSubstr(" refused the connection")));
}

}  // namespace
}  // namespace skyreel
