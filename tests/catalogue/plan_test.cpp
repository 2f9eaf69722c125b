#include "catalogue/plan.h"

#include <gtest/gtest.h>

#include <set>

#include "base/text.h"
#include "catalogue/folder_scan.h"
#include "catalogue/sample.h"
#include "catalogue/slot_grid.h"
#include "catalogue/terminal_text.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using test::With;

const TDateTime kNow = TDateTime::FromDate(2026, 11, 26, 6, 2, 30);

/// The folder of all files; the tables leave it out.
const std::string kFolder = "2026-11/";

/// A description in few lines.
std::string Short(const std::string& time, const std::string& get, const std::string& name) {
  return "format = 1\nid = \"a.b\"\ntitle = \"T\"\nlicence = { name = \"n\", use = \"any\" }\n[time]\n" +
         time + "\n[get]\ntype = \"image/gif\"\nurl = \"https://h/" + get +
         "\n[keep]\nfolder = \"{%Y-%m}\"\nname = \"" + name + "\"\n";
}

/// What a plan is made from besides the description.
struct TWorld {
  std::optional<int> Days = {};
  std::set<std::string> Disk = {};
  std::map<std::string, TListAnswer> Lists = {};  ///< by address
  std::map<std::string, TDateTime> AskAgainAt = {};
  TChoices Choices = {};
  std::string Stamp = {};
};

std::string PlanOf(const std::string& text, const TWorld& world) {
  const TDescription source = test::Described(text);
  TPlanRequest request{source, kNow, world.Choices, world.Days};
  request.OnDisk = [&](std::string_view path) {
    return world.Disk.contains(std::string(path.substr(kFolder.size())));
  };
  request.Lists = [&](const TListRequest& list) {
    const auto answer = world.Lists.find(list.Address);
    return answer == world.Lists.end() ? nullptr : &answer->second;
  };
  request.AskAgainAt = [&](const TCombination& combination, TDateTime slot) {
    const auto missed =
        world.AskAgainAt.find(LocalPath(request.Source, combination, slot).substr(kFolder.size()));
    return missed == world.AskAgainAt.end() ? TDateTime() : missed->second;
  };
  request.LastStamp = [&](const TCombination&, const std::string&) { return world.Stamp; };
  return ReplaceAll(ReplaceAll(PlanText(source, MakePlan(request), kNow), kFolder, ""), "?/", "");
}

