#include "net/resolver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <poll.h>

#include <filesystem>
#include <future>
#include <thread>

namespace skyreel {
namespace {

TEST(Resolver, FindsTheLocalHostAndTellsAFailureByItsCode) {
  const THostLookup local("localhost"), none("a..b");
  for (const THostLookup* const lookup : {&local, &none}) {
    pollfd wanted{lookup->Descriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&wanted, 1, 20'000), 1);
    EXPECT_EQ(lookup->Error() == 0, lookup == &local);
  }
  EXPECT_EQ(local.Address().s_addr, htonl(INADDR_LOOPBACK));
}

// The thread writes to memory that must outlive the lookup; the sanitizers watch.
TEST(Resolver, AnAbandonedLookupHoldsNothingUpAndFinishesByItself) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  std::thread([] {}).join();  // a sanitizer may start a thread of its own with the first one
  const auto before = threads();
  std::promise<void> answer;
  {
    const THostLookup lookup("slow.example", [&](const std::string&, in_addr& address) {
      answer.get_future().wait();
      address.s_addr = 1;
      return 0;
    });
    EXPECT_EQ(lookup.Error(), EAI_AGAIN);
  }
  answer.set_value();
  while (threads() > before) std::this_thread::yield();
}

}  // namespace
}  // namespace skyreel
