#include "net/thread_timer.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>

namespace skyreel {
namespace {

/// Whether the timer expires within `limit` milliseconds.
bool Expires(const TThreadTimer& timer, int limit = 20'000) {
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
    for (int i = 1; i <= 2; ++i) EXPECT_TRUE(Expires(timer) && timer.FireIfExpired() && fired == i);
    // A stop also forgets the expiry that nobody has looked at yet; setting what is set restarts nothing.
    EXPECT_TRUE(Expires(timer));
    timer.SetInterval(5);
    EXPECT_TRUE(Expires(timer, 0));
    const auto restart = std::chrono::steady_clock::now();
    timer.SetInterval(30);
    EXPECT_TRUE(Expires(timer));
    EXPECT_GE(std::chrono::steady_clock::now() - restart, std::chrono::milliseconds(29));
    stop(timer);
    EXPECT_FALSE(Expires(timer, 60) || timer.FireIfExpired());
  }
}

}  // namespace
}  // namespace skyreel
