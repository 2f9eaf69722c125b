#include "net/thread_timer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <chrono>

#include "support/failure.h"

namespace skyreel {
namespace {

/// Whether the timer expires within `limit` milliseconds, waiting no longer than it takes.
bool Expires(const TThreadTimer& timer, int limit) {
  pollfd wanted{timer.Descriptor(), POLLIN, 0};
  return ::poll(&wanted, 1, limit) > 0;
}

TEST(ThreadTimer, FiresAtEachExpiryUntilItIsStopped) {
  const std::function<void(TThreadTimer&)> kStops[] = {[](TThreadTimer& timer) { timer.SetInterval(0); },
                                                       [](TThreadTimer& timer) { timer.SetEnabled(false); },
                                                       [](TThreadTimer& timer) { timer.SetOnTimer({}); }};
  for (const auto& stop : kStops) {
    int fired = 0;
    TThreadTimer timer;
    EXPECT_EQ(timer.Interval(), 1000u);
    timer.SetInterval(5);
    timer.SetOnTimer([&](TThreadTimer& sender) { fired += &sender == &timer; });
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
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000));
  timer.SetInterval(1);
  timer.SetEnabled(true);
  EXPECT_TRUE(Expires(timer, 0)) << "setting what is set restarts nothing";

  timer.SetInterval(60);
  const auto restart = std::chrono::steady_clock::now();
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000));
  EXPECT_GE(std::chrono::steady_clock::now() - restart, std::chrono::milliseconds(59));
}

TEST(ThreadTimer, RefusedBySystemIsNoTimer) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  TThreadTimer timer;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto start = [&] {
    try {
      timer.SetOnTimer([](TThreadTimer&) {});
    } catch (...) {
      // The undefined-behaviour sanitizer needs a descriptor to look at the exception.
      ::setrlimit(RLIMIT_NOFILE, &before);
      throw;
    }
  };
  EXPECT_EQ(test::Failure(start), "No Timer");
  timer.SetInterval(5);
  EXPECT_TRUE(Expires(timer, 5000)) << "usable once the system has timers again";
}

}  // namespace
}  // namespace skyreel
