#include "transfer/http_fetch.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "base/files.h"
#include "image/image_file.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using enum THttpFileOutcome;
using test::HttpReply;
using test::Picture;
using namespace testing;

const TDateTime kFileTime = TDateTime::FromDate(2005, 11, 10, 11, 30);

/// Gives the fetches a temporary folder of their own, which must be empty again after each.
class THttpFetch : public testing::Test {
 protected:
  THttpFetch() {
    fs::create_directories(temporary_);
    ::setenv("TMPDIR", temporary_.c_str(), 1);
  }
  ~THttpFetch() override {
    EXPECT_EQ(job_.AtRest(), "");
    EXPECT_TRUE(fs::is_empty(temporary_));
    ::unsetenv("TMPDIR");
  }

  /// Fetches `name` into a file of the output folder.
  THttpFileOutcome Get(const std::string& name = "/a.jpg", const std::string& local = "a.jpg",
                       bool reencode = false) {
    job_.Display.Lines.clear();
    return GetHttpFile(job_.Context, root_, name, job_.Output(local), 2, reencode, kFileTime);
  }

  test::TJobFixture job_;
  const std::string root_ = "http://" + job_.Server.Address();
  const fs::path temporary_ = job_.Folder / "tmp";
};

TEST_F(THttpFetch, AFetchShowsItsProgressUnderTheWatchdog) {
  job_.Server.Answer("/a.jpg", Picture(20000));
  const auto shown = job_.NMHTTP.OnPacketRecvd;
  job_.NMHTTP.OnPacketRecvd = [&](TPowersock& sender) {
    shown(sender);
    EXPECT_EQ(job_.Display.BusyDepth, 1);
    EXPECT_EQ(job_.Display.Panels.back().second, root_ + "/a.jpg");
    EXPECT_TRUE(job_.Run.WatchdogArmed);
  };
  EXPECT_EQ(Get(), Saved);
  EXPECT_EQ(GetFileDateTime(job_.Output("a.jpg")), kFileTime);
  EXPECT_THAT(job_.Display.AllLines, ElementsAre("Get: /a.jpg", "/a.jpg - OK"));
  EXPECT_THAT(job_.Display.BytesLabels, AllOf(Contains("0 bytes"), Contains("100%")));
  EXPECT_TRUE(job_.NMHTTP.OnPacketRecvd) << "the progress handler is put back";
}

TEST_F(THttpFetch, SizesDecide) {
  const struct {
    std::int64_t Local;  // size of the file that is there already; -1 none
    std::size_t Served;
    THttpFileOutcome Outcome;
    std::int64_t After;  // size of the local file afterwards; -1 none
    const char* Line;
  } cases[] = {
      {-1, 10000, Saved, 10000, " - OK"},      {-1, 9999, Incomplete, -1, " - missing or incomplete"},
      {-1, 0, TimedOut, -1, " - timed out"},   {1000, 20000, Present, 1000, nullptr},
      {999, 10000, Saved, 10000, " - OK"},     {999, 9999, Incomplete, -1, " - missing or incomplete"},
      {999, 0, TimedOut, 999, " - timed out"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.Local << " " << c.Served);
    fs::remove(job_.Output("a.jpg"));
    if (c.Local >= 0) job_.WriteOutput("a.jpg", Picture(static_cast<std::size_t>(c.Local), 'o'));
    job_.Server.Answer("/a.jpg", Picture(c.Served));
    EXPECT_EQ(Get(), c.Outcome);
    EXPECT_EQ(FileSizeOf(job_.Output("a.jpg")), c.After);
    EXPECT_EQ(job_.Display.Lines,
              c.Line ? std::vector{std::string("/a.jpg") + c.Line} : std::vector<std::string>());
  }
  EXPECT_EQ(job_.Server.ConnectionCount(), 6) << "what is there is not asked for";
}

TEST_F(THttpFetch, MissingTemporaryFolderSaysWhyAndAShortFileDeletesNoFolder) {
  job_.Server.Answer("/a.jpg", Picture(10));
  fs::create_directories(job_.Output("a.jpg"));
  EXPECT_EQ(Get(), Incomplete);
  EXPECT_TRUE(fs::is_directory(job_.Output("a.jpg")));
  ::setenv("TMPDIR", (job_.Folder / "no such folder").c_str(), 1);
  EXPECT_EQ(Get(), NotSaved);
  EXPECT_THAT(job_.Display.Lines, ElementsAre(StartsWith("/a.jpg - not saved: ")));
  EXPECT_EQ(job_.Server.ConnectionCount(), 1);
}

