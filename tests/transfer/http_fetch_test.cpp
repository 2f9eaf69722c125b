#include "transfer/http_fetch.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>

#include "base/files.h"
#include "image/image_file.h"
#include "support/job_fixture.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using test::HttpReply;
using test::Picture;
using test::TScript;
using testing::ContainsRegex;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

const TDateTime kFileTime = TDateTime::FromDate(2005, 11, 10, 11, 30);

/// Gives the fetches a temporary folder of their own, which must be empty again after each.
class THttpFetch : public testing::Test {
 protected:
  THttpFetch() {
    fs::create_directories(TemporaryFolder());
    ::setenv("TMPDIR", TemporaryFolder().c_str(), 1);
  }
  ~THttpFetch() override {
    EXPECT_EQ(fixture_.AtRest(), "");
    EXPECT_TRUE(fs::is_empty(TemporaryFolder()));
    ::unsetenv("TMPDIR");
  }

  fs::path TemporaryFolder() const { return fixture_.Folder / "tmp"; }
  std::string Root() const { return "http://" + fixture_.Server.Address(); }
  /// Fetches `name` into a file of the output folder.
  THttpFileOutcome Get(const std::string& name = "/a.jpg", const std::string& local = "a.jpg") {
    return GetHttpFile(fixture_.Context, Root(), name, fixture_.Output(local), 0, false, kFileTime);
  }
  std::string Body(const std::string& local = "a.jpg") { return ReadWholeFile(fixture_.Output(local)); }

  test::TJobFixture fixture_;
};

// --- Judging -----------------------------------------------------------------------------------------------

TEST_F(THttpFetch, WholePictureIsSavedStampedAndReported) {
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  EXPECT_EQ(Get(), THttpFileOutcome::kSaved);
  EXPECT_EQ(Body(), Picture(10000));
  EXPECT_EQ(GetFileDateTime(fixture_.Output("a.jpg")), kFileTime);
  EXPECT_THAT(fixture_.Display.AllLines, ElementsAre("Get: /a.jpg", "/a.jpg - OK"));
  EXPECT_THAT(fixture_.Display.Lines, ElementsAre("/a.jpg - OK"));
}

TEST_F(THttpFetch, ProgressUrlAndCursorAreShownWhileItRuns) {
  fixture_.Server.Answer("/a.jpg", Picture(20000));
  int depth = 0;
  std::string panel;
  const TPowersock::TNotifyEvent shown = fixture_.NMHTTP.OnPacketRecvd;
  fixture_.NMHTTP.OnPacketRecvd = [&](TPowersock& sender) {
    shown(sender);
    depth = fixture_.Display.BusyDepth;
    panel = fixture_.Display.Panels.back().second;
    EXPECT_TRUE(fixture_.Run.WatchdogArmed);
  };
  Get();
  EXPECT_EQ(depth, 1);
  EXPECT_EQ(panel, Root() + "/a.jpg");
  EXPECT_EQ(fixture_.Display.BytesLabels.front(), "0 bytes");
  EXPECT_THAT(fixture_.Display.BytesLabels, testing::Contains("100%"));
  EXPECT_THAT(fixture_.Display.Progress, testing::Contains(100));
  EXPECT_TRUE(fixture_.NMHTTP.OnPacketRecvd) << "the progress handler is put back";
}

struct TSizeCase {
  const char* What;
  std::int64_t Local;  ///< size of the file that is there already; -1 none
  std::size_t Served;
  THttpFileOutcome Outcome;
  std::int64_t After;  ///< size of the local file afterwards; -1 none
  const char* Line;    ///< "" none
};

