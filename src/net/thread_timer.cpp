#include "net/thread_timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "base/event.h"

namespace skyreel {

void TThreadTimer::SetEnabled(bool enabled) {
  if (enabled == enabled_) return;
  enabled_ = enabled;
  Rearm();
}

void TThreadTimer::SetInterval(std::uint32_t milliseconds) {
  if (milliseconds == interval_) return;
  interval_ = milliseconds;
  Rearm();
}

void TThreadTimer::SetOnTimer(TTimerEvent event) {
  on_timer_ = std::move(event);
  Rearm();
}

bool TThreadTimer::FireIfExpired() {
  std::uint64_t expirations = 0;
  if (!descriptor_.IsOpen() || ::read(descriptor_.Get(), &expirations, sizeof expirations) < 0) return false;
  Fire(on_timer_, *this);
  return true;
}

void TThreadTimer::Rearm() {
  const bool run = interval_ != 0 && enabled_ && on_timer_;
  if (!run && !descriptor_.IsOpen()) return;
  if (!descriptor_.IsOpen()) {
    descriptor_ = TDescriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  }
  // A time of zero stops the timer and drops an expiry that nobody has read.
  itimerspec time{};
  if (run) {
    time.it_interval.tv_sec = interval_ / 1000;
    time.it_interval.tv_nsec = static_cast<long>(interval_ % 1000) * 1'000'000;
    time.it_value = time.it_interval;
  }
  if (::timerfd_settime(descriptor_.Get(), 0, &time, nullptr) != 0) throw std::runtime_error("No Timer");
}

}  // namespace skyreel
