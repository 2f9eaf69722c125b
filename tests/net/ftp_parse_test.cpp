#include "net/ftp_parse.h"

#include <gtest/gtest.h>

#include "support/failure.h"

namespace skyreel {
namespace {

TEST(FtpParse, PasvPortNeedsSixNumbersAndAPort) {
  const std::pair<const char*, int> rows[] = {{"227 Entering Passive Mode (10,0,0,1,4,1).\r\n", 1025},
                                              {"227 Entering Passive Mode 10,0,0,1,4,1\r\n", 1025},
                                              {"227 Well, here it is (10, 0, 0, 1, 4 ,1)", 1025},
                                              {"227 ok (999,x,,-1,255,255)", 65535}};
  for (const auto& [reply, port] : rows) EXPECT_EQ(PasvPort(reply), port) << reply;
  for (const char* reply : {"227 ok (10,0,0,1,0,0)", "227 ok (10,0,0,1,256,1)", "227 ok (10,0,0,1,4,256)",
                            "227 ok (10,0,0,1,4,-1)", "227 ok (10,0,0,1,4,1,9)", "227 ok (10,0,0,1,4,)",
                            "227 ok (1,1,1,1,4294967297,1)", "227 ok (", ",,,,,", ""})
    EXPECT_EQ(PasvPort(reply), std::nullopt) << reply;
}

TEST(FtpParse, TheSizeIsTheNumberBeforeTheFirstByte) {
  const std::pair<const char*, std::int64_t> rows[] = {
      {"150 BINARY data connection for a.bin (123456 Bytes).\r\n", 123456},
      {"150 (12 kbytes, 9 bytes)", 12},
      {"150 (9223372036854775807 bytes)", INT64_MAX},
      {"bytes 12", 0},
      {"150 (9223372036854775808 bytes)", 0},
      {"12", 0},
      {"5BYTE", 5}};
  for (const auto& [reply, size] : rows) EXPECT_EQ(SizeFromReply(reply), size) << reply;
}

TEST(FtpParse, ABlankOrAHyphenInFourthPlaceContinuesAReplyAndNamesLoseTheirLineEnd) {
  for (const char* line : {" ", " 226 done", "226-more", "abc-"})
    EXPECT_TRUE(IsReplyContinuation(line)) << line;
  for (const char* line : {"", "226", "226 done-", "2-6 x"}) EXPECT_FALSE(IsReplyContinuation(line)) << line;
  for (const char* line : {"", "22", " 226", "22x ", "text"}) EXPECT_FALSE(HasReplyCode(line)) << line;
  const std::pair<const char*, const char*> rows[] = {{"name\r\n", "name"}, {"ab\n", "ab"},   {"a\r\n", "a"},
                                                      {"a\n", "a\n"},       {"\r\n", "\r\n"}, {"", ""}};
  for (const auto& [line, name] : rows) EXPECT_EQ(ListingName(line), name);
}

TEST(FtpParse, AddressesAreHostAndPort) {
  const std::pair<const char*, const char*> rows[] = {{"ftp.example.org", "ftp.example.org 21"},
                                                      {" FTP://Host_1:21/ ", "Host_1 21"},
                                                      {"127.0.0.1:65535", "127.0.0.1 65535"}};
  for (const auto& [root, address] : rows)
    EXPECT_EQ(ParseFtpAddress(root).Host + " " + std::to_string(ParseFtpAddress(root).Port), address);
  for (const char* root : {"", ":21", "host:", "host:0", "host:65536", "host:2x", "host:21:21", "http://host",
                           "user@host", "host/folder", "ho st", "host\r\nQUIT"})
    EXPECT_NE(test::Failure([&] { ParseFtpAddress(root); }), "") << root;
}

}  // namespace
}  // namespace skyreel
