#include "net/socket_errors.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>

namespace skyreel {
namespace {

TEST(SocketErrors, MessageIsNumberAndText) {
  const struct {
    int Number;
    const char* Message;
  } kCases[] = {
      {0, ""},
      {10004, "10004:Interrupted system call"},
      {10035, "10035:Operation would block"},
      {10049, "10049:Can't assign requested address"},
      {10059, "10059:Too many references, can't splice"},
      {10061, "10061:Connection refused"},
      {10065, "10065:No route to Host"},
      {10071, "10071:Too many levels of remote in path"},
      {10091, "10091:Network subsystem is unavailable"},
      {11001, "11001:Host not found"},
      {11004, "11004:Valid name, no data record of requested type"},
      {12345, "Unknown Error No. 12345"},
      {10072, "Unknown Error No. 10072"},
      {-1, "Unknown Error No. -1"},
  };
  for (const auto& c : kCases) EXPECT_EQ(SocketErrorMessage(c.Number), c.Message);
}

TEST(SocketErrors, FiftyNumbersHaveAText) {
  int known = 0;
  for (int number = 1; number < 30000; ++number) {
    known += SocketErrorMessage(number).starts_with("Unknown") ? 0 : 1;
  }
  EXPECT_EQ(known, 50);
}

TEST(SocketErrors, SystemNumbersKeepTheirMeaning) {
  const struct {
    int Errno;
    int Number;
  } kCases[] = {
      {0, 0},
      {EAGAIN, kErrorWouldBlock},
      {EWOULDBLOCK, kErrorWouldBlock},
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
      {EHOSTUNREACH, 10065},
  };
  for (const auto& c : kCases) EXPECT_EQ(SocketErrorFromErrno(c.Errno), c.Number) << c.Errno;
}

TEST(SocketErrors, NoSystemNumberPassesForHarmless) {
  for (int error = 1; error < 200; ++error) {
    EXPECT_GT(SocketErrorFromErrno(error), 10000) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorWouldBlock, error == EAGAIN) << error;
    EXPECT_EQ(SocketErrorFromErrno(error) == kErrorNotConnected, error == ENOTCONN) << error;
  }
}

TEST(SocketErrors, LookupFailures) {
  EXPECT_EQ(SocketErrorFromLookup(EAI_NONAME), 11001);
  EXPECT_EQ(SocketErrorFromLookup(EAI_AGAIN), 11002);
  EXPECT_EQ(SocketErrorFromLookup(EAI_FAIL), 11003);
  EXPECT_EQ(SocketErrorFromLookup(EAI_SYSTEM), 11001);
}

}  // namespace
}  // namespace skyreel