TEST_F(THttpFetch, SizesDecide) {
  using enum THttpFileOutcome;
  const TSizeCase cases[] = {
      {"new and whole", -1, 10000, kSaved, 10000, " - OK"},
      {"new and short", -1, 9999, kIncomplete, -1, " - missing or incomplete"},
      {"one byte", -1, 1, kIncomplete, -1, " - missing or incomplete"},
      {"nothing", -1, 0, kTimedOut, -1, " - timed out"},
      {"there", 1000, 20000, kPresent, 1000, ""},
      {"too short to count, new one whole", 999, 10000, kSaved, 10000, " - OK"},
      {"too short to count, new one short too", 999, 9999, kIncomplete, -1, " - missing or incomplete"},
      {"too short to count, nothing new", 999, 0, kTimedOut, 999, " - timed out"},
      {"empty", 0, 10000, kSaved, 10000, " - OK"},
  };
  int number = 0;
  for (const TSizeCase& c : cases) {
    SCOPED_TRACE(c.What);
    const std::string name = "/" + std::to_string(++number) + ".jpg";
    const fs::path local = fixture_.Output(name.substr(1));
    if (c.Local >= 0) fixture_.WriteOutput(name.substr(1), Picture(static_cast<std::size_t>(c.Local), 'o'));
    fixture_.Server.Answer(name, Picture(c.Served));
    const std::size_t lines = fixture_.Display.Lines.size();
    EXPECT_EQ(Get(name, name.substr(1)), c.Outcome);
    EXPECT_EQ(FileSizeOf(local), c.After);
    if (*c.Line == '\0') {
      EXPECT_EQ(fixture_.Display.Lines.size(), lines);
      EXPECT_THAT(fixture_.Server.Paths(), Not(testing::Contains(name)));
    } else {
      ASSERT_EQ(fixture_.Display.Lines.size(), lines + 1);
      EXPECT_EQ(fixture_.Display.Lines.back(), name + c.Line);
    }
  }
}

TEST_F(THttpFetch, PageInPlaceOfAPictureIsNoPicture) {
  const std::string filler(2'000'000, ' ');
  const struct {
    std::string Body;
    bool Page;
  } cases[] = {
      {"<!DOCTYPE html>" + filler, true},
      {"<html>" + filler, true},
      {" \r\n\t<HTML lang=en>" + filler, true},
      {"\n<!doctype HTML PUBLIC" + filler, true},
      {filler + "<hTmL>" + filler, true},
      {"<?xml version='1.0'?><html>" + filler, false},
      {"x<html>" + filler, false},
      {"<htm" + filler, false},
  };
  int number = 0;
  for (const auto& c : cases) {
    const std::string name = std::to_string(++number) + ".jpg";
    fixture_.Server.Answer("/" + name, c.Body);
    EXPECT_EQ(Get("/" + name, name), c.Page ? THttpFileOutcome::kIncomplete : THttpFileOutcome::kSaved)
        << number;
    EXPECT_EQ(FileSizeOf(fixture_.Output(name)), c.Page ? -1 : static_cast<std::int64_t>(c.Body.size()));
  }
}

TEST_F(THttpFetch, ErrorReplyIsJudgedBySizeAlone) {
  fixture_.Server.Answer("/large", Picture(10000), {}, "404 Not Found");
  fixture_.Server.Answer("/small", "not here", {}, "404 Not Found");
  EXPECT_EQ(Get("/large", "large"), THttpFileOutcome::kSaved);
  EXPECT_EQ(Get("/small", "small"), THttpFileOutcome::kIncomplete);
}

// --- What servers do ---------------------------------------------------------------------------------------

struct TFaultCase {
  const char* What;
  TScript Script;
  const char* Line;
};

