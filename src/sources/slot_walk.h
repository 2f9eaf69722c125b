#pragma once

#include <chrono>

#include "sources/job_context.h"

namespace skyreel {

inline constexpr int kSlotsPerDay = 48;
inline constexpr std::chrono::minutes kSlotLength{30};

/// Walks the days and the half-hourly slots of a run until a stop is requested.
class TSlotWalk {
 public:
  /// The run's days count back from now.
  explicit TSlotWalk(TJobContext& context) : context_(context), now_(context.Clock.UtcNow()) {}

  /// Calls visit(TDateTime) with a time on each day: today first, then each day before it.
  template <typename TVisit>
  void Days(TVisit visit) {
    for (int back = 0; back < context_.Shared.BackDays && !Stopped(); ++back) {
      visit(now_ - std::chrono::days(back));
      LetEventsThrough();
    }
  }

  /// Calls visit(TDateTime) with the start of the day's slots 0, `step`, 2 * `step`, ... up to 47.
  template <typename TVisit>
  void Slots(TDateTime day, int step, TVisit visit) {
    const TDateTime midnight = day.Midnight();
    for (int slot = 0; slot < kSlotsPerDay && !Stopped(); slot += step) visit(midnight + slot * kSlotLength);
  }

  bool Stopped() const { return context_.Run.StopRequested(); }

 private:
  /// A run that finds everything on disk never waits. Without this its window would freeze.
  void LetEventsThrough() {
    const auto now = std::chrono::steady_clock::now();
    if (now - let_through_ < std::chrono::milliseconds(50)) return;
    context_.Clock.Sleep(std::chrono::milliseconds(1));
    let_through_ = std::chrono::steady_clock::now();
  }

  TJobContext& context_;
  const TDateTime now_;
  std::chrono::steady_clock::time_point let_through_ = std::chrono::steady_clock::now();
};

}  // namespace skyreel
