#include "net/http_parse.h"

#include <gtest/gtest.h>

namespace skyreel {
namespace {

TEST(HttpParse, ReplyCodeIsTheSecondWord) {
  const std::pair<const char*, int> rows[] = {{"HTTP/1.1 404\r\n", 404},
                                              {"HTTP/1.0  302  Found\n", 302},
                                              {"HTTP/1.0 32767 x", 32767},
                                              {"HTTP/1.0 32768 x", 0},
                                              {"HTTP/1.0 4294967496 x", 0},
                                              {"HTTP/1.0 20x OK", 0},
                                              {"HTTP/1.0 -200 OK", 0},
                                              {"HTTP/1.0 ", 0},
                                              {"HTTP/1.0", 0}};
  for (const auto& [line, code] : rows) EXPECT_EQ(ReplyCodeOf(line), code) << line;
}

TEST(HttpParse, HeaderLines) {
  THttpReplyHeader header;
  for (const char* line : {"Set-Cookie: a=1\r\n", "SET-COOKIE: b=2; path=/\r\n", "location:/x y\n",
                           "X-Location: no\r\n", "Content-Type: Location: no\r\n", " Set-Cookie: no\r\n",
                           "Set-Cookie", "Transfer-Encoding: Chunked\r\n"}) {
    ReadHeaderLine(line, header);
  }
  EXPECT_EQ(header.Cookie + "|" + header.Location + "|" + header.TransferEncoding,
            "b=2; path=/|/x y|chunked");
  ReadHeaderLine("Transfer-Encoding: identity", header);
  EXPECT_EQ(header.TransferEncoding, "");
  EXPECT_FALSE(header.ContentLength);
}

TEST(HttpParse, SizesOfContentsAndChunks) {
  const std::pair<const char*, std::int64_t> contents[] = {
      {" 0", 0},   {"12345", 12345}, {"  7  ", 7}, {" 99999999999999999999", INT64_MAX},
      {"", -1},    {" -1", -1},      {" +5", -1},  {" 5000000000", 5'000'000'000},
      {" 12a", -1}};
  for (const auto& [value, length] : contents) {
    THttpReplyHeader header;
    ReadHeaderLine(std::string("Content-LENGTH:") + value + "\r\n", header);
    EXPECT_EQ(header.ContentLength.value_or(-1), length) << value;
  }
  const std::pair<const char*, std::int64_t> chunks[] = {
      {"1a\r\n", 26}, {"FF;name=value\r\n", 255}, {" 5 \r\n", 5}, {"ffffffffffffffffff", -1},
      {"\r\n", -1},   {"7fffffffffffffff", -1},   {"-5", -1},     {"0x5\r\n", -1}};
  for (const auto& [line, size] : chunks) EXPECT_EQ(ParseChunkSize(line), size) << line;
}

}  // namespace
}  // namespace skyreel