std::vector<TFaultCase> Faults() {
  const std::string ok = "HTTP/1.0 200 OK\r\n";
  const std::string whole = HttpReply(Picture(10000));
  std::vector<TFaultCase> faults;
  faults.push_back({"stalls before the reply", TScript().Stall(), " - timed out"});
  faults.push_back({"stalls inside the header", TScript().Reply("HTTP/1.0 200 O").Stall(), " - timed out"});
  faults.push_back(
      {"stalls inside the body", TScript().Reply(whole.substr(0, 5000)).Stall(), " - timed out"});
  faults.push_back({"drips", TScript().Drip(whole, milliseconds(1), 200), " - OK"});
  faults.push_back(
      {"resets inside the body", TScript().Reply(whole.substr(0, 5000)).Reset(), " - timed out"});
  faults.push_back({"closes before the reply", TScript().Close(), " - timed out"});
  faults.push_back({"closes inside the header", TScript().Reply(ok + "Content-Le").Close(), " - timed out"});
  faults.push_back({"closes early, above the threshold",
                    TScript().Reply(ok + "Content-Length: 20000\r\n\r\n" + Picture(19999)),
                    " - missing or incomplete"});
  faults.push_back({"announces beyond all measure",
                    TScript().Reply(ok + "Content-Length: 9000000000000\r\n\r\n" + Picture(15000)),
                    " - missing or incomplete"});
  faults.push_back({"announces nothing", TScript().Reply(ok + "\r\n" + Picture(10000)), " - OK"});
  faults.push_back({"announces nothing, sends a little", TScript().Reply(ok + "\r\n" + Picture(9999)),
                    " - missing or incomplete"});
  faults.push_back({"sends rubbish", TScript().Reply(std::string(30000, '\xfe')), " - timed out"});
  faults.push_back(
      {"sends an endless header line", TScript().Reply(ok + std::string(1 << 20, 'h')), " - timed out"});
  faults.push_back({"redirects to itself", TScript().Reply("HTTP/1.0 302 Found\r\nLocation: /a.jpg\r\n\r\n"),
                    " - timed out"});
  return faults;
}

TEST_F(THttpFetch, EveryFaultCostsOneFileAndOneLine) {
  fixture_.Context.Shared.TimeoutSeconds = 1;
  for (TFaultCase& fault : Faults()) {
    SCOPED_TRACE(fault.What);
    // Nothing short of a whole picture takes the older file's place; only the verdict "incomplete" deletes
    // it.
    fixture_.WriteOutput("a.jpg", Picture(999, 'o'));
    fixture_.Server.AnswerScript("/a.jpg", fault.Script);
    fixture_.Display.Lines.clear();
    Get();
    const std::string line = std::string("/a.jpg") + fault.Line;
    EXPECT_THAT(fixture_.Display.Lines, ElementsAre(line));
    const std::int64_t size = line.ends_with("OK") ? 10000 : line.ends_with("incomplete") ? -1 : 999;
    EXPECT_EQ(FileSizeOf(fixture_.Output("a.jpg")), size);
    EXPECT_EQ(fixture_.AtRest(), "");
    EXPECT_TRUE(fs::is_empty(TemporaryFolder()));
  }
  fixture_.Server.StopListening();
  fixture_.Display.Lines.clear();
  Get("/b.jpg", "b.jpg");
  EXPECT_THAT(fixture_.Display.Lines, ElementsAre("/b.jpg - timed out"));
}

TEST_F(THttpFetch, WatchdogAbortEndsTheFetch) {
  fixture_.Server.AnswerScript("/a.jpg", TScript().Drip(HttpReply(Picture(10000)), milliseconds(1), 100));
  const TPowersock::TNotifyEvent shown = fixture_.NMHTTP.OnPacketRecvd;
  fixture_.NMHTTP.OnPacketRecvd = [&](TPowersock& sender) {
    shown(sender);
    if (sender.ReceivedByteCount > 1000) sender.Abort();
  };
  EXPECT_EQ(Get(), THttpFileOutcome::kTimedOut);
  EXPECT_THAT(fixture_.Files(), IsEmpty());
  fixture_.Server.Answer("/b.jpg", Picture(10000));
  fixture_.NMHTTP.OnPacketRecvd = shown;
  EXPECT_EQ(Get("/b.jpg", "b.jpg"), THttpFileOutcome::kSaved) << "the client is usable again";
}

TEST_F(THttpFetch, RootThatIsNoHttpServerSaysWhy) {
  for (const char* root : {"https://127.0.0.1", "http://127.0.0.1/\r\nX: y"}) {
    GetHttpFile(fixture_.Context, root, "/a.jpg", fixture_.Output("a.jpg"), 0, false, kFileTime);
    EXPECT_THAT(fixture_.Display.Lines.back(), testing::StartsWith("/a.jpg - not fetched: ")) << root;
  }
}

