#include "net/https_client.h"

#include <gmock/gmock.h>

#include "net/http_parse.h"
#include "support/https_server.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace testing;
using test::Failure;

THttpsRequest RequestFor(const std::string& url) {
  THttpsRequest request;
  request.Url = url;
  return request;
}

class THttpsClientTest : public Test {
 protected:
  /// The code, how it was sent and the body, or what was thrown.
  std::string Fetch(const std::string& url, const std::string& user = "") {
    THttpsRequest request = RequestFor(url);
    request.TimeOut = 200;
    if (!user.empty()) request.HeaderLines = {"Authorization: " + user, "Cookie: c"};
    std::string body;
    return Failure([&] {
      std::exception_ptr failure;
      Client.Start(
          request, [&](std::string_view piece) { body += piece; },
          [&](const THttpsReply& ended, const std::exception_ptr& why) { reply_ = ended, failure = why; });
      while (!Client.IsIdle()) Client.Turn();
      if (failure) std::rethrow_exception(failure);
      throw std::runtime_error(std::to_string(reply_.Code) + (reply_.Http2 ? " h2 " : " ") + body);
    });
  }

  std::function<void()> hook_;
  THttpsClient Client{[this] { Fire(hook_); }};
  THttpsReply reply_;
};

TEST_F(THttpsClientTest, SecureServersAreCheckedAndAskedOverOneConnection) {
  test::THttpsServer server;
  Client.SetSettings(server.Settings);
  server.Upstream.Script("/cut/a", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nABC<later><reset>");
  const std::string untrusted = ".test is not trusted: ", at = "the certificate of ";
  const std::pair<const char*, std::string> cases[] = {
      {"https://good.test/a", "200 h2 whole"},
      {"https://expired.test/", at + "expired" + untrusted + "certificate has expired"},
      {"https://self.test/", at + "self" + untrusted + "self-signed certificate"},
      {"https://wrong.test/", at + "wrong" + untrusted + "no alternative certificate subject name"},
      {"https://old.test/", "old.test: no secure connection: "},
      {"https://good.test/insecure", "good.test: redirects to an address that is not secure"},
      {"https://good.test/same", "200 h2 key=uc"},
      {"https://good.test/other", "200 h2 key="},
      // After the first failure the host is asked over HTTP/1.1.
      {"https://good.test/cut/a", "good.test: "},
      {"https://good.test/a", "200 whole"},
  };
  for (const auto& [url, expected] : cases) {
    EXPECT_THAT(Fetch(url, "u"), StartsWith(expected)) << url;
  }
  THttpsClient many;
  many.SetSettings(server.Settings);
  std::set<std::string> connections;
  for (int i = 0; i < 20; ++i) {
    many.Start(
        RequestFor("https://good.test/a"), [](std::string_view) {},
        [&](const THttpsReply& reply, const std::exception_ptr&) {
          connections.insert(HeaderValue(reply.Header, "Connection-Number"));
        });
  }
  while (!many.IsIdle()) many.Turn();
  EXPECT_THAT(connections, ElementsAre(Ne("")));
}

TEST_F(THttpsClientTest, FaultsAreNamedAndTheNextRequestWorks) {
  test::THttpServer server;
  server.Answer("/next", "next");
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {ok + "Content-Length: 4\r\n\r\nbo", "200 bo"},
      {ok + "\r\nbody", "200 body"},
      {"HTTP/1.1 100 Go on\r\n\r\n" + ok + "\r\nbody", "200 body"},
      {"HTTP/1.1 304 Same\r\n\r\n", "304 "},
      {"HTTP/1.1 404 No\r\n\r\npage", "404 page"},
      {"HTTP/1.1 302 Go\r\nLocation: /next\r\n\r\nnot this", "200 next"},
      {"HTTP/1.1 302 Go\r\nLocation: /hit\r\n\r\n", "Too many redirects"},
      {"HTTP/1.1 302 Go\r\nLocation: ftp://h/\r\n\r\n", "server: redirects to an address that is not secure"},
      {"HTTP/1.1 302 Go\r\nLocation: file:///etc/passwd\r\n\r\n", "server: redirects to"},
      {"HTTP/1.1 302 Go\r\nLocation: /next\r\n\r\n" + std::string(2 << 20, 'x'), "Reply too large"},
      {ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nbo", "Connection closed inside the reply"},
      {"<close>", "Connection closed before the reply"},
      {"<reset>", "server: "},
      {"garbage", "Not an HTTP reply"},
      {ok + "A: " + std::string(2 << 20, 'x'), "Header too long"},
      {ok + ReplaceAll(std::string(300'000, 'x'), "x", "A: b\r\n"), "Header too long"},
      {ok + "<stall>", "server: no answer within 1 s"},
      {ok + "\r\n<stall>", "server: no answer within 1 s"},
  };
  for (const auto& [reply, expected] : cases) {
    server.Script("/hit", reply);
    EXPECT_THAT(ReplaceAll(Fetch(server.Url("/hit")), server.Address(), "server"), StartsWith(expected))
        << reply.substr(0, 80);
    EXPECT_EQ(Fetch(server.Url("/next")), "200 next");
  }
  const std::pair<std::string, std::string> refused[] = {
      {"", "Not an http, https or ftp address"},
      {"file:///etc/passwd", "Not an http, https or ftp address"},
      {"https://a\\@b/", "Bad URL"},
      {"https://:80/", "Bad URL"},
      {"https://a/\r\nX: y", "Control character in URL"},
      {"https://a/" + std::string(1, '\0'), "Control character in URL"}};
  for (const auto& [url, expected] : refused) EXPECT_EQ(Fetch(url), expected);
  EXPECT_EQ(Fetch(server.Url("/next"), "a\r\nX: y"), "Control character in the request");
}

TEST_F(THttpsClientTest, RequestsEndWhenTheEventHookSaysSo) {
  test::THttpServer server;
  server.Script("/stall", "HTTP/1.1 200 OK\r\n\r\nbody<stall>");
  std::string ends;
  const auto start = [&](const std::string& name) {
    return Client.Start(
        RequestFor(server.Url("/stall")), [](std::string_view) {},
        [&ends, name](const THttpsReply&, const std::exception_ptr& failure) {
          ends += name + Failure<EAbortError>([&] { std::rethrow_exception(failure); });
        });
  };
  const auto cancelled = start("cancelled");
  start("first ");
  hook_ = [&] {
    if (server.Stalls < 1) return;
    EXPECT_EQ(Failure<ESockError>([&] { Client.Fetch(RequestFor(server.Url()), {}); }),
              "Busy with another operation");
    Client.Cancel(cancelled);
    Client.Abort();
    hook_ = {};
  };
  while (!Client.IsIdle()) Client.Turn();
  EXPECT_EQ(ends, "first Transfer aborted");
  // A failing sink ends its request alone.
  const auto full = [](std::string_view) { throw std::length_error("full"); };
  EXPECT_EQ(Failure<std::length_error>([&] { Client.Fetch(RequestFor(server.Url("/stall")), full); }),
            "full");
}

TEST_F(THttpsClientTest, SettingsThatAreWrongAreNamedAndLeftOut) {
  test::TTempFolder folder;
  const std::string no_pem = folder.Write("a.pem", "text");
  std::vector<std::string> problems;
  const THttpsSettings settings = ReadHttpsSettings(
      no_pem, "a.b=1.2.3.4:5 c=[::1]:6 d e= =f:1 g=:1 h=i j=k:0 l=m:65536 n:1=o:1 p=q=r:1", problems);
  EXPECT_EQ(settings.Certificates, "");
  ASSERT_EQ(settings.Overrides.size(), 2U);
  EXPECT_EQ(settings.Overrides[1].Address, "[::1]");
  EXPECT_EQ(problems.size(), 10U);
  EXPECT_THAT(problems[0], HasSubstr("a.pem: it holds no certificate"));
}

}  // namespace
}  // namespace skyreel
