#include "catalogue/coverage.h"

#include <gtest/gtest.h>

#include "base/files.h"
#include "catalogue/sample.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using enum TJournalOutcome;
using namespace std::chrono_literals;

const TDateTime kNow = TDateTime::FromDate(2026, 11, 26, 6, 2, 30);
const TDateTime kToday = kNow.Midnight();

TDescription Source(const std::string& time, const std::string& url = "{%H}.gif",
                    const std::string& rest = "", const std::string& type = "gif") {
  return test::Described(
      "format = 1\nid = \"a.b\"\ntitle = \"T\"\nlicence = { name = \"n\", use = \"any\" }\n[time]\n" + time +
      "\n[get]\ntype = \"image/" + type + "\"\nurl = \"https://h/" + url + "\"\n" + rest +
      "\n[keep]\nfolder = \"{%Y-%m-%d}\"\nname = \"{%d%H%M%S}.gif\"");
}

/// A line for each day: "whole = W, cut C, missing m, not yet n, failed F, not offered -, unknown ?", and "."
/// for a cell without a slot.
std::string Drawn(const TCoverage& coverage) {
  std::string text;
  for (const TCoverageDay& day : coverage.Days) {
    for (const TCoverageCell& cell : day.Cells)
      text += cell.Slot.IsZero() ? '.' : "WCmnF-?"[static_cast<std::size_t>(cell.State)];
    text += '\n';
  }
  return text;
}

TEST(Coverage, ShowsWhatIsDueWhatIsThereAndWhatBecameOfTheTries) {
  struct TCase {
    const char* Name;
    TDescription Source;
    std::string Drawn;
    std::vector<std::string> Files = {};
    std::vector<TSlotOutcome> Tries = {};
    std::optional<int> KeepDays = {};
  };
  const std::string four = "every = \"6h\"\ndelay = \"10m\"\ngrace = \"1h\"";
  const std::string by_list = "[find]\nkind = \"listing\"\nmatch = \"{%Y%m%d%H}{*}\"\nurl = \"https://h/\"";
  const TCase cases[] = {
      {"nothing is there", Source(four), "mnnn\nmmmm\n"},
      {"some are there",
       Source(four),
       "Wnnn\nmmmW\n",
       {"2026-11-26/26000000.gif", "2026-11-25/25180000.gif"}},
      {"its own clock", Source("every = \"8h\"\noffset = \"1h\"\nzone = \"-03:30\"\ngrace = \"0s\""),
       "mnn\nmmm\n"},
      {"the server keeps few", Source(four + "\nkept = \"13h\""), "mnnn\n---m\n"},
      {"the user keeps few", Source(four), "mnnn\n--Wm\n", {"2026-11-25/25120000.gif"}, {}, 1},
      {"once a day",
       Source("every = \"6h\"\ngrace = \"0s\"", "{v}{%d}",
              "[vary.v]\nvalues = [{ value = \"a\", at = \"0600\" }]"),
       "-mnn\n-m--\n"},
      {"a fixed name", Source(four, "a.gif"), "mnnn\nmmmm\n"},
      {"names that only the server knows",
       Source(four, "{found}", by_list),
       "Wnnn\n??m?\n",
       {"2026-11-26/26000000.gif"},
       {{kToday - 12h, Missing}}},
      {"tries without a file",
       Source(four),
       "mnnn\nFFmm\n",
       {},
       {{kToday - 24h, Failed, "cut off"},
        {kToday - 18h, Refused},
        {kToday - 12h, NotYet},
        {kToday - 6h, New}}},
      {"tries with a file",
       Source(four),
       "Cnnn\nWWmm\n",
       {"2026-11-25/25000000.gif", "2026-11-25/25060000.gif", "2026-11-26/26000000.gif"},
       {{kToday - 24h, Refused}, {kToday - 18h, Updated}, {kToday, Failed}}},
      {"no cadence",
       Source("", "{found}", by_list),
       "W..\nmFW\n",
       {"a.gif", "2026-11-25/x.gif"},
       {{kToday - 20h, New, "", "b.gif"},
        {kToday - 19h, Failed},
        {kToday - 18h, New, "", "2026-11-25/x.gif"},
        {kToday + 1h, New, "", "a.gif"}}},
      {"no cadence, but the same times",
       Source("", "{found}", by_list),
       "Wnn\nWWW\n",
       {"a.gif"},
       {{kToday - 20h, New, "", "a.gif"},
        {kToday - 19h, New, "", "a.gif"},
        {kToday - 18h, New, "", "a.gif"},
        {kToday + 4h, New, "", "a.gif"}}},
      {"a noted file", Source(four), "Cnnn\nmmmm\n", {"2026-11-26/26000000.gif", "noted"}},
      {"a folder that cannot be read", Source(four), "??nn\nmmmm\n", {"loop"}},
  };
  for (const TCase& each : cases) {
    const test::TTempFolder folder;
    TCoverageRequest request{.Now = kNow, .Days = 2, .Output = folder.Path(), .Tries = each.Tries};
    request.Expected =
        ExpectationOf(each.Source, TCombination(each.Source.Variables.size()), kNow, 2, each.KeepDays);
    for (const std::string& file : each.Files) {
      if (file == "loop")
        std::filesystem::create_symlink("2026-11-26", folder / "2026-11-26");
      else
        folder.Write(file, "x");
      if (file == "noted") request.Noted = {folder / "2026-11-26/26000000.gif"};
    }
    EXPECT_EQ(Drawn(MakeCoverage(request)), each.Drawn) << each.Name;
  }
}

TEST(Coverage, ChecksTheFilesOfADayAndTellsItInALine) {
  const test::TTempFolder folder;
  const std::string gif = "GIF89a-", whole = gif + std::string("\0;", 2);
  TCoverageDay day{.Day = kToday, .Cells = {}};
  const auto add = [&](TCellState state, const char* name, const std::string& content) {
    if (!content.empty()) folder.Write(name, content);
    day.Cells.push_back({.Slot = kToday + static_cast<int>(day.Cells.size()) * 10min,
                         .State = state,
                         .Path = name,
                         .Reason = ""});
  };
  using enum TCellState;
  add(Whole, "0.gif", whole);
  add(Whole, "1.gif", gif);
  add(Cut, "2.gif", whole);  // fetched anew in vain
  add(Cut, "3.gif", whole);
  day.Cells.back().Noted = true;
  add(Whole, "4.gif", "");
  add(TCellState::Missing, "5.gif", "");
  add(TCellState::Failed, "6.gif", "");
  add(TCellState::NotYet, "7.gif", "");
  add(NotOffered, "8.gif", "");
  add(Unknown, "9.gif", "");
  add(Whole, "10.JPG", "\xFF\xD8\xFF.\xFF\xD9");  // written anew as its name says
  day.Cells.back().Slot = kToday + 45s;
  const TDescription source = Source("every = \"10m\"");
  CheckFiles(day, folder.Path(), &source);
  EXPECT_EQ(Drawn({.Output = {}, .Times = {}, .Days = {day}}), "WCWCmmFn-?W\n");
  EXPECT_EQ(day.Cells[0].Size, 9);
  EXPECT_EQ(DayText(day), "2026-11-26: 3 of 9, missing 0040 0050, cut 0010 0030, failed 0100, unknown 0130");
}

}  // namespace
}  // namespace skyreel