// --- What disks do -----------------------------------------------------------------------------------------

TEST_F(THttpFetch, UnsaveableFileSaysWhyAndLeavesNothing) {
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  fixture_.WriteOutput("file", "x");
  fs::create_directories(fixture_.Output("folder.jpg"));
  const struct {
    std::string Local, Reason;
  } cases[] = {{"file/a.jpg", "Not a directory"},
               {"none/a.jpg", "No such file or directory"},
               {"folder.jpg", "Is a directory"},
               {std::string(300, 'n') + ".jpg", "File name too long"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Get("/a.jpg", c.Local), THttpFileOutcome::kNotSaved);
    EXPECT_EQ(fixture_.Display.Lines.back(), "/a.jpg - not saved: " + c.Reason);
    EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("file", 1))) << c.Local;
  }
  EXPECT_TRUE(fs::is_directory(fixture_.Output("folder.jpg")));
}

TEST_F(THttpFetch, TemporaryFolderMayBeOnAnotherDisk) {
  std::string other = "/dev/shm/skyreel_testXXXXXX";
  if (!::mkdtemp(other.data())) GTEST_SKIP() << "no second file system to write to";
  ::setenv("TMPDIR", other.c_str(), 1);
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  EXPECT_EQ(Get(), THttpFileOutcome::kSaved);
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("a.jpg", 10000)));
  EXPECT_TRUE(fs::is_empty(other));
  fs::remove_all(other);
}

TEST_F(THttpFetch, IncompleteDownloadNeverDeletesAFolder) {
  fixture_.Server.Answer("/a.jpg", Picture(10));
  fs::create_directories(fixture_.Output("a.jpg"));
  EXPECT_EQ(Get(), THttpFileOutcome::kIncomplete);
  EXPECT_TRUE(fs::is_directory(fixture_.Output("a.jpg")));
}

TEST_F(THttpFetch, MissingTemporaryFolderSaysWhy) {
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  ::setenv("TMPDIR", (fixture_.Folder / "no such folder").c_str(), 1);
  EXPECT_EQ(Get(), THttpFileOutcome::kNotSaved);
  EXPECT_THAT(fixture_.Display.Lines.back(), testing::StartsWith("/a.jpg - not saved: "));
  EXPECT_THAT(fixture_.Server.Paths(), IsEmpty());
}

TEST_F(THttpFetch, DiskThatTakesNoMoreSaysWhyAndLeavesNothing) {
  fixture_.Server.Answer("/a.jpg", Picture(20000));
  fixture_.WriteOutput("a.jpg", Picture(999, 'o'));
  // A limit on file size fails a write in its middle as a full disk does.
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit low{15000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &low);
  EXPECT_EQ(Get(), THttpFileOutcome::kNotSaved);
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_THAT(fixture_.Display.Lines, ElementsAre("/a.jpg - not saved: File too large"));
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("a.jpg", 999)));
}

