// What src/net reads and writes without a socket.

#include <gtest/gtest.h>

#include "net/ftp_parse.h"
#include "net/http_parse.h"
#include "net/http_url.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::string_literals;

/// `read` must make the second of each row out of the first.
template <typename TResult, typename TRead>
void Reads(TRead read, std::initializer_list<std::pair<std::string, TResult>> rows) {
  for (const auto& [text, result] : rows) EXPECT_EQ(read(text), result) << text;
}

TEST(FtpParse, RepliesAndListingLines) {
  const auto port = [](const std::string& reply) { return PasvPort(reply).value_or(0); };
  Reads<int>(port, {{"227 Entering Passive Mode 10,0,0,1,4,1\r\n", 1025},
                    {"227 Well, here it is (10, 0, 0, 1, 4 ,1)", 1025},
                    {"227 ok (999,x,,-1,255,255)", 65535}});
  for (const char* reply : {"(1,0,0,1,0,0)", "(1,0,0,1,256,1)", "(1,0,0,1,4,256)", "(1,0,0,1,4,-1)",
                            "(1,0,0,1,4,1,9)", "(1,1,1,1,4294967297,1)", "227 ok (", ",,,,,", ""})
    EXPECT_EQ(port(reply), 0) << reply;
  Reads<std::int64_t>(SizeFromReply, {{"150 data connection for a.bin (123456 Bytes).\r\n", 123456},
                                      {"150 (12 kbytes, 9 bytes)", 12},
                                      {"5BYTE", 5},
                                      {"99999999999999999999 bytes", INT64_MAX}});
  Reads<bool>(IsReplyContinuation, {{"226-x", true}, {"abc-", true}, {"226", false}, {"2-6 x", false}});
  Reads<bool>(HasReplyCode, {{"226", true}, {"22", false}, {" 226", false}, {"22x ", false}});
  Reads<std::string>(ListingName,
                     {{"nm\r\n", "nm"}, {"ab\n", "ab"}, {"a\n", "a\n"}, {"\r\n", "\r\n"}, {"", ""}});
}

TEST(FtpParse, AddressesAreHostAndPort) {
  const auto read = [](const std::string& root) {
    return ParseFtpAddress(root).Host + " " + std::to_string(ParseFtpAddress(root).Port);
  };
  Reads<std::string>(read,
                     {{"ftp.example.org", "ftp.example.org 21"}, {" FTP://Host_1:65535/ ", "Host_1 65535"}});
  for (const char* root : {"", ":21", "host:", "host:0", "host:65536", "host:2x", "host:21:21", "http://host",
                           "user@host", "host/folder", "ho st", "host\r\nQUIT"})
    EXPECT_NE(test::Failure([&] { read(root); }), "") << root;
}

TEST(HttpParse, StatusHeaderAndChunkLines) {
  Reads<int>(ReplyCodeOf, {{"HTTP/1.0  302  Found\n", 302},
                           {"HTTP/1.0 32767", 32767},
                           {"HTTP/1.0 32768 x", 0},
                           {"HTTP/1.0 -200 OK", 0}});
  THttpReplyHeader header;
  for (const char* line : {"Set-Cookie: a=1\r\n", "SET-COOKIE: b=2; path=/\r\n", "location:/x y\n",
                           "X-Location: no\r\n", " Set-Cookie: no\r\n", "Transfer-Encoding: Chunked\r\n"})
    ReadHeaderLine(line, header);
  EXPECT_EQ(header.Cookie + "|" + header.Location + "|" + header.TransferEncoding,
            "b=2; path=/|/x y|chunked");
  const auto length = [&](const std::string& value) {
    ReadHeaderLine("Content-LENGTH:" + value + "\r\n", header);
    return header.ContentLength.value_or(-1);
  };
  Reads<std::int64_t>(length, {{"  1234  ", 1234}, {" 99999999999999999999", INT64_MAX}, {" -1", -1}});
  Reads<std::int64_t>(ParseChunkSize, {{"1a\r\n", 26}, {" 5 ;name=value\r\n", 5}, {"\r\n", -1}});
  Reads<std::int64_t>(ParseChunkSize, {{"ffffffffffffffffff", -1}, {"7fffffffffffffff", -1}, {"-5", -1}});
}

TEST(HttpUrl, NamesHostPortAndPathOrIsRefused) {
  const std::string path(300, 'p');
  const auto read = [](const std::string& url) {
    std::string got;
    got += test::Failure([&] {
      const THttpUrl parsed = ParseHttpUrl(url);
      got = parsed.Host + " " + std::to_string(parsed.Port.value_or(0)) + " " + parsed.Path;
    });
    return got;
  };
  Reads<std::string>(read, {{"http://server:8080/a/b", "server 8080 /a/b"},
                            {"//server:82/a", "server 82 /a"},
                            {"http://server/go?to=http://other/x", "server 80 /go?to=http://other/x"},
                            {"HTTP://Server/x", "Server 80 /x"},
                            {"gopher://server", "server 70 /"},
                            {"http://server/" + path, "server 80 /" + path.substr(0, 255)},
                            {"HTTPS://server/x", "HTTP Secure Socket is not supported"},
                            {"http://server:65536/", "Bad port in URL"}});
}

TEST(HttpUrl, ALocationWithoutAServerIsCompletedAndFormDataAreEncoded) {
  EXPECT_EQ(ResolveLocation("b.gif", "host", 81), "http://host:81/b.gif");
  EXPECT_EQ(ResolveLocation("//other/b.gif", "host", 81), "http://other/b.gif");
  EXPECT_EQ(ResolveLocation("b.gif", "host", 80), "http://host/b.gif");
  EXPECT_EQ(UrlEncode("aAZ09-._*=a b&x=1+1%\r\n/\xC3\xA9\0"s), "aAZ09-._*=a+b&x=1%2B1%25%0D%0A%2F%C3%A9%00");
}

}  // namespace
}  // namespace skyreel
