#pragma once

#include <chrono>

#include "base/date_time.h"
#include "base/event.h"

namespace skyreel {

/// The only place that reads the wall clock or sleeps. Tests use a fake one.
class TClock {
 public:
  virtual ~TClock() = default;
  /// The current UTC date and time.
  virtual TDateTime UtcNow() const = 0;
  /// A time that nobody sets back, for measuring waits.
  virtual std::chrono::milliseconds Uptime() const { return UtcNow() - TDateTime(); }
  /// Waits, and lets events through meanwhile: at least once, even for a span of zero.
  virtual void Sleep(std::chrono::milliseconds span) = 0;
};

/// The computer's clock. Sleep uses the monotonic clock and calls the event hook every few milliseconds.
class TSystemClock : public TClock {
 public:
  explicit TSystemClock(TEventHook event_hook) : event_hook_(std::move(event_hook)) {}
  TDateTime UtcNow() const override;
  std::chrono::milliseconds Uptime() const override;
  void Sleep(std::chrono::milliseconds span) override;

 private:
  TEventHook event_hook_;
};

}  // namespace skyreel
