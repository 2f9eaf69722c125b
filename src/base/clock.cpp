#include "base/clock.h"

#include <algorithm>
#include <thread>

namespace skyreel {

TDateTime TSystemClock::UtcNow() const {
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
  return TDateTime::FromUnixTime(0) + std::chrono::floor<std::chrono::milliseconds>(since_1970);
}

std::chrono::milliseconds TSystemClock::Uptime() const {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

void TSystemClock::Sleep(std::chrono::milliseconds span) {
  using TMonotonic = std::chrono::steady_clock;
  constexpr TMonotonic::duration kStep = std::chrono::milliseconds(5);
  const TMonotonic::time_point end = TMonotonic::now() + span;
  TMonotonic::time_point now = TMonotonic::now();
  do {
    std::this_thread::sleep_for(std::min(end - now, kStep));
    Fire(event_hook_);
    now = TMonotonic::now();
  } while (now < end);
}

}  // namespace skyreel
