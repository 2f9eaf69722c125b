#include "catalogue/catalogue.h"

#include <gtest/gtest.h>

#include <set>

#include "base/files.h"
#include "catalogue/plan.h"
#include "catalogue/sample.h"
#include "catalogue/terminal_text.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(Catalogue, TheUsersFilesReplaceTheSystemsAndThoseOfTheProgram) {
  const test::TTempFolder folder;
  const auto source = [](const std::string& id, const std::string& title) {
    return test::With(test::With(test::kSample, "org.example.sat", id), "\"Sat\"", "\"" + title + "\"");
  };
  const std::string built_in = source("a.a", "built in"), other = source("b.b", "other");
  folder.Write("low/skyreel/sources/x.toml", source("c.c", "low"));
  folder.Write("high/skyreel/sources/y.toml", source("c.c", "high"));
  const fs::path user = "home/.local/share/Quenmoor/Skyreel/sources";
  folder.Write(user / "1.toml", source("a.a", "mine"));
  folder.Write(user / "2.toml", source("d.d", "new"));
  folder.Write(user / "3.toml", test::With(source("b.b", "broken"), "every", "evry"));
  folder.Write(user / "4.txt", "no description");
  fs::create_directory(folder / user / "5.toml");
  const TSourceFolders folders = SourceFolders([&](const char* name) -> std::string {
    if (std::string(name) == "XDG_DATA_DIRS")
      return (folder / "high").string() + ":relative::" + (folder / "low").string();
    return std::string(name) == "HOME" ? (folder / "home").string() : "";
  });
  const TCatalogue catalogue = LoadCatalogue({{"a.toml", built_in}, {"b.toml", other}}, folders);
  EXPECT_EQ(SourceListText(
                catalogue, [](const std::string& id) { return id == "a.a"; },
                [](const std::string&) { return "fresh"; }),
            "a.a  mine      ticked      fresh, changed by you\n"
            "b.b  broken    not ticked  broken, changed by you\n"
            "c.c  high      not ticked  fresh\n"
            "d.d  new       not ticked  fresh\n");
  const std::string path = (folder / user).string();
  ASSERT_EQ(catalogue.Problems.size(), 2u);
  EXPECT_EQ(catalogue.Problems[0].Message(), path + "/3.toml:6:1: unknown word 'evry' in [time]");
  EXPECT_EQ(catalogue.Problems[1].Message(), path + "/5.toml: Invalid argument");
}

const TDateTime kNow = TDateTime::FromDate(2026, 11, 26, 6, 2, 30);

TEST(Catalogue, TheBuiltInDescriptionsAreSoundAndRespectTheTermsOfTheServers) {
  const TCatalogue catalogue = LoadCatalogue(EmbeddedDescriptions(), {});
  for (const TProblem& problem : catalogue.Problems) ADD_FAILURE() << problem.Message();
  // Only these servers allow programs to fetch for any use.
  const std::string open =
      "https://cdn.star.nesdis.noaa.gov/ https://ocean.weather.gov/ https://tgftp.nws.noaa.gov/ "
      "https://www.nhc.noaa.gov/ https://www.wpc.ncep.noaa.gov/ https://www.data.jma.go.jp/ "
      "https://www.jma.go.jp/ https://opendata.dwd.de/ https://www.dwd.de/ https://maps.dwd.de/";
  std::set<std::string> titles, paths;
  int for_any_use = 0;
  for (const TCatalogueEntry& entry : catalogue.Entries) {
    titles.insert(entry.Title);
    const TDescription& source = entry.Description.value();
    const TCombination first = MakePlan({source, kNow}).Combinations.front();
    // A bound source has the output folder of its tab for itself, and fixed times of the day.
    for (const int back : source.Page ? std::vector<int>() : std::vector{0, 1, 2}) {
      const TDateTime slot = kNow - back * source.Time.Every.value_or(1s);
      EXPECT_TRUE(paths.insert(LocalPath(source, first, slot)).second) << entry.File;
    }
    for_any_use += source.Licence.Use == TLicence::TUse::Any ? 1 : 0;
    for (const TWay& way : source.Ways) {
      if (way.Licence.value_or(source.Licence).Use != TLicence::TUse::Any) continue;
      const std::string address = Fill(way.Url, {source, first});
      EXPECT_NE(open.find(address.substr(0, address.find('/', 8) + 1)), std::string::npos) << address;
    }
  }
  EXPECT_EQ(catalogue.Entries.size(), EmbeddedDescriptions().size()) << "two have one id";
  EXPECT_EQ(titles.size(), catalogue.Entries.size()) << "two have one title";
  EXPECT_GE(for_any_use, 20);
}

TEST(Catalogue, CheckingADescriptionShowsItsNextAddresses) {
  int checked = 0;
  for (const auto& entry : fs::directory_iterator(SKYREEL_TEST_EXAMPLES)) {
    if (entry.path().extension() != ".toml") continue;
    const TDescription source = test::Described(ReadWholeFile(entry.path()));
    const fs::path expected = fs::path(entry.path()).replace_extension(".txt");
    EXPECT_EQ(CheckSourceText(source, kNow), ReadWholeFile(expected));
    ++checked;
  }
  EXPECT_GE(checked, 8);
  const std::string hourless = test::With(test::kSample, "{%Y%j%H%M}", "{%Y%j}");
  EXPECT_NE(CheckSourceText(test::Described(hourless), kNow).find("also the address of"), std::string::npos);
}

TEST(Catalogue, TheExamplesOfTheDocumentAreSoundAndPrintWhatItShows) {
  const std::string document = ReadWholeFile(SKYREEL_TEST_DOCUMENT);
  int sound = 0, shown = 0;
  for (std::size_t at = 0; (at = document.find("```toml\n", at)) != std::string::npos; ++sound) {
    at += 8;
    const TDescription source = test::Described(document.substr(at, document.find("```", at) - at));
    shown += document.find("```text\n" + CheckSourceText(source, kNow) + "```") != std::string::npos ? 1 : 0;
  }
  EXPECT_GE(sound, 9);
  EXPECT_EQ(shown, 2);
}

}  // namespace
}  // namespace skyreel