TEST_F(THttpFetch, ReencodedPictureIsCorrectedAndStampedUnderItsNewName) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  bitmap.SetSize(256, 256);
  // A grey field to look at, noise around it so that the file is large enough.
  std::uint32_t noise = 1;
  for (int y = 0; y < 256; ++y)
    for (int x = 0; x < 256; ++x)
      bitmap.ScanLine(y)[x] =
          y < 32 ? 100 : static_cast<std::uint8_t>((noise = noise * 1'664'525 + 1'013'904'223) >> 24);
  SaveAsJpeg(bitmap, job_.Folder / "source.jpg", 100, "");
  job_.Server.Answer("/a.jpeg", ReadWholeFile(job_.Folder / "source.jpg"));
  EXPECT_EQ(Get("/a.jpeg", "a.jpeg", true), Saved);
  EXPECT_THAT(job_.Display.Lines, ElementsAre("/a.jpeg - OK"));
  EXPECT_EQ(GetFileDateTime(job_.Output("a.jpg")), kFileTime);
  LoadImage(bitmap, job_.Output("a.jpg"));
  EXPECT_NEAR(bitmap.ScanLine(8)[128], 39, 1) << "255 * (100 / 255) ^ 2";

  job_.Server.Answer("/b.jpeg", Picture(10000));
  EXPECT_EQ(Get("/b.jpeg", "b.jpeg", true), NotSaved);
  EXPECT_THAT(job_.Display.Lines, ElementsAre(StartsWith("/b.jpeg - saved as it came, not re-encoded: ")));
  EXPECT_THAT(job_.Files(), ElementsAre("a.jpg", "b.jpeg"));
}

TEST_F(THttpFetch, TemporaryFileKeepsItsNameAndIsPrivate) {
  job_.Server.Answer("/a.jpg", Picture(10000));
  std::vector<std::string> names;
  job_.NMHTTP.OnPacketRecvd = [&](TPowersock&) {
    for (const auto& entry : fs::directory_iterator(temporary_)) {
      names.push_back(entry.path().filename());
      EXPECT_EQ(entry.status().permissions(), fs::perms::owner_read | fs::perms::owner_write);
    }
  };
  std::string stream;
  EXPECT_EQ(GetHttpToStream(job_.Context, root_ + "/a.jpg", stream), 10000);
  ASSERT_FALSE(names.empty());
  const std::string first = names.front();
  EXPECT_THAT(first, ContainsRegex("^~Skyreel~[0-9A-F]{8}\\.~tmp$"));

  // A link left under that name is removed, never followed.
  const fs::path victim = job_.WriteOutput("victim", "precious");
  fs::create_symlink(victim, temporary_ / first);
  EXPECT_EQ(GetHttpToStream(job_.Context, root_ + "/a.jpg", stream), 10000);
  EXPECT_THAT(names, Each(first));
  EXPECT_EQ(ReadWholeFile(victim), "precious");
}

TEST_F(THttpFetch, StreamHoldsTheLastFetchAloneAndOnlyCredentialsStayInForce) {
  std::vector<std::string> sent;
  job_.Server.SetHandler([&](const std::string&, const std::string& request) {
    const std::size_t at = request.find("Authorization: Basic ");
    sent.push_back(at == std::string::npos ? "-" : request.substr(at + 21, request.find('\r', at) - at - 21));
    return HttpReply("text");
  });
  job_.NMHTTP.Body = "kept";
  std::string stream = "earlier";
  for (const auto& [user, word] : {std::pair("", ""), {"user", "word"}, {"", ""}, {"other", ""}}) {
    EXPECT_EQ(GetHttpToStream(job_.Context, root_ + "/", stream, user, word), 4);
    EXPECT_EQ(stream, "text");
  }
  EXPECT_THAT(sent, ElementsAre("-", "dXNlcjp3b3Jk", "dXNlcjp3b3Jk", "b3RoZXI6d29yZA=="));
  EXPECT_EQ(GetHttpToStream(job_.Context, "", stream), 0);
  EXPECT_EQ(stream, "");
  EXPECT_EQ(job_.NMHTTP.Body + (job_.NMHTTP.InputFileMode ? " in file mode" : ""), "kept");
  EXPECT_THAT(job_.Display.Lines, IsEmpty()) << "lines are the callers' matter";
}

TEST_F(THttpFetch, SharedSettingsReachTheClient) {
  const struct {
    bool UseProxy;
    const char *Port, *Result;
  } cases[] = {
      // One set earlier stays in effect.
      {false, "81", ""},
      {true, " 8080 ", "host:8080"},
      {true, "", "host:8080"},
      {true, "65536", "host:8080"},
      {true, "-1", "host:8080"},
      {false, "81", "host:8080"},
      {true, "65535", "host:65535"},
  };
  TNMHTTP client;
  TSharedSettings shared;
  for (const auto& c : cases) {
    ++shared.TimeoutSeconds;
    shared.UseProxy = c.UseProxy;
    shared.ProxyServer = "host";
    shared.ProxyPort = c.Port;
    ApplySharedHttpSettings(client, shared);
    EXPECT_EQ(client.TimeOut, shared.TimeoutSeconds * 1000);
    EXPECT_EQ(client.Proxy.empty() ? "" : client.Proxy + ":" + std::to_string(client.ProxyPort), c.Result);
  }
}

TEST_F(THttpFetch, ProxyPortThatIsNoNumberIsSaidOnceAndTheFetchesGoAhead) {
  job_.Context.Shared.UseProxy = true;
  job_.Context.Shared.ProxyServer = "127.0.0.1";
  job_.Context.Shared.ProxyPort = "http";
  job_.Server.Answer("/a.jpg", Picture(10000));
  Get();
  EXPECT_THAT(job_.Display.Lines,
              ElementsAre("Proxy not set: port \"http\" is no port number", "/a.jpg - OK"));
  Get("/a.jpg", "b.jpg");
  EXPECT_THAT(job_.Display.Lines, ElementsAre("/a.jpg - OK"));
}

}  // namespace
}  // namespace skyreel