TEST(Plan, TellsWhichFilesAreWanted) {
  const std::string hourly =
      Short("every = \"1h\"\ndelay = \"30m\"\ngrace = \"2h\"", "{%H}.gif\"", "{%d%H}.gif");
  const std::string listed =
      Short("every = \"1h\"\ndelay = \"30m\"\ngrace = \"2h\"",
            "{%d%H}.gif\"\n[find]\nkind = \"listing\"\nmatch = \"{%Y%m%d%H}{*}\"\nurl = \"https://h/{%d}/\"",
            "{%d%H}.gif");
  const std::string free =
      Short("delay = \"1d\"",
            "{found}\"\n[find]\nkind = \"listing\"\nmatch = \"{%Y%m%d%H%M%S}{*}\"\nurl = \"https://h/\"",
            "{%d%H%M%S}.gif");
  const std::string fixed =
      Short("every = \"6h\"", "a.gif\"\n[find]\nkind = \"listing\"\nurl = \"https://h/\"", "{%d%H}.gif");
  const std::string newest = Short(
      "every = \"1h\"",
      "{%d%H}.gif\"\n[find]\nkind = \"json\"\nat = \"/a\"\nmatch = \"{%Y%m%d%H}\"\nurl = \"https://h/\"",
      "{%d%H}.gif");
  const TListAnswer failed{true};
  const TListAnswer some{
      false,
      {{"2026112606a"}, {"2026112604a"}, {"2026112604c"}, {"2026112604b"}, {"2026112602"}, {"2099010100"}}};
  struct TCase {
    const char* Name;
    std::string Source;
    TWorld World;
    std::string Plan;
  };
  const TCase cases[] = {
      {"newest alone goes back, and stops at a file",
       hourly,
       {{}, {"2603.gif"}},
       "wanted: 2605.gif from https://h/05.gif\nin reserve: 2604.gif from https://h/04.gif\npresent: "
       "2603.gif\n"},
      {"newest alone goes back no further",
       With(hourly, "delay", "walk_back = 1\ndelay"),
       {},
       "wanted: 2605.gif from https://h/05.gif\nin reserve: 2604.gif from https://h/04.gif\n"},
      {"a day",
       With(hourly, "delay = \"30m\"", "delay = \"3h\"\nkept = \"5h\""),
       {1, {"2602.gif"}},
       "not yet: 2606.gif\nnot yet: 2605.gif\nnot yet: 2604.gif\nwanted: 2603.gif from https://h/03.gif\n"
       "present: 2602.gif\ntoo old: 2601.gif\ntoo old: 2600.gif\n"},
      {"a missing file rests ever longer",
       With(hourly, "every", "walk_back = 1\nevery"),
       {{}, {}, {}, {{"2605.gif", kNow + 1min}, {"2604.gif", kNow}}},
       "missing, asked again later: 2605.gif\nwanted: 2604.gif from https://h/04.gif\n"},
      {"offset and zone",
       With(With(hourly, "every = \"1h\"",
                 "every = \"6h\"\noffset = \"2h\"\nzone = \"-03:30\"\nwalk_back = 0"),
            "%d", "%d%H%M"),
       {},
       "wanted: 26053005.gif from https://h/02.gif\n"},
      {"a list is needed",
       listed,
       {},
       "would ask https://h/26/\nwanted: 2605.gif from https://h/2605.gif\nin reserve: 2604.gif from "
       "https://h/2604.gif\n"
       "in reserve: 2603.gif from https://h/2603.gif\nin reserve: 2602.gif from https://h/2602.gif\n"},
      {"what a list shows",
       listed,
       {{}, {}, {{"https://h/26/", some}}},
       "wanted: 2606.gif from https://h/2606.gif\nin reserve: 2604.gif from https://h/2604.gif\n"
       "in reserve: 2602.gif from https://h/2602.gif\n"},
      {"what a list does not show",
       listed,
       {1, {"2600.gif"}, {{"https://h/26/", some}}},
       "wanted: 2606.gif from https://h/2606.gif\nnot yet: 2605.gif\nwanted: 2604.gif from "
       "https://h/2604.gif\n"
       "missing: 2603.gif\nwanted: 2602.gif from https://h/2602.gif\nmissing: 2601.gif\npresent: 2600.gif\n"},
      {"a list that shows nothing", listed, {{}, {}, {{"https://h/26/", {}}}}, "not yet: 2605.gif\n"},
      {"a list that fails",
       With(listed, "delay", "walk_back = 0\ndelay"),
       {{}, {}, {{"https://h/26/", failed}}},
       "wanted: 2605.gif from https://h/2605.gif\n"},
      {"too few slots for a list",
       With(listed, "kind", "above = 4\nkind"),
       {{}, {"2604.gif"}},
       "wanted: 2605.gif from https://h/2605.gif\npresent: 2604.gif\n"},
      {"a name that only the server knows",
       With(listed, "{%d%H}.gif", "{found}"),
       {{}, {"2602.gif"}, {{"https://h/26/", some}}},
       "wanted: 2606.gif from https://h/2026112606a\nin reserve: 2604.gif from "
       "https://h/2026112604c\npresent: "
       "2602.gif\n"},
      {"and is not known yet",
       With(With(listed, "{%d%H}.gif", "{found}"), "delay", "walk_back = 0\ndelay"),
       {},
       "would ask https://h/26/\nneeds the server's list: 2605.gif\n"},
      {"an alternate where the list shows nothing",
       With(With(listed, "[keep]", "[[alternate]]\ntype = \"image/gif\"\nurl = \"https://b/{%H}\"\n[keep]"),
            "delay", "walk_back = 0\ndelay"),
       {{}, {}, {{"https://h/26/", {}}}},
       "wanted: 2605.gif from https://b/05\n"},
      {"a document gives the newest slot",
       newest,
       {{}, {"2602.gif"}, {{"https://h/", {false, {{"2026112603"}}}}}},
       "wanted: 2603.gif from https://h/2603.gif\npresent: 2602.gif\n"},
      {"slots as they are found",
       free,
       {{},
        {"26020304.gif"},
        {{"https://h/", {false, {{"20261126020304.x"}, {"20261126060101"}, {"20261126010203"}}}}}},
       "wanted: 26060101.gif from https://h/20261126060101\npresent: 26020304.gif\n"},
      {"found slots of a day",
       free,
       {1, {}, {{"https://h/", {false, {{"20261126020304.x"}, {"20261125060101"}}}}}},
       "wanted: 26020304.gif from https://h/20261126020304.x\n"},
      {"no list, no slots", free, {{}, {}, {{"https://h/", failed}}}, ""},
      {"a fixed name",
       fixed,
       {{}, {}, {{"https://h/", {false, {{"a.gif", {}, "26-Nov 5K"}}}}}, {}, {}, "26-Nov 4K"},
       "wanted: ?.gif from https://h/a.gif\n"},
      {"an unchanged fixed name",
       fixed,
       {{},
        {},
        {{"https://h/", {false, {{"b.gif", {}, "x"}, {"a.gif", {}, "26-Nov 5K"}}}}},
        {},
        {},
        "26-Nov 5K"},
       "unchanged: ?.gif\n"},
  };
  for (const TCase& each : cases) EXPECT_EQ(PlanOf(each.Source, each.World), each.Plan) << each.Name;
}

