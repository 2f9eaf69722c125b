#include "demo/stand_in.h"

#include "catalogue/catalogue.h"
#include "catalogue/described_run.h"
#include "support/job_fixture.h"
#include "support/secure_server.h"

namespace skyreel {
namespace {

using test::TJobTest;

/// At this time the server of Himawari, whose names hold no date, has a picture of each slot of a day.
struct TStandInTest : TJobTest {
  TStandInTest() : TJobTest("2026-11-26 06:40") {}
};

TEST_F(TStandInTest, EachWayOfEachBuiltInDescriptionFetchesAllThatItDescribes) {
  demo::TStandIn stand_in([this] { return Clock.Now; }, test::SmallPicture);
  // The one source of an FTP server has one file.
  const std::string gif = ReadWholeFile(SKYREEL_TEST_PICTURES "/colour.gif");
  const test::TFtpServer ftp(true,
                             "login|*>257 \"/\"|CWD anon>250 in|CWD gen>250 in|CWD fwo>250 in|"
                             "MDTM IDG00074.gif>213 20261126040000|EPSV>500 no|open|TYPE I>200 ok|"
                             "*>213 <size>|RETR IDG00074.gif>150 go|data:<gif>|>226 done|QUIT>221 bye",
                             {{"gif", gif}, {"size", std::to_string(gif.size())}});
  const TCatalogue catalogue = LoadCatalogue(EmbeddedDescriptions(), {});
  std::set<std::string> hosts;
  for (const TCatalogueEntry& entry : catalogue.Entries)
    demo::AddStandInHosts(*entry.Description, Clock.Now, hosts);
  hosts.erase("ftp.bom.gov.au");
  const test::TSecureServer server({hosts.begin(), hosts.end()},
                                   std::bind_front(&demo::TStandIn::Find, &stand_in));
  std::vector<std::string> problems;
  Https.SetSettings(
      ReadHttpsSettings(server.CaFile, server.HostOverrides + ",ftp.bom.gov.au=" + ftp.Address(), problems));
  for (const TCatalogueEntry& entry : catalogue.Entries) {
    const TDescription& source = *entry.Description;
    TChoices all;
    for (const TVariable& variable : source.Variables)
      for (const TRow& row : variable.Rows) all[variable.Name].push_back(row.Value);
    for (std::size_t way = 0; way < source.Ways.size(); ++way) {
      const auto combinations = MakePlan({source, Clock.Now, all}).Combinations;
      const auto served = std::ranges::count_if(
          combinations, [&](const TCombination& each) { return source.Ways[way].Serves(each); });
      stand_in.Clear();
      stand_in.Add(source, way, ChosenRows(source, all));
      const std::string output = entry.Id + std::to_string(way);
      TJournal journal(Folder / (output + ".sqlite"), Clock);
      TDescribedRun run{.Context = Context, .Journal = journal, .Output = Folder / output};
      journal.BeginRun("test");
      const TRunRecord record = RunDescribedSources(run, {{source, all, {}, {}, true}})[0];
      EXPECT_EQ(Folder.Tree(output).size(), static_cast<std::size_t>(served))
          << output << ": " << testing::PrintToString(Lines());
      EXPECT_EQ(record.Counts.Failed, 0) << output;
    }
  }
}

}  // namespace
}  // namespace skyreel
