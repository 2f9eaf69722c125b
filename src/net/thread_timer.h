#pragma once

#include <cstdint>
#include <functional>

#include "base/descriptor.h"

namespace skyreel {

/// A periodic timer of the system, without a thread. Whoever waits polls Descriptor() and calls
/// FireIfExpired(). Each change of a property restarts the full interval.
class TThreadTimer {
 public:
  using TTimerEvent = std::function<void(TThreadTimer& sender)>;

  bool Enabled() const { return enabled_; }
  std::uint32_t Interval() const { return interval_; }

  /// Default true. Setting the same value changes nothing.
  /// This and the next two throw std::runtime_error "No Timer" when the system gives none.
  void SetEnabled(bool enabled);
  /// Milliseconds, default 1000; 0 stops the timer. Setting the same value changes nothing.
  void SetInterval(std::uint32_t milliseconds);
  /// Called at each expiry. Without it the timer does not run.
  void SetOnTimer(TTimerEvent event);

  /// Readable when the interval has passed; -1 before the first run.
  int Descriptor() const { return descriptor_.Get(); }
  /// Calls OnTimer once if at least one interval has passed since the last call; false if none has.
  bool FireIfExpired();

 private:
  void Rearm();

  bool enabled_ = true;
  std::uint32_t interval_ = 1000;
  TTimerEvent on_timer_;
  TDescriptor descriptor_;
};

}  // namespace skyreel
