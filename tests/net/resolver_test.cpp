#include "net/resolver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <poll.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

namespace skyreel {
namespace {

TEST(Resolver, FindsTheLocalHostAndTellsFailuresByTheirCode) {
  const THostLookup local("localhost"), none("a..b");
  for (const THostLookup* const lookup : {&local, &none}) {
    pollfd wanted{lookup->Descriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&wanted, 1, 20'000), 1);
    EXPECT_TRUE(lookup->IsDone());
    EXPECT_EQ(lookup->Error() == 0, lookup == &local);
  }
  EXPECT_EQ(local.Address().s_addr, htonl(INADDR_LOOPBACK));
}

// What the thread of an abandoned lookup writes to must outlive it; the sanitizers watch.
TEST(Resolver, AbandonedLookupFinishesByItself) {
  namespace fs = std::filesystem;
  const auto threads = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
  std::thread([] {}).join();  // with the first thread a sanitizer may start one of its own
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

TEST(ResolverDeathTest, RunningLookupDoesNotHoldUpTheEnd) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        const THostLookup lookup("slow.example", [](const std::string&, in_addr&) {
          std::promise<int> never;
          return never.get_future().get();
        });
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace skyreel