TEST(Plan, TakesTheChoicesThatExistInTheOrderOfTheFile) {
  const std::string text = Short("every = \"1d\"\nwalk_back = 0\ndelay = \"6h\"",
                                 "{a}{b}{%d}\"\n[vary.b]\nvalues = [\"1\", \"2\"]\n[vary.a]\nvalues = "
                                 "[\"x\", \"y\"]\nmany = false\ndefault = [\"y\"]",
                                 "{a}{b}{%Y%m%d}.gif");
  const auto chosen = [&](TChoices choices) {
    std::string paths;
    const TDescription source = test::Described(text);
    const TPlan plan = MakePlan({source, kNow, std::move(choices)});
    for (const TPlannedFile& file : plan.Files) paths += file.Path.substr(kFolder.size(), 2) + " ";
    return paths;
  };
  EXPECT_EQ(chosen({}), "y1 ");
  EXPECT_EQ(chosen({{"b", {"2", "gone", "1"}}, {"a", {"y", "x"}}}), "x1 x2 ");
  EXPECT_EQ(chosen({{"b", {"gone"}}, {"c", {"1"}}}), "y1 ");
  EXPECT_EQ(chosen({{"b", {}}}), "");
}

TEST(Plan, TimesOfALayerAreAskedForOneByOneOnTheGrid) {
  const std::string text =
      Short("every = \"1h\"\nwalk_back = 0",
            "{%d%H}\"\n[find]\nkind = \"wms-time\"\nlayer = \"l\"\nurl = \"https://h/\"", "{%d%H%M}.gif");
  TListAnswer answer;
  answer.HasTime = [](TDateTime time) { return time <= kNow - 2h; };
  answer.TimesWithin = [](TDateTime first, TDateTime last) {
    EXPECT_LT(first, last);
    return std::vector{kNow - 150s - 2h, kNow - 150s - 3h};
  };
  EXPECT_EQ(PlanOf(text, {{}, {}, {{"https://h/", answer}}}), "wanted: 260400.gif from https://h/2604\n");
  EXPECT_EQ(PlanOf(With(With(text, "every = \"1h\"", ""), "%M", "%M%S"), {{}, {}, {{"https://h/", answer}}}),
            "wanted: 26040000.gif from https://h/2604\n");
}

TEST(Plan, TilesGoRowByRow) {
  const TDescription source =
      test::Described(With(With(Short("every = \"1d\"",
                                      "{x}_{y}\"\n[tiles]\ncolumns = 2\nrows = \"{n}\"\ny = 9\ndigits = "
                                      "2\n[vary.n]\nvalues = [\"2\"]",
                                      "{%Y%m%d}.png"),
                                "{x}", "{%d}/{x}"),
                           "https", "ftp"));
  std::string all;
  for (const TAddress& address : AddressesOf(source, {0}, {0, kNow}, {}).Addresses) all += address.Text + " ";
  EXPECT_EQ(all, "ftp://h/26/00_09 ftp://h/26/01_09 ftp://h/26/00_10 ftp://h/26/01_10 ");
}

TEST(Plan, TheServersDateGivesTheSlotOfAFixedName) {
  TTimeRules time;
  EXPECT_EQ(SlotOfFixedName(time, kNow), kNow);
  time.Every = 6h;
  time.Delay = 5min;
  EXPECT_EQ(SlotOfFixedName(time, kNow), TDateTime::FromDate(2026, 11, 26));
}

TEST(FolderScan, SeesFilesAndReadsAFolderOnce) {
  const test::TTempFolder folder;
  folder.Write("a/b/c.jpg", "x");
  folder.Write("d.jpg", "x");
  std::filesystem::create_directory(folder / "a/b/e.jpg");
  TFolderScan scan(folder.Path());
  for (const char* there : {"a/b/c.jpg", "d.jpg"}) EXPECT_TRUE(scan.Has(there)) << there;
  for (const char* gone : {"a/b/e.jpg", "a/b", "none/c.jpg", "a/b/C.jpg"})
    EXPECT_FALSE(scan.Has(gone)) << gone;
  folder.Write("a/b/f.jpg", "x");
  EXPECT_FALSE(scan.Has("a/b/f.jpg"));
}

}  // namespace
}  // namespace skyreel
