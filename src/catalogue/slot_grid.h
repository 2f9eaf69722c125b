#pragma once

#include "base/date_time.h"
#include "catalogue/description.h"

namespace skyreel {

/// The regular slots of a source: midnight of its clock, plus an offset, plus whole multiples of a step that
/// divides a day.
class TSlotGrid {
 public:
  TSlotGrid(TDateTime::TSpan every, TDateTime::TSpan offset, TDateTime::TSpan zone)
      : every_(every), phase_(offset - zone) {}

  /// The last slot that is not later than `time`.
  TDateTime AtOrBefore(TDateTime time) const { return (time - phase_).RoundedDown(every_) + phase_; }
  bool Has(TDateTime time) const { return AtOrBefore(time) == time; }
  TDateTime::TSpan Every() const { return every_; }

 private:
  TDateTime::TSpan every_, phase_;
};

/// The slot of a file that has a fixed name on the server, from the server's date of it.
inline TDateTime SlotOfFixedName(const TTimeRules& time, TDateTime last_modified) {
  if (!time.Every) return last_modified;
  return TSlotGrid(*time.Every, time.Offset, time.Zone).AtOrBefore(last_modified - time.Delay);
}

}  // namespace skyreel
