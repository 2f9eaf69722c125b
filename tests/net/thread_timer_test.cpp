#include "net/thread_timer.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <optional>

#include "support/limit_scope.h"

namespace skyreel {
namespace {

/// Whether the timer expires within `limit` milliseconds, waiting no longer than it takes.
bool Expires(const TThreadTimer& timer, int limit) {
  pollfd wanted{timer.Descriptor(), POLLIN, 0};
  return ::poll(&wanted, 1, limit) > 0;
}

TEST(ThreadTimer, FiresAtEachExpiryUntilItIsStopped) {
  const std::function<void(TThreadTimer&)> stops[] = {[](TThreadTimer& timer) { timer.SetInterval(0); },
                                                      [](TThreadTimer& timer) { timer.SetEnabled(false); },
                                                      [](TThreadTimer& timer) { timer.SetOnTimer({}); }};
  for (const auto& stop : stops) {
    int fired = 0;
    TThreadTimer timer;
    timer.SetInterval(5);
    timer.SetOnTimer([&](TThreadTimer&) { ++fired; });
    EXPECT_FALSE(timer.FireIfExpired());
    for (int i = 1; i <= 3; ++i) {
      ASSERT_TRUE(Expires(timer, 5000));
      EXPECT_TRUE(timer.FireIfExpired());
      EXPECT_EQ(fired, i);
    }
    // Stopping also forgets the expiry that nobody has looked at yet.
    ASSERT_TRUE(Expires(timer, 5000));
    stop(timer);
    EXPECT_FALSE(Expires(timer, 30));
    EXPECT_FALSE(timer.FireIfExpired());
  }
}

TEST(ThreadTimer, AChangeStartsTheFullIntervalAgainAndNoChangeDoesNot) {
  TThreadTimer timer;
  timer.SetInterval(1);
  {
    std::optional<test::TLimitScope> no_descriptors;
    const auto start = [&] {
      no_descriptors.emplace(RLIMIT_NOFILE, 0);
      try {
        timer.SetOnTimer([](TThreadTimer&) {});
      } catch (const std::runtime_error&) {
        // A sanitizer needs a descriptor to look at the exception.
        no_descriptors.reset();
        throw;
      }
    };
    EXPECT_THROW(start(), std::runtime_error);
  }
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000)) << "usable once the system has timers again";
  timer.SetInterval(1);
  timer.SetEnabled(true);
  EXPECT_TRUE(Expires(timer, 0)) << "setting what is set restarts nothing";

  timer.SetInterval(60);
  const auto restart = std::chrono::steady_clock::now();
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000));
  EXPECT_GE(std::chrono::steady_clock::now() - restart, std::chrono::milliseconds(59));
}

}  // namespace
}  // namespace skyreel
