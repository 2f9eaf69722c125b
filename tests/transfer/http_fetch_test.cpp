#include "transfer/http_fetch.h"

#include "image/image_file.h"
#include "support/https_server.h"
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
  EXPECT_THAT(Results(), ElementsAre("GOES: D1 2005-11-10 1130, http://server/a.jpg > a.jpg - OK"));
}

TEST_F(THttpFetch, SizesDecideOverWhatGoesThroughAStream) {
  // The local file's size (-1: no file), what is served, the local file's size afterwards, the line.
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
  EXPECT_THAT(Tree(), ElementsAre(Key("a.jpg"), Key("b.jpeg")));
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
  EXPECT_EQ(stream.Size(), 0);
  EXPECT_EQ(GetHttpToStream(Context, "", stream), 0);
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

TEST_F(THttpFetch, ARedirectToASecureServerIsFollowedWithoutThePassword) {
  test::THttpsServer server(Https);
  const TScopedValue user(NMHTTP.HeaderInfo.UserId, "u"), password(NMHTTP.HeaderInfo.Password, "w");
  for (const char* const code : {"301", "308"}) {
    Server.Script("/a", "HTTP/1.0 " + std::string(code) + " Go\r\nLocation: https://good.test/key\r\n\r\nno");
    EXPECT_EQ(GetHttpPage(Context, NMHTTP, Server.Url("/a"), "").Text, "key=");
  }
  EXPECT_EQ(GetHttpPage(Context, NMHTTP, "https://good.test/key", "").Text, "key=Basic dTp3");
}

// --- Faults ----------------------------------------------------------------------------------------------

struct THttpFault {
  const char* Name;
  std::string Reply;  ///< for TPeer::Play; "\n" stands for CR LF, the words in Script below for their texts
  TFileOutcome Stream = Saved;
  TFileOutcome Direct = Saved;
  const char* Reason = "";         ///< of Direct
  const char* Left = "nothing";    ///< by Direct
  const char* Page = "as Direct";  ///< the reason when a page is fetched
};

constexpr auto kReset = "10054:Connection reset by peer";
constexpr auto kSilent = "Socket readln aborted", kCut = "received 6000 of 12000 bytes";
constexpr auto kCancelled = "Socket capture aborted", kNone = "received 0 of 12000 bytes";

const THttpFault kFaults[] = {
    {"server says nothing", "<stall>", TimedOut, TimedOut, kSilent},
    {"silence inside the body", "<ok><size>\n<half><stall>", TimedOut, TimedOut, kCancelled, "half, noted"},
    {"endless header that drips", "<ok><drip><mega>", TimedOut, TimedOut, kSilent},
    {"cut header", "<ok>Content-Le", TimedOut, Incomplete, kNone, "nothing", "the page is empty"},
    {"reset in the body", "<ok><size>\n<half><later>x<reset>", TimedOut, TimedOut, kReset, "6001, noted"},
    {"cut body", "<ok><size>\n<half>", Incomplete, Incomplete, kCut, "half, noted", "incomplete"},
    {"length with text behind the number", "<ok>Content-Length: 12000;\n\n<body>", Incomplete, Incomplete,
     "the server announced no clear length", "whole, noted", "incomplete"},
    {"compressed body", "<ok>Content-Encoding: gzip\n\n<body>", Incomplete, Incomplete,
     "the server compressed it", "whole, noted", "incomplete"},
    {"size not announced, one byte missing", "HTTP/1.0 298 Odd\n\n<almost>", Saved, Incomplete,
     "received 11999 of 12000 bytes", "11999, noted", ""},
    {"100 and then nothing", "HTTP/1.0 100 Go on\n\n", TimedOut, Refused,
     "the server answered without a status"},
    {"206", "HTTP/1.0 206 Part\nContent-Range: bytes 0-5/12\n\n<body>", Incomplete, Incomplete,
     "the server sent only a part", "whole, noted", "incomplete"},
    {"404", "HTTP/1.0 404 Not Found\nContent-Length: 2\n\nno", Incomplete, Refused,
     "the server answered 404 Not Found"},
    {"500 with as many bytes as a picture", "HTTP/1.0 500 Oops\1\n\n<body>", Saved, Refused,
     "the server answered 500 Oops"},
    {"<html> page", "<ok>\n<HTML><body>", Refused, Refused, "received an HTML page", "nothing", ""},
    {"HTML page", "<ok>\n\xEF\xBB\xBF<?xml version='1.0'?> <!DOCTYPE html><body>", Refused, Refused,
     "received an HTML page", "nothing", ""},
    {"chunked reply, cut inside a chunk", "<chunked>x", TimedOut, TimedOut,
     "Connection closed inside the reply", "1, noted"},
    {"redirect to another path", "<found>/moved\n\n", Saved, Saved, "", "whole"},
    {"redirect to https", "<found>https://h/a\n\n", TimedOut, TimedOut, "h: Connection refused"},
};

class THttpFaults : public test::TFetchTest {
 protected:
  THttpFaults() { Https.SetSettings({"", {{"h", "127.0.0.1", test::ClosedPort()}}}); }
  void Serve(const THttpFault& fault) {
    const std::string body = test::Picture(kSize), half = body.substr(kSize / 2);
    const std::string chunk = "1770\n";  // 6000 bytes
    std::string reply = test::Filled(fault.Reply, {{"chunked", "<ok>Transfer-Encoding: chunked\n\n<chunk>"}});
    reply = test::Filled(reply, {{"ok", "HTTP/1.0 200 OK\n"},
                                 {"found", "HTTP/1.0 302 Found\nLocation: "},
                                 {"size", "Content-Length: 12000\n"},
                                 {"chunk", chunk}});
    reply = test::Filled(ReplaceAll(reply, "\n", "\r\n"), {{"body", body},
                                                           {"half", half},
                                                           {"almost", body.substr(1)},
                                                           {"mega", std::string(1'100'000, 'h')},
                                                           {"port", std::to_string(Server.Port())},
                                                           {"closed", std::to_string(test::ClosedPort())}});
    Server.Script("/hit", reply);
    for (const char* const path : {"/next", "/moved"}) Server.Answer(path, body);
    Endless = reply.find("<drip>") != std::string::npos && reply.find("<go>") == std::string::npos;
  }
  TFileResult Fetch(TDelivery delivery) {
    Watch(true);
    const TFileResult result = FetchHttp("hit", delivery);
    Watch(false);
    EXPECT_EQ(FetchHttp("next", delivery).Outcome, Saved) << "the next file comes";
    return result;
  }
};

TEST_F(THttpFaults, CostOneFileAndAreNamed) {
  for (const THttpFault& fault : kFaults) {
    SCOPED_TRACE(fault.Name);
    Serve(fault);
    WriteOutput("hit", "older");
    EXPECT_EQ(Fetch(TDelivery::Stream).Outcome, fault.Stream);
    const bool deleted = fault.Stream == Incomplete || fault.Stream == Refused;
    if (fault.Stream != Saved) {
      EXPECT_EQ(Left("hit"), deleted ? "nothing" : "older");
    }

    WriteOutput("hit", "older");
    WriteOutput("hit.part", "the user's");
    EXPECT_EQ(Fetch(TDelivery::Direct).Outcome, fault.Direct);
    EXPECT_EQ(Left("hit"), fault.Direct == Saved ? "whole" : "older");
    EXPECT_EQ(Left("hit.part") + Left("hit.part.part"), "10nothing");

    fs::remove(Output("hit"));
    const TFileResult direct = Fetch(TDelivery::Direct);
    EXPECT_EQ(direct.Outcome, fault.Direct);
    EXPECT_EQ(direct.Reason, fault.Reason);
    EXPECT_EQ(Left("hit"), fault.Left);

    Watch(true);
    const THttpPage page = GetHttpPage(Context, NMHTTP, Server.Url("/hit"), "a page");
    EXPECT_EQ(page.Reason, fault.Page == std::string("as Direct") ? fault.Reason : fault.Page);
    EXPECT_EQ(page.Incomplete, page.Reason == "incomplete");
    EXPECT_EQ(AtRest(), "");
    fs::remove(Output("hit"));
    if (Ledger.Begin(Output("hit"))) Ledger.End(Output("hit"), TTransferEnd::Whole);
  }
}

TEST_F(THttpFaults, APageBeyond64MiBIsGivenUp) {
  Server.Answer("/hit", std::string((64 << 20) + 1, 'x'));
  EXPECT_EQ(GetHttpPage(Context, NMHTTP, Server.Url("/hit"), "").Reason, "given up: larger than 64 MiB");
  Server.Script("/hit", "HTTP/1.0 302 Found\r\nLocation: /\r\n\r\n" + std::string((64 << 20) + 1, 'x'));
  EXPECT_EQ(FetchHttp("hit", TDelivery::Stream).Reason, "given up: larger than 64 MiB");
}

}  // namespace
}  // namespace skyreel
