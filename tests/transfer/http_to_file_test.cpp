#include "transfer/http_to_file.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "base/files.h"
#include "support/child_process.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

using test::Picture;
using test::TScript;
using namespace testing;

class HttpToFile : public testing::Test {
 protected:
  ~HttpToFile() override { EXPECT_EQ(job_.AtRest(), ""); }

  THttpSaveResult Save(std::int64_t announced = 0) {
    return SaveHttpFile(job_.Context, job_.Server.Url("/a.gif"), path_, 100, announced);
  }
  bool Noted() { return job_.Ledger.IsNoted(path_); }

  test::TJobFixture job_;
  const std::filesystem::path path_ = job_.Output("2005/11/10/a.gif");
};

TEST_F(HttpToFile, ACutTransferIsNotedAndTheReplysOwnAnnouncementCounts) {
  job_.Server.AnswerScript("/a.gif", TScript().Reply("HTTP/1.0 200 OK\r\n\r\n" + Picture(700)));
  EXPECT_EQ(Save(701).Outcome, THttpSaveOutcome::kCut);
  EXPECT_THAT(job_.Tree(), ElementsAre(Pair("2005/11/10/a.gif", 700)));
  EXPECT_TRUE(Noted());
  job_.Server.Answer("/a.gif", Picture(50));
  EXPECT_EQ(Save(701).Outcome, THttpSaveOutcome::kWhole);
  EXPECT_THAT(job_.Tree(), ElementsAre(Pair("2005/11/10/a.gif", 50)));
  EXPECT_FALSE(Noted());
}

TEST_F(HttpToFile, OnlyAGoodOlderFileIsWaitedFor) {
  job_.Server.AnswerScript("/a.gif",
                           TScript().Reply("HTTP/1.0 200 OK\r\nContent-Length: 900\r\n\r\n" + Picture(600)));
  for (const std::size_t size : {100u, 99u}) {
    job_.WriteOutput("2005/11/10/a.gif", Picture(size));
    EXPECT_EQ(Save().Outcome, THttpSaveOutcome::kCut);
    EXPECT_THAT(job_.Tree(), ElementsAre(Pair("2005/11/10/a.gif", size == 100 ? 100 : 600)));
    EXPECT_EQ(Noted(), size < 100);
  }
  EXPECT_EQ(Save().Outcome, THttpSaveOutcome::kCut);
  EXPECT_THAT(job_.Tree(), ElementsAre(Pair("2005/11/10/a.gif", 600))) << "the noted one is no good file";
}

TEST_F(HttpToFile, AFileThatAnotherCopyWritesIsLeftToIt) {
  const std::filesystem::path ledger_file = job_.Folder / "ledger.txt";
  test::TChild other([&](int pipe) {
    TTransferLedger ledger(ledger_file);
    if (ledger.Begin(path_)) test::Say(pipe);
    ::pause();
  });
  ASSERT_TRUE(other.Await());
  const THttpSaveResult result = Save();
  EXPECT_EQ(result.Outcome, THttpSaveOutcome::kNotSaved);
  EXPECT_EQ(result.Reason, "another copy of the program is fetching it");
  EXPECT_THAT(job_.Server.Paths(), IsEmpty());
  other.Kill();
  job_.Server.Answer("/a.gif", Picture(50));
  EXPECT_EQ(Save().Outcome, THttpSaveOutcome::kWhole);
}

TEST_F(HttpToFile, TheClientIsLeftAsItWas) {
  job_.Server.Answer("/a.gif", Picture(50));
  job_.NMHTTP.Body = "body";
  Save();
  AskHttpFileInfo(job_.Context, job_.Server.Url("/a.gif"));
  GetHttpPage(job_.Context, job_.Server.Url("/a.gif"), "a page");
  EXPECT_EQ(job_.NMHTTP.Body, "body");
  EXPECT_FALSE(job_.NMHTTP.InputFileMode);
  EXPECT_THAT(job_.Display.Panels, Contains(Pair(1, "a page")));
}

}  // namespace
}  // namespace skyreel
