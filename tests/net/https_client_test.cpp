#include "net/https_client.h"

#include <gmock/gmock.h>

#include "net/http_parse.h"
#include "support/https_server.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace testing;
using test::Failure;

class THttpsClientTest : public Test {
 protected:
  /// The code, how it was sent and the body, or what was thrown.
  std::string Fetch(const std::string& url, const std::string& user = "") {
    THttpsRequest request;
    request.Url = url;
    request.TimeOut = time_out_;
    if (!user.empty()) request.HeaderLines = {"Authorization: " + user, "Cookie: c"};
    std::string body;
    std::exception_ptr end;
    Client.Start(
        request, [&](std::string_view piece) { body += piece; },
        [&](const THttpsReply& reply, const std::exception_ptr& failure) {
          const std::string code = std::to_string(reply.Code) + (reply.Http2 ? " h2 " : " ");
          end = failure ? failure : std::make_exception_ptr(std::runtime_error(code + body));
        });
    while (!Client.IsIdle()) Client.Turn();
    return Failure([&] { std::rethrow_exception(end); });
  }

  std::int32_t time_out_ = 30'000;
  std::function<void()> hook_;
  THttpsClient Client{[this] { Fire(hook_); }};
};

TEST_F(THttpsClientTest, SecureServersAreChecked) {
  test::THttpsServer server(Client);
  server.Upstream.Script("/cut/a", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nABC<later><reset>");
  const std::string untrusted = ".test is not trusted: ", at = "the certificate of ";
  const std::pair<const char*, std::string> cases[] = {
      {"https://expired.test/", at + "expired" + untrusted + "certificate has expired"},
      {"https://self.test/", at + "self" + untrusted + "self-signed certificate"},
      {"https://wrong.test/", at + "wrong" + untrusted + "no alternative certificate subject name"},
      {"https://old.test/", "old.test: no secure connection: "},
      {"https://good.test/insecure", "good.test: redirects to an address that is not secure"},
      {"https://good.test/same", "200 h2 key=uc"},
      {"https://good.test/other", "200 h2 key="},
      // After the first failure the host is asked over HTTP/1.1.
      {"https://good.test/cut/a", "good.test: "},
      {"https://good.test/key", "200 key=uc"},
  };
  for (const auto& [url, expected] : cases) {
    EXPECT_THAT(Fetch(url, "u"), StartsWith(expected)) << url;
  }
}

TEST_F(THttpsClientTest, FaultsAreNamedAndTheNextRequestWorks) {
  test::THttpServer server;
  server.Answer("/next", "next");
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {ok + "Content-Length: 4\r\n\r\nbo", "200 bo"},
      {"HTTP/1.1 100 Go on\r\n\r\n" + ok + "\r\nbody", "200 body"},
      {"HTTP/1.1 302 Go\r\nLocation: /next\r\n\r\nnot this", "200 next"},
      {"HTTP/1.1 302 Go\r\nLocation: /hit\r\n\r\n", "Too many redirects"},
      {"HTTP/1.1 302 Go\r\nLocation: file:///etc/passwd\r\n\r\n", "server: redirects to"},
      {"HTTP/1.1 302 Go\r\nLocation: /next\r\n\r\n" + std::string(2 << 20, 'x'), "Reply too large"},
      {ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nbo", "Connection closed inside the reply"},
      {"<close>", "Connection closed before the reply"},
      {"<reset>", "server: "},
      {"garbage", "Not an HTTP reply"},
      {ok + "A: " + std::string(2 << 20, 'x'), "Header too long"},
      {ok + ReplaceAll(std::string(300'000, 'x'), "x", "A: b\r\n"), "Header too long"},
      {ok + "<stall>", "server: no answer within 1 s"},
  };
  for (const auto& [reply, expected] : cases) {
    server.Script("/hit", reply);
    time_out_ = reply.ends_with("<stall>") ? 200 : 30'000;
    EXPECT_THAT(ReplaceAll(Fetch(server.Url("/hit")), server.Address(), "server"), StartsWith(expected))
        << reply.substr(0, 80);
    time_out_ = 30'000;
    EXPECT_EQ(Fetch(server.Url("/next")), "200 next");
  }
  const std::pair<std::string, std::string> refused[] = {
      {"file:///etc/passwd", "Not an http, https or ftp address"},
      {"https://a\\@b/", "Bad URL"},
      {"https://:80/", "Bad URL"},
      {"https://a/" + std::string(1, '\0'), "Control character in URL"}};
  for (const auto& [url, expected] : refused) EXPECT_EQ(Failure([&] { Fetch(url); }), expected);
  EXPECT_EQ(Failure([&] { Fetch(server.Url("/next"), "a\r\nX: y"); }), "Control character in the request");
}

TEST_F(THttpsClientTest, TheEventHookMayAbortButNotFetch) {
  const test::TScriptedServer server("HTTP/1.1 200 OK\r\n\r\nbody<stall>");
  hook_ = [&] {
    if (server.Stalls < 1) return;
    EXPECT_EQ(Failure<ESockError>([&] { Client.Fetch({}, {}); }), "Busy with another operation");
    Client.Abort();
  };
  EXPECT_EQ(Fetch(server.Url()), "Transfer aborted");
}

TEST_F(THttpsClientTest, SettingsThatAreWrongAreNamedAndLeftOut) {
  std::vector<std::string> problems;
  const std::string overrides = "a.b=1.2.3.4:5 c=[::1]:6 d e= =f:1 g=:1 h=i j=k:0 l=m:65536 n:1=o:1 p=q=r:1";
  EXPECT_EQ(ReadHttpsSettings("/dev/null", overrides, problems).Overrides[1].Address, "[::1]");
  EXPECT_EQ(problems.size(), 10U);
}

}  // namespace
}  // namespace skyreel
