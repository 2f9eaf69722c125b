#include "net/thread_timer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <chrono>
#include <stdexcept>

namespace skyreel {
namespace {

/// Whether the timer expires within `limit` milliseconds, waiting no longer than it takes.
bool Expires(const TThreadTimer& timer, int limit) {
  pollfd wanted{timer.Descriptor(), POLLIN, 0};
  return ::poll(&wanted, 1, limit) > 0;
}

TEST(ThreadTimer, FiresAtEachExpiry) {
  int fired = 0;
  TThreadTimer timer;
  EXPECT_TRUE(timer.Enabled());
  EXPECT_EQ(timer.Interval(), 1000u);
  timer.SetInterval(10);
  timer.SetOnTimer([&](TThreadTimer& sender) {
    EXPECT_EQ(&sender, &timer);
    ++fired;
  });
  EXPECT_FALSE(timer.FireIfExpired());
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(Expires(timer, 5000));
    EXPECT_TRUE(timer.FireIfExpired());
    EXPECT_EQ(fired, i);
  }
}

TEST(ThreadTimer, RunsOnlyWithIntervalHandlerAndEnabled) {
  const struct {
    const char* Name;
    std::uint32_t Interval;
    bool Enabled, Handler;
  } kCases[] = {{"no interval", 0, true, true}, {"disabled", 5, false, true}, {"no handler", 5, true, false}};
  for (const auto& c : kCases) {
    TThreadTimer timer;
    timer.SetInterval(5);
    timer.SetOnTimer([](TThreadTimer&) {});
    ASSERT_TRUE(Expires(timer, 5000)) << c.Name;
    // Stopping also forgets the expiry that nobody has looked at yet.
    timer.SetInterval(c.Interval);
    timer.SetEnabled(c.Enabled);
    if (!c.Handler) timer.SetOnTimer({});
    EXPECT_FALSE(Expires(timer, 30)) << c.Name;
    EXPECT_FALSE(timer.FireIfExpired()) << c.Name;
  }
}

TEST(ThreadTimer, AChangeStartsTheFullIntervalAgainAndNoChangeDoesNot) {
  using TMonotonic = std::chrono::steady_clock;
  TThreadTimer timer;
  timer.SetInterval(1);
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000));
  timer.SetInterval(1);
  timer.SetEnabled(true);
  EXPECT_TRUE(Expires(timer, 0)) << "setting what is set restarts nothing";

  timer.SetInterval(60);
  const auto restart = TMonotonic::now();
  timer.SetOnTimer([](TThreadTimer&) {});
  ASSERT_TRUE(Expires(timer, 5000));
  EXPECT_GE(TMonotonic::now() - restart, std::chrono::milliseconds(59));
}

TEST(ThreadTimer, RefusedBySystemIsNoTimer) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  TThreadTimer timer;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string message;
  try {
    timer.SetOnTimer([](TThreadTimer&) {});
  } catch (const std::runtime_error& error) {
    message = error.what();
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(message, "No Timer");
  timer.SetInterval(5);
  EXPECT_TRUE(Expires(timer, 5000)) << "usable once the system has timers again";
}

}  // namespace
}  // namespace skyreel
