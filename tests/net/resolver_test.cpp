#include "net/resolver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <poll.h>

#include <cstdlib>
#include <future>
#include <memory>
#include <vector>

namespace skyreel {
namespace {

bool Wait(const THostLookup& lookup, int limit = 20000) {
  pollfd wanted{lookup.Descriptor(), POLLIN, 0};
  return ::poll(&wanted, 1, limit) > 0;
}

TEST(Resolver, FindsTheLocalHostAndTellsFailuresByTheirCode) {
  const THostLookup local("localhost");
  ASSERT_TRUE(Wait(local));
  ASSERT_TRUE(local.IsDone());
  ASSERT_EQ(local.Error(), 0);
  EXPECT_EQ(local.Address().s_addr, htonl(INADDR_LOOPBACK));
  const THostLookup none("a..b"), later("anything", [](const std::string&, in_addr&) { return EAI_AGAIN; });
  ASSERT_TRUE(Wait(none) && Wait(later));
  EXPECT_NE(none.Error(), 0);
  EXPECT_EQ(later.Error(), EAI_AGAIN);
}

// What the thread of an abandoned lookup writes to must outlive it; the sanitizers watch.
TEST(Resolver, AbandonedLookupFinishesByItself) {
  std::promise<void> answer;
  const std::shared_future<void> answered = answer.get_future().share();
  std::vector<std::future<void>> finished;
  for (int i = 0; i < 8; ++i) {
    auto done = std::make_shared<std::promise<void>>();
    finished.push_back(done->get_future());
    const THostLookup lookup("slow.example", [answered, done](const std::string&, in_addr& address) {
      answered.wait();
      address.s_addr = 1;
      done->set_value_at_thread_exit();
      return 0;
    });
    EXPECT_FALSE(lookup.IsDone());
  }
  answer.set_value();
  for (std::future<void>& each : finished) each.wait();
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
