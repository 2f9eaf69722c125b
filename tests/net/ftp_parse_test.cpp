#include "net/ftp_parse.h"

#include <gtest/gtest.h>

#include "base/exceptions.h"

namespace skyreel {
namespace {

TEST(FtpParse, PasvPortNeedsSixNumbersAndAPort) {
  const struct {
    const char* Reply;
    int Port;  // -1: none
  } rows[] = {
      {"227 Entering Passive Mode (10,0,0,1,4,1)\r\n", 1025},
      {"227 Entering Passive Mode (10,0,0,1,4,1).\r\n", 1025},
      {"227 Entering Passive Mode 10,0,0,1,4,1\r\n", 1025},
      {"227 Well, here it is (10, 0, 0, 1, 4 ,1)", 1025},
      {"227 ok (999,x,,-1,255,255)", 65535},
      {"227 ok (10,0,0,1,0,1)", 1},
      {"227 ok (10,0,0,1,0,0)", -1},
      {"227 ok (10,0,0,1,256,1)", -1},
      {"227 ok (10,0,0,1,4,256)", -1},
      {"227 ok (10,0,0,1,4,-1)", -1},
      {"227 ok (10,0,0,1,4)", -1},
      {"227 ok (10,0,0,1,4,1,9)", -1},
      {"227 ok (10,0,0,1,4,)", -1},
      {"227 ok (10,0,0,1,,1)", -1},
      {"227 ok (10,0,0,1,99999999999999999999,1)", -1},
      {"227 ok ()", -1},
      {"227 ok (", -1},
      {"227 ok", -1},
      {",,,,,", -1},
      {"", -1},
  };
  for (const auto& row : rows) {
    const auto port = PasvPort(row.Reply);
    EXPECT_EQ(port ? *port : -1, row.Port) << row.Reply;
  }
}

TEST(FtpParse, TheSizeIsTheNumberBeforeTheFirstByte) {
  const struct {
    const char* Reply;
    std::int64_t Size;
  } rows[] = {
      {"150 Opening BINARY mode data connection for a.bin (123456 bytes).\r\n", 123456},
      {"150 a.bin, 7 Bytes", 7},
      {"150 ok (12 kbytes, 9 bytes)", 12},
      {"150 (9223372036854775807 bytes)", 9223372036854775807},
      {"150 (9223372036854775808 bytes)", 0},
      {"bytes 12", 0},
      {"12", 0},
      {"5BYTE", 5},
      {"", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(SizeFromReply(row.Reply), row.Size) << row.Reply;
}

TEST(FtpParse, ABlankOrAHyphenInFourthPlaceContinuesAReply) {
  for (const char* line : {" ", " 226 done", "226-more", "abc-", "----"})
    EXPECT_TRUE(IsReplyContinuation(line)) << line;
  for (const char* line : {"", "226", "226 done-", "2-6 x", "\r\n", "22-x"})
    EXPECT_FALSE(IsReplyContinuation(line)) << line;
  for (const char* line : {"226 done", "226-more", "226"}) EXPECT_TRUE(HasReplyCode(line)) << line;
  for (const char* line : {"", "22", " 226", "22x ", "text"}) EXPECT_FALSE(HasReplyCode(line)) << line;
}

TEST(FtpParse, ListingNamesLoseTheirLineEnd) {
  EXPECT_EQ(ListingName("name\r\n"), "name");
  EXPECT_EQ(ListingName("name\n"), "name");
  EXPECT_EQ(ListingName("a\r\n"), "a");
  EXPECT_EQ(ListingName("ab\n"), "ab");
  EXPECT_EQ(ListingName("a\n"), "a\n");
  EXPECT_EQ(ListingName("\r\n"), "\r\n");
  EXPECT_EQ(ListingName(""), "");
}

TEST(FtpParse, AddressesAreHostAndPort) {
  const struct {
    const char* Root;
    const char* Host;  // null: refused
    int Port;
  } rows[] = {
      {"ftp.example.org", "ftp.example.org", 21},
      {"127.0.0.1:2121", "127.0.0.1", 2121},
      {" FTP://Host_1:21/ ", "Host_1", 21},
      {"host:65535", "host", 65535},
      {"", nullptr, 0},
      {":21", nullptr, 0},
      {"host:", nullptr, 0},
      {"host:0", nullptr, 0},
      {"host:65536", nullptr, 0},
      {"host:2x", nullptr, 0},
      {"host:21:21", nullptr, 0},
      {"http://host", nullptr, 0},
      {"user@host", nullptr, 0},
      {"host/folder", nullptr, 0},
      {"ho st", nullptr, 0},
      {"host\r\nQUIT", nullptr, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Root);
    if (row.Host == nullptr) {
      EXPECT_THROW(ParseFtpAddress(row.Root), EConvertError);
      continue;
    }
    EXPECT_EQ(ParseFtpAddress(row.Root).Host, row.Host);
    EXPECT_EQ(ParseFtpAddress(row.Root).Port, row.Port);
  }
}

}  // namespace
}  // namespace skyreel