TEST_F(THttpFetch, ReencodedPictureIsCorrectedAndStampedUnderItsNewName) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  bitmap.SetSize(256, 256);
  // A grey field to look at, noise around it so that the file is large enough.
  std::uint32_t noise = 1;
  for (int y = 0; y < 256; ++y) {
    for (int x = 0; x < 256; ++x) {
      noise = noise * 1'664'525 + 1'013'904'223;
      bitmap.ScanLine(y)[x] = y < 32 ? 100 : static_cast<std::uint8_t>(noise >> 24);
    }
  }
  SaveAsJpeg(bitmap, fixture_.Folder / "source.jpg", 100, "");
  fixture_.Server.Answer("/a.jpeg", ReadWholeFile(fixture_.Folder / "source.jpg"));
  EXPECT_EQ(GetHttpFile(fixture_.Context, Root(), "/a.jpeg", fixture_.Output("a.jpeg"), 2, true, kFileTime),
            THttpFileOutcome::kSaved);
  EXPECT_THAT(fixture_.Display.Lines, ElementsAre("/a.jpeg - OK"));
  EXPECT_THAT(fixture_.Files(), ElementsAre("a.jpg"));
  EXPECT_EQ(GetFileDateTime(fixture_.Output("a.jpg")), kFileTime);
  LoadImage(bitmap, fixture_.Output("a.jpg"));
  EXPECT_NEAR(bitmap.ScanLine(8)[128], 39, 1) << "255 * (100 / 255) ^ 2";

  fixture_.Server.Answer("/b.jpeg", Picture(10000));
  EXPECT_EQ(GetHttpFile(fixture_.Context, Root(), "/b.jpeg", fixture_.Output("b.jpeg"), 2, true, kFileTime),
            THttpFileOutcome::kNotSaved);
  EXPECT_THAT(fixture_.Display.Lines.back(),
              testing::StartsWith("/b.jpeg - saved as it came, not re-encoded: "));
  EXPECT_THAT(fixture_.Files(), ElementsAre("a.jpg", "b.jpeg"));
}

TEST_F(THttpFetch, FailureAfterSavingKeepsTheFileAndSaysSo) {
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  THttpFileRequest request{Root() + "/a.jpg", "a", "b", fixture_.Output("a.jpg"), 1, 1, kFileTime, {}};
  request.AfterSaving = [](const fs::path&) -> fs::path { throw std::runtime_error("bad picture"); };
  EXPECT_EQ(FetchHttpFile(fixture_.Context, request), THttpFileOutcome::kNotSaved);
  EXPECT_THAT(fixture_.Display.AllLines,
              ElementsAre("Get: a", "b - saved as it came, not re-encoded: bad picture"));
  EXPECT_THAT(fixture_.Tree(), ElementsAre(Pair("a.jpg", 10000)));
}

// --- The temporary file ------------------------------------------------------------------------------------

TEST_F(THttpFetch, TemporaryFileKeepsItsNameAndIsPrivate) {
  fixture_.Server.Answer("/a.jpg", Picture(10000));
  std::vector<std::string> names;
  fs::perms permissions{};
  fixture_.NMHTTP.OnPacketRecvd = [&](TPowersock&) {
    for (const auto& entry : fs::directory_iterator(TemporaryFolder())) {
      names.push_back(entry.path().filename());
      permissions = entry.status().permissions();
    }
  };
  std::string stream;
  EXPECT_EQ(GetHttpToStream(fixture_.Context, Root() + "/a.jpg", stream), 10000);
  ASSERT_FALSE(names.empty());
  const std::string first = names.front();
  EXPECT_THAT(first, ContainsRegex("^~Skyreel~[0-9A-F]{8}\\.~tmp$"));
  EXPECT_EQ(permissions, fs::perms::owner_read | fs::perms::owner_write);

  // A link left under that name is removed, never followed.
  const fs::path victim = fixture_.WriteOutput("victim", "precious");
  fs::create_symlink(victim, TemporaryFolder() / first);
  EXPECT_EQ(GetHttpToStream(fixture_.Context, Root() + "/a.jpg", stream), 10000);
  EXPECT_THAT(names, Each(first));
  EXPECT_EQ(ReadWholeFile(victim), "precious");
}

TEST_F(THttpFetch, StreamHoldsTheLastFetchAloneAndClientModesAreKept) {
  fixture_.Server.Answer("/a", "short text");
  std::string stream = "earlier";
  fixture_.NMHTTP.Body = "kept";
  EXPECT_EQ(GetHttpToStream(fixture_.Context, Root() + "/a", stream), 10);
  EXPECT_EQ(stream, "short text");
  EXPECT_FALSE(fixture_.NMHTTP.InputFileMode);
  EXPECT_EQ(fixture_.NMHTTP.Body, "kept");
  EXPECT_EQ(GetHttpToStream(fixture_.Context, "", stream), 0);
  EXPECT_EQ(stream, "");
  EXPECT_FALSE(fixture_.NMHTTP.InputFileMode);
  EXPECT_THAT(fixture_.Display.Lines, IsEmpty()) << "lines are the callers' matter";
}

