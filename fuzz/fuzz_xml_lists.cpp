// A bucket's list, or a WMS's capabilities. The times come newest first, from the ranges and the period
// alone.

#include "catalogue/xml_lists.h"
#include "require.h"

namespace {

void CheckTimes(const std::vector<skyreel::TTimeRange>& ranges) {
  const skyreel::TDateTime last = skyreel::TDateTime::FromDate(2026, 11, 26, 5, 20);
  const skyreel::TDateTime first = last - std::chrono::days(90);
  const auto times = skyreel::TimesWithin(ranges, first, last, 100);
  for (std::size_t i = 0; i < times.size(); ++i) {
    Require(times[i] >= first && times[i] <= last && (i == 0 || times[i] < times[i - 1]));
    Require(skyreel::HasTime(ranges, times[i]));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = AsText(data, size);
  try {
    CheckTimes(skyreel::ReadTimeList(text));
  } catch (const skyreel::EListError&) {
  }
  try {
    skyreel::ReadS3List(text, [](const skyreel::TListed& listed) { Require(!listed.Text.empty()); });
  } catch (const skyreel::EListError&) {
  }
  try {
    CheckTimes(skyreel::ReadWmsTimes(text, "w:l"));
  } catch (const skyreel::EListError&) {
  }
  return 0;
}
