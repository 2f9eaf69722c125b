#include "transfer/http_to_file.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "base/files.h"
#include "support/child_process.h"
#include "support/job_fixture.h"
#include "transfer/size_limit_scope.h"

namespace skyreel {
namespace {

using test::Picture;
using test::TScript;
using namespace testing;

class HttpToFile : public testing::Test {
 protected:
  ~HttpToFile() override { EXPECT_EQ(job_.AtRest(), ""); }

  THttpSaveResult Save(std::int64_t announced = 0) {
    return SaveHttpFile(job_.Context, job_.Server.Url("/a.gif"), path_, 100, announced, time_);
  }

  test::TJobFixture job_;
  const TDateTime time_ = TDateTime::FromDate(2005, 11, 10);
  const std::filesystem::path path_ = job_.Output("2005/11/10/a.gif");
};

TEST_F(HttpToFile, AFileIsWholeWithAllThatWasAnnouncedAndOnlyThenTakesThePlaceOfAGoodOne) {
  const struct {
    std::size_t Older;  // 0: what the row before left
    std::size_t Sent;
    const char* ReplyAnnounces;
    std::int64_t HeaderAnnounced;
    THttpSaveOutcome Outcome;
    std::int64_t After;
    bool Noted;
  } rows[] = {
      {0, 700, "", 701, THttpSaveOutcome::Cut, 700, true},
      {0, 600, "Content-Length: 900\r\n", 0, THttpSaveOutcome::Cut, 600,
       true},  // a noted one is no good file
      {0, 50, "Content-Length: 50\r\n", 701, THttpSaveOutcome::Cut, 50, true},
      {0, 50, "Content-Length: 50\r\n", 50, THttpSaveOutcome::Whole, 50, false},
      {100, 600, "Content-Length: 900\r\n", 0, THttpSaveOutcome::Cut, 100, false},
      {100, 600, "Content-Length: 600\r\n", 900, THttpSaveOutcome::Cut, 100, false},
      {100, 99, "Content-Length: 99\r\n", 99, THttpSaveOutcome::Cut, 100, false},
      {100, 600, "Content-Length: 600\r\n", 500, THttpSaveOutcome::Whole, 600, false},
      {99, 600, "Content-Length: 900\r\n", 0, THttpSaveOutcome::Cut, 600, true},
  };
  for (const auto& row : rows) {
    if (row.Older > 0) job_.WriteOutput("2005/11/10/a.gif", Picture(row.Older));
    job_.Server.AnswerScript(
        "/a.gif", TScript().Reply("HTTP/1.0 200 OK\r\n" + std::string(row.ReplyAnnounces) + "\r\n" +
                                  Picture(row.Sent)));
    EXPECT_EQ(Save(row.HeaderAnnounced).Outcome, row.Outcome);
    EXPECT_THAT(job_.Tree(), ElementsAre(Pair("2005/11/10/a.gif", row.After)));
    EXPECT_EQ(job_.Ledger.IsNoted(path_), row.Noted) << row.After;
    EXPECT_EQ(GetFileDateTime(path_) == time_, row.Outcome == THttpSaveOutcome::Whole) << row.After;
  }
}

TEST_F(HttpToFile, WhatDoesNotEndIsGivenUpAndNotKept) {
  job_.NMHTTP.OnPacketRecvd = [](TPowersock& client) { client.ReceivedByteCount = kLargestDownload + 1; };
  job_.Server.AnswerScript("/a.gif", TScript().Reply("HTTP/1.0 200 OK\r\n\r\n" + Picture(600)));
  EXPECT_EQ(Save().Reason, "given up: more than 1 GiB came");
  EXPECT_THAT(job_.Tree(), IsEmpty());
}

TEST_F(HttpToFile, AFileThatAnotherCopyWritesIsLeftToIt) {
  test::TChild other([&](int pipe) {
    TTransferLedger ledger(job_.Folder / "ledger.txt");
    if (ledger.Begin(path_)) test::Say(pipe);
    ::pause();
  });
  ASSERT_TRUE(other.Await());
  EXPECT_EQ(Save().Reason, "another copy of the program is fetching it");
  EXPECT_THAT(job_.Server.Paths(), IsEmpty());
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
