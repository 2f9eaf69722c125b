#pragma once

#include <cstdint>
#include <functional>

#include "base/descriptor.h"

namespace skyreel {

/// A periodic timer. It is no thread: it runs in the system, and whoever waits polls Descriptor() and calls
/// FireIfExpired(). Every change of a property starts the full interval again.
class TThreadTimer {
 public:
  using TTimerEvent = std::function<void(TThreadTimer& sender)>;

  bool Enabled() const { return enabled_; }
  std::uint32_t Interval() const { return interval_; }

  /// Default true. Setting the value it has changes nothing.
  /// This and the two below throw std::runtime_error "No Timer" when the system gives none.
  void SetEnabled(bool enabled);
  /// Milliseconds, default 1000; 0 stops the timer. Setting the value it has changes nothing.
  void SetInterval(std::uint32_t milliseconds);
  /// Called at each expiry; without it the timer does not run.
  void SetOnTimer(TTimerEvent event);

  /// Readable once the interval has passed; -1 before the timer ran for the first time.
  int Descriptor() const { return descriptor_.Get(); }
  /// Calls OnTimer, once however many intervals have passed since the last call; false when none has.
  bool FireIfExpired();

 private:
  void Rearm();

  bool enabled_ = true;
  std::uint32_t interval_ = 1000;
  TTimerEvent on_timer_;
  TDescriptor descriptor_;
};

}  // namespace skyreel
