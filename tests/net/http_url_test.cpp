#include "net/http_url.h"

#include <gtest/gtest.h>

#include "support/failure.h"

namespace skyreel {
namespace {

using namespace std::string_literals;

TEST(HttpUrl, NamesHostPortAndPath) {
  const std::string long_path = "/" + std::string(300, 'p');
  const struct {
    std::string Url, Host;
    int Port;  // 0: none
    std::string Path;
  } rows[] = {
      {"http://server/a.gif", "server", 80, "/a.gif"},
      {"http://server:8080/a/b", "server", 8080, "/a/b"},
      {"server:81", "server", 81, "/"},
      {"server/a//b", "server", 0, "/a//b"},
      {"http://server", "server", 80, "/"},
      {"http://server:/x", "server", 80, "/x"},
      {"//server:82/a", "server", 82, "/a"},
      {"/", "", 0, "/"},
      {"/go?to=http://other/x", "", 0, "/go?to=http://other/x"},
      {"http://server/go?to=http://other/x", "server", 80, "/go?to=http://other/x"},
      {"HTTP://Server/x", "Server", 80, "/x"},
      {"gopher://server/x", "server", 70, "/x"},
      {"ftp://server:2121/x", "server", 2121, "/x"},
      {"wais://server/x", "server", 80, "/x"},
      {"http:///x", "", 80, "/x"},
      {"http://server" + long_path, "server", 80, long_path.substr(0, 256)},
      {"server" + long_path, "server", 0, long_path},
  };
  for (const auto& row : rows) {
    const THttpUrl parsed = ParseHttpUrl(row.Url);
    EXPECT_EQ(parsed.Host, row.Host) << row.Url;
    EXPECT_EQ(parsed.Port.value_or(0), row.Port) << row.Url;
    EXPECT_EQ(parsed.Path, row.Path) << row.Url;
    EXPECT_EQ(parsed.Url, row.Path == "/" && row.Url != "/" ? row.Url + "/" : row.Url);
  }
}

TEST(HttpUrl, RefusesWhatNamesNoServerOrHidesALine) {
  const std::pair<std::string, const char*> rows[] = {
      {"", "Empty URL"},
      {"HTTPS://server/x", "HTTP Secure Socket is not supported"},
      {"http://server:0/", "Bad port in URL"},
      {"http://server:65536/", "Bad port in URL"},
      {"http://server:80:80/", "Bad port in URL"},
      {"http://ser\0ver/a"s, "Control character in URL"},
      {"http://server/\x7f", "Control character in URL"},
  };
  for (const auto& [url, message] : rows) EXPECT_EQ(test::Failure([&] { ParseHttpUrl(url); }), message);
}

TEST(HttpUrl, LocationWithoutServerIsCompleted) {
  const std::pair<const char*, const char*> rows[] = {{"b.gif", "http://host:81/b.gif"},
                                                      {"/dir/b.gif", "http://host:81/dir/b.gif"},
                                                      {"//other/b.gif", "http://other/b.gif"},
                                                      {"https://other/b.gif", "https://other/b.gif"}};
  for (const auto& [location, url] : rows) EXPECT_EQ(ResolveLocation(location, "host", 81), url);
  EXPECT_EQ(ResolveLocation("b.gif", "host", 80), "http://host/b.gif");
}

TEST(HttpUrl, EncodesFormData) {
  EXPECT_EQ(UrlEncode("name=a b&x=1+1%\r\n/\xC3\xA9"), "name=a+b&x=1%2B1%25%0D%0A%2F%C3%A9");
  EXPECT_EQ(UrlEncode("AZaz09-._*\0"s), "AZaz09-._*%00");
}

}  // namespace
}  // namespace skyreel
