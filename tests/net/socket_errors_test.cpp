#include "net/socket_errors.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>

namespace skyreel {
namespace {

TEST(SocketErrors, FiftyNumbersHaveAText) {
  const std::pair<int, const char*> kCases[] = {
      {0, ""},
      {10035, "10035:Operation would block"},
      {10049, "10049:Can't assign requested address"},
      {10061, "10061:Connection refused"},
      {10065, "10065:No route to Host"},
      {11004, "11004:Valid name, no data record of requested type"},
      {10072, "Unknown Error No. 10072"},
      {-1, "Unknown Error No. -1"},
  };
  for (const auto& [number, message] : kCases) EXPECT_EQ(SocketErrorMessage(number), message);
  int known = 0;
  for (int number = 1; number < 30000; ++number) known += !SocketErrorMessage(number).starts_with("Unknown");
  EXPECT_EQ(known, 50);
}

TEST(SocketErrors, SystemNumbersKeepTheirMeaningAndNoOtherPassesForHarmless) {
  const std::pair<int, int> kCases[] = {{0, 0},
                                        {EAGAIN, kErrorWouldBlock},
                                        {ENOTCONN, kErrorNotConnected},
                                        {EINTR, 10004},
                                        {ECONNREFUSED, 10061},
                                        {ECONNRESET, 10054},
                                        {ETIMEDOUT, 10060},
                                        {EMFILE, 10024},
                                        {ENFILE, 10024},
                                        {EPIPE, 10053},
                                        {EADDRINUSE, 10048},
                                        {ENOBUFS, 10055},
                                        {ENOMEM, 10055},
                                        {EPERM, 10013},
                                        {EHOSTUNREACH, 10065}};
  for (const auto& [error, number] : kCases) EXPECT_EQ(SocketErrorFromErrno(error), number) << error;
  for (int error = 1; error < 200; ++error) {
    EXPECT_GT(SocketErrorFromErrno(error), 10000) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorWouldBlock, error == EAGAIN) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorNotConnected, error == ENOTCONN) << error;
  }
  const std::pair<int, int> kLookups[] = {
      {EAI_NONAME, 11001}, {EAI_AGAIN, 11002}, {EAI_FAIL, 11003}, {EAI_SYSTEM, 11001}};
  for (const auto& [error, number] : kLookups) EXPECT_EQ(SocketErrorFromLookup(error), number);
}

}  // namespace
}  // namespace skyreel
