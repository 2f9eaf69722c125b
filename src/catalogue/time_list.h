#pragma once

#include <string_view>
#include <vector>

#include "base/date_time.h"

namespace skyreel {

/// Times from First to Last, `Step` or `StepMonths` calendar months apart. Without either every time between
/// them is meant; a single time has First equal to Last.
struct TTimeRange {
  TDateTime First;
  TDateTime Last;
  TDateTime::TSpan Step{};
  int StepMonths = 0;
  bool operator==(const TTimeRange&) const = default;
};

/// Reads the value of a WMS dimension "time": single times and start/end/period, separated by commas (ISO
/// 8601, UTC, as OGC 06-042 annexes C and D write it: "2026-11-26T05:20:00Z", "2026-11", "PT10M", "P1D").
/// Parts that it cannot read are left out. Single times come first, then the ranges, each in the order of
/// their beginning. Throws EListError for more than 10,000 ranges.
std::vector<TTimeRange> ReadTimeList(std::string_view text);

/// Whether one of the ranges, in the order of ReadTimeList, has this time.
bool HasTime(const std::vector<TTimeRange>& ranges, TDateTime time);

/// The newest times of the ranges from `first` to `last`, newest first, each once and `most` at most. A range
/// without a step gives its ends. The work is bounded: ranges that repeat one another too often give fewer.
std::vector<TDateTime> TimesWithin(const std::vector<TTimeRange>& ranges, TDateTime first, TDateTime last,
                                   std::size_t most);

}  // namespace skyreel