// --- Credentials and proxy ---------------------------------------------------------------------------------

TEST_F(THttpFetch, CredentialsStayInForceUntilReplaced) {
  std::vector<std::string> sent;
  fixture_.Server.SetHandler([&](const std::string&, const std::string& request) {
    const std::size_t at = request.find("Authorization: Basic ");
    sent.push_back(at == std::string::npos ? "-" : request.substr(at + 21, request.find('\r', at) - at - 21));
    return HttpReply("text");
  });
  std::string stream;
  const std::string url = Root() + "/";
  GetHttpToStream(fixture_.Context, url, stream);
  GetHttpToStream(fixture_.Context, url, stream, "user", "word");
  GetHttpToStream(fixture_.Context, url, stream);
  GetHttpToStream(fixture_.Context, url, stream, "other", "");
  EXPECT_THAT(sent, ElementsAre("-", "dXNlcjp3b3Jk", "dXNlcjp3b3Jk", "b3RoZXI6d29yZA=="));
}

TEST_F(THttpFetch, SharedSettingsReachTheClient) {
  TNMHTTP client;
  TSharedSettings shared;
  shared.TimeoutSeconds = 3600;
  shared.ProxyServer = "first";
  shared.ProxyPort = "81";
  ApplySharedHttpSettings(client, shared);
  EXPECT_EQ(client.TimeOut, 3'600'000);
  EXPECT_EQ(client.Proxy, "") << "not wanted";

  shared.UseProxy = true;
  shared.ProxyPort = " 8080 ";
  ApplySharedHttpSettings(client, shared);
  EXPECT_EQ(client.Proxy, "first");
  EXPECT_EQ(client.ProxyPort, 8080);

  shared.ProxyServer = "second";
  for (const char* port : {"", "http", "80a", "65536", "-1", "99999999999"}) {
    shared.ProxyPort = port;
    ApplySharedHttpSettings(client, shared);
    EXPECT_EQ(client.Proxy, "first") << port;
    EXPECT_EQ(client.ProxyPort, 8080) << port;
  }

  shared.UseProxy = false;
  shared.TimeoutSeconds = 5;
  ApplySharedHttpSettings(client, shared);
  EXPECT_EQ(client.Proxy, "first") << "one set earlier stays in effect";
  EXPECT_EQ(client.TimeOut, 5000);
}

TEST_F(THttpFetch, ProxyGetsTheWholeUrlAndStaysWhenNoLongerWanted) {
  fixture_.Context.Shared.UseProxy = true;
  fixture_.Context.Shared.ProxyServer = "127.0.0.1";
  fixture_.Context.Shared.ProxyPort = std::to_string(fixture_.Server.Port());
  std::string stream;
  GetHttpToStream(fixture_.Context, "http://images.example/a", stream);
  fixture_.Context.Shared.UseProxy = false;
  GetHttpToStream(fixture_.Context, "http://images.example/b", stream);
  EXPECT_THAT(fixture_.Server.Paths(), ElementsAre("http://images.example/a", "http://images.example/b"));
}

TEST_F(THttpFetch, ProxyPortThatIsNoNumberIsSaidOnceAndTheFetchesGoAhead) {
  fixture_.Context.Shared.UseProxy = true;
  fixture_.Context.Shared.ProxyServer = "127.0.0.1";
  fixture_.Context.Shared.ProxyPort = "http";
  fixture_.Server.Answer("/a", Picture(10000));
  Get("/a", "a");
  Get("/a", "b");
  EXPECT_THAT(fixture_.Display.Lines,
              ElementsAre("Proxy not set: port \"http\" is no port number", "/a - OK", "/a - OK"));
}

}  // namespace
}  // namespace skyreel
