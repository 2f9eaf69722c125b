#include "net/http_parse.h"
#include "transfer/fetch_test.h"
#include "transfer/http_header.h"

namespace skyreel {
namespace {

namespace fs = std::filesystem;
using test::Repeated;
using enum TFileOutcome;

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
    {"whole", "<ok><size>\n<body>", Saved, Saved, "", "whole"},
    {"server says nothing", "<stall>", TimedOut, TimedOut, kSilent},
    {"silence inside the body", "<ok><size>\n<half><stall>", TimedOut, TimedOut, kCancelled, "half, noted"},
    {"endless header that drips", "<ok><drip><mega>", TimedOut, TimedOut, kSilent},
    {"closes inside the header", "<ok>Content-Le", TimedOut, Incomplete, kNone, "nothing",
     "the page is empty"},
    {"resets inside the body", "<ok><size>\n<half><later>x<reset>", TimedOut, TimedOut, kReset,
     "6001, noted"},
    {"body shorter than announced", "<ok><size>\n<half>", Incomplete, Incomplete, kCut, "half, noted",
     "incomplete"},
    {"body longer than announced", "<ok><size>\n<body>more", Saved, Saved, "", "whole"},
    {"size not announced, half comes", "<ok>\n<half>", Incomplete, Incomplete, kCut, "half, noted", ""},
    {"size not announced, one byte missing", "<ok>\n<almost>", Saved, Incomplete,
     "received 11999 of 12000 bytes", "11999, noted", ""},
    {"100 and then nothing", "HTTP/1.0 100 Go on\n\n", TimedOut, Refused,
     "the server answered without a status"},
    {"206", "HTTP/1.0 206 Part\nContent-Range: bytes 0-5/12\n\n<body>", Incomplete, Incomplete,
     "the server sent only a part", "whole, noted", "incomplete"},
    {"404", "HTTP/1.0 404 Not Found\nContent-Length: 2\n\nno", Incomplete, Refused,
     "the server answered 404 Not Found"},
    {"500 with as many bytes as a picture", "HTTP/1.0 500 Oops\1\n\n<body>", Saved, Refused,
     "the server answered 500 Oops"},
    {"HTML page", "<ok>\n <!DOCTYPE html><body>", Refused, Refused, "received an HTML page", "nothing", ""},
    {"chunked reply, cut inside a chunk", "<chunked>x", TimedOut, TimedOut,
     "Connection closed inside the reply", "1, noted"},
    {"redirect to another path", "<found>/moved\n\n", Saved, Saved, "", "whole"},
    {"redirect to https", "<found>https://127.0.0.1/a\n\n", NotAsked, NotAsked,
     "HTTP Secure Socket is not supported"},
    {"redirect to itself", "<found>/hit\n\n", TimedOut, TimedOut, "Too many redirects"},
};

class THttpFaults : public test::TFetchTest {
 protected:
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
                                                           {"mega", Repeated("h")},
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
    EXPECT_EQ(Fetch(TDelivery::Direct).Outcome, fault.Direct);
    EXPECT_EQ(Left("hit"), fault.Direct == Saved ? "whole" : "older");

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

TEST_F(THttpFaults, OfAServerThatSaysNothingEndByTheTimeOut) {
  Server.Script("/hit", "<stall>");
  NMHTTP.OnAboutToSend = [](TNMHTTP& client) { client.TimeOut = 100; };
  EXPECT_EQ(FetchHttp("hit", TDelivery::Stream).Outcome, TimedOut);
}

TEST_F(THttpFaults, APageBeyond64MiBIsGivenUp) {
  Server.Answer("/hit", std::string((64 << 20) + 1, 'x'));
  EXPECT_EQ(GetHttpPage(Context, NMHTTP, Server.Url("/hit"), "").Reason, "given up: larger than 64 MiB");
}

}  // namespace
}  // namespace skyreel
