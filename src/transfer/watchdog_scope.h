#pragma once

#include "transfer/transfer_context.h"

namespace skyreel {

/// Guards one transfer: restarts the watchdog at once and stops it at the end of the scope, whatever the
/// transfer's outcome.
class TWatchdogScope {
 public:
  explicit TWatchdogScope(TRunControl& run) : run_(run) { run_.RestartWatchdog(); }
  ~TWatchdogScope() { run_.StopWatchdog(); }
  TWatchdogScope(const TWatchdogScope&) = delete;
  TWatchdogScope& operator=(const TWatchdogScope&) = delete;

 private:
  TRunControl& run_;
};

}  // namespace skyreel
