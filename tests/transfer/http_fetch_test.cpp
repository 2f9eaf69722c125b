#include "transfer/http_fetch.h"

#include <gmock/gmock.h>

#include "base/files.h"
#include "image/image_file.h"
#include "transfer/fetch_test.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using enum TFileOutcome;
using test::Picture;
using namespace testing;

const TDateTime kTime = test::At("2005-11-10 11:30");

class THttpFetch : public test::TFetchTest {
 protected:
  /// Fetches `name` into a file of the output folder; the lines that it left.
  test::TWords Get(const std::string& name = "/a.jpg", const std::string& local = "a.jpg",
                   bool reencode = false) {
    GetHttpFile(Context, root_, name, Output(local), 2, reencode, kTime, "D1");
    return Lines();
  }

  const std::string root_ = Server.Url("");
};

TEST_F(THttpFetch, AFetchShowsItsProgressUnderTheWatchdogAndEndsWithOneValue) {
  Server.Answer("/a.jpg", Picture(20000));
  Context.Source = "GOES";
  Context.Shared.TimeoutSeconds = 17;
  const auto shown = NMHTTP.OnPacketRecvd;
  NMHTTP.OnPacketRecvd = [&](TPowersock& sender) {
    shown(sender);
    EXPECT_EQ(Display.BusyDepth, 1);
    EXPECT_EQ(Display.Panels.back().second, root_ + "/a.jpg");
    EXPECT_TRUE(Run.WatchdogArmed);
    EXPECT_EQ(sender.TimeOut, 17'000);
  };
  Get();
  EXPECT_EQ(GetFileDateTime(Output("a.jpg")), kTime);
  EXPECT_THAT(Display.AllLines, ElementsAre("Get: /a.jpg", "/a.jpg - OK"));
  EXPECT_THAT(Display.BytesLabels, AllOf(Contains("0 bytes"), Contains("100%")));
  ASSERT_EQ(Display.Results.size(), 1U);
  const TFileResult& result = Display.Results[0];
  EXPECT_EQ(result.Source + " " + result.Product + " " + result.Address, "GOES D1 " + root_ + "/a.jpg");
  EXPECT_EQ(result.Path, Output("a.jpg"));
  EXPECT_EQ(result.SlotTime, kTime);
  EXPECT_EQ(result.Bytes, 20000);
}

TEST_F(THttpFetch, SizesDecideOverWhatGoesThroughAStream) {
  // The local file's size (-1: there is none), what is served, the local file's size afterwards, the line.
  const std::tuple<std::int64_t, std::size_t, std::int64_t, const char*> cases[] = {
      {-1, 10000, 10000, " - OK"},   {-1, 9999, -1, " - missing or incomplete"},
      {-1, 0, -1, " - timed out"},   {1000, 20000, 1000, nullptr},
      {999, 10000, 10000, " - OK"},  {999, 9999, -1, " - missing or incomplete"},
      {999, 0, 999, " - timed out"},
  };
  for (const auto& [local, served, after, line] : cases) {
    SCOPED_TRACE(testing::Message() << local << " " << served);
    fs::remove(Output("a.jpg"));
    if (local >= 0) WriteOutput("a.jpg", Picture(static_cast<std::size_t>(local), 'o'));
    Server.Answer("/a.jpg", Picture(served));
    EXPECT_EQ(Get(), line ? test::TWords{std::string("/a.jpg") + line} : test::TWords());
    EXPECT_EQ(FileSizeOf(Output("a.jpg")), after);
  }
  EXPECT_EQ(Server.Received().size(), 6U) << "a present file is not asked for";
}

TEST_F(THttpFetch, AnEndlessBodyIsGivenUpAndNotKept) {
  Context.LargestDownload = 2 << 20;
  for (const char* const path : {"/a.jpg", "/a.gif"}) Server.Answer(path, Picture((2 << 20) + 1));
  EXPECT_THAT(Get(), ElementsAre("/a.jpg - not saved: given up: larger than 2 MiB"));
  EXPECT_EQ(FetchHttp("a.gif", TDelivery::Direct, 0).Reason, "given up: larger than 2 MiB");
  EXPECT_THAT(Tree(), IsEmpty());
}

TEST_F(THttpFetch, ReencodedPictureIsStampedUnderItsNewName) {
  TExtBitmap bitmap(TPixelFormat::Bits8);
  bitmap.SetSize(256, 256);
  // Noise, so that the file is large enough.
  std::uint32_t noise = 1;
  for (int i = 0; i < 256 * 256; ++i)
    bitmap.ScanLine(i / 256)[i % 256] = static_cast<std::uint8_t>((noise = noise * 1'664'525 + 1) >> 24);
  SaveAsJpeg(bitmap, Folder / "source.jpg", 100, "");
  Server.Answer("/a.jpeg", ReadWholeFile(Folder / "source.jpg"));
  Server.Answer("/b.jpeg", Picture(10000));
  EXPECT_THAT(Get("/a.jpeg", "a.jpeg", true), ElementsAre("/a.jpeg - OK"));
  EXPECT_THAT(Get("/b.jpeg", "b.jpeg", true),
              ElementsAre(StartsWith("/b.jpeg - saved as it came, not re-encoded: ")));
  EXPECT_EQ(GetFileDateTime(Output("a.jpg")), kTime);
  EXPECT_THAT(Files(), ElementsAre("a.jpg", "b.jpeg"));
}

TEST_F(THttpFetch, TemporaryFileKeepsItsNameAndIsPrivate) {
  const fs::path victim = WriteOutput("victim", "precious");
  Server.Answer("/a.jpg", Picture(10000));
  fs::path name;
  NMHTTP.OnPacketRecvd = [&](TPowersock&) {
    const fs::directory_entry file = *fs::directory_iterator(Folder / "tmp");
    EXPECT_EQ(file.status().permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(name.empty() || name == file.path());
    name = file.path();
  };
  for (int i = 0; i < 2; ++i) {
    THttpStream stream;
    EXPECT_EQ(GetHttpToStream(Context, root_ + "/a.jpg", stream), 10000);
    EXPECT_THAT(name.filename().string(), ContainsRegex("^~Skyreel~[0-9A-F]{8}\\.~tmp$"));
    stream.Clear();
    // A link left under that name is removed, never followed.
    if (i == 0) fs::create_symlink(victim, name);
  }
  EXPECT_EQ(ReadWholeFile(victim), "precious");
}

TEST_F(THttpFetch, StreamHoldsTheLastFetchAloneAndCredentialsStayInForce) {
  std::vector<std::string> sent;
  Server.Handle("*", [&](const std::string&, const std::string& request) {
    const std::size_t at = request.find("Authorization: Basic ");
    sent.push_back(at == std::string::npos ? "-" : request.substr(at + 21, request.find('\r', at) - at - 21));
    return test::HttpReply("text");
  });
  THttpStream stream;
  for (const auto& [user, word] : {std::pair("", ""), {"user", "word"}, {"", ""}, {"other", ""}})
    EXPECT_EQ(GetHttpToStream(Context, root_ + "/", stream, user, word), 4);
  EXPECT_THAT(sent, ElementsAre("-", "dXNlcjp3b3Jk", "dXNlcjp3b3Jk", "b3RoZXI6d29yZA=="));
  stream.MoveTo(Output("moved"), kTime);
  EXPECT_EQ(ReadWholeFile(Output("moved")), "text");
  EXPECT_EQ(GetHttpToStream(Context, root_ + "/", stream), 4);
  EXPECT_EQ(GetHttpToStream(Context, "", stream), 0) << "no bytes of the fetch before";
  EXPECT_THAT(Display.Lines, IsEmpty()) << "lines are the callers' matter";
}

TEST_F(THttpFetch, AProxyStaysInEffectAndAnUnusablePortIsReportedOnce) {
  const std::tuple<bool, const char*, const char*> cases[] = {
      {false, "81", ":0"},        {true, " 8080 ", "host:8080"},  {true, "65536", "host:8080"},
      {false, "81", "host:8080"}, {true, "+65535", "host:65535"},
  };
  THttpStream stream;
  TSharedSettings& shared = Context.Shared;
  for (const auto& [use, port, result] : cases) {
    shared.UseProxy = use;
    shared.ProxyServer = "host";
    shared.ProxyPort = port;
    GetHttpToStream(Context, "", stream);
    EXPECT_EQ(NMHTTP.Proxy + ":" + std::to_string(NMHTTP.ProxyPort), result);
  }
  NMHTTP.Proxy.clear();
  Lines();
  shared.UseProxy = true;
  shared.ProxyPort = "http";
  Server.Answer("/a.jpg", Picture(10000));
  EXPECT_THAT(Get(), ElementsAre("Proxy not set: port \"http\" is not a port number", "/a.jpg - OK"));
  EXPECT_THAT(Get("/a.jpg", "b.jpg"), ElementsAre("/a.jpg - OK"));
}

}  // namespace
}  // namespace skyreel
