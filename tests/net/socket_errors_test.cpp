#include "net/socket_errors.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>

namespace skyreel {
namespace {

TEST(SocketErrors, FiftyNumbersHaveAText) {
  EXPECT_EQ(SocketErrorMessage(0), "");
  EXPECT_EQ(SocketErrorMessage(10061), "10061:Connection refused");
  EXPECT_EQ(SocketErrorMessage(11004), "11004:Valid name, no data record of requested type");
  EXPECT_EQ(SocketErrorMessage(-1), "Unknown Error No. -1");
  int known = 0;
  for (int number = 1; number < 30000; ++number) known += !SocketErrorMessage(number).starts_with("Unknown");
  EXPECT_EQ(known, 50);
}

TEST(SocketErrors, SystemNumbersKeepTheirMeaningAndNoOtherPassesForHarmless) {
  const std::pair<int, int> errors[] = {{EINTR, 10004},  {ECONNREFUSED, 10061}, {ECONNRESET, 10054},
                                        {EMFILE, 10024}, {ENFILE, 10024},       {EPIPE, 10053},
                                        {ENOMEM, 10055}, {EPERM, 10013},        {EPROTO, 10053}};
  for (const auto& [error, number] : errors) EXPECT_EQ(SocketErrorFromErrno(error), number) << error;
  for (int error = 1; error < 200; ++error) {
    EXPECT_GT(SocketErrorFromErrno(error), 10000) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorWouldBlock, error == EAGAIN) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorNotConnected, error == ENOTCONN) << error;
  }
  const std::pair<int, int> lookups[] = {{EAI_NONAME, 11001}, {EAI_AGAIN, 11002},      {EAI_FAIL, 11003},
                                         {EAI_NODATA, 11004}, {EAI_ADDRFAMILY, 11004}, {EAI_SYSTEM, 11001}};
  for (const auto& [error, number] : lookups) EXPECT_EQ(SocketErrorFromLookup(error), number);
}

}  // namespace
}  // namespace skyreel
