#include "sources/eu_data.h"

#include <algorithm>
#include <set>
#include <utility>

namespace skyreel {

namespace {

using namespace std::chrono_literals;

constexpr auto kSlot = 30min;
constexpr int kSlotsPerDay = 48;
/// In half-hour slots, by the index of the interval item.
constexpr std::array<int, 7> kSteps = {1, 2, 4, 6, 12, 24, 48};
constexpr const char* kSatelliteCodes[] = {"_M5_", "_M7_"};

}  // namespace

const std::vector<std::string>& EuDataSatelliteItems() {
  static const std::vector<std::string> items = {"M5", "M7"};
  return items;
}

const std::vector<std::string>& EuDataChannelItems() {
  static const std::vector<std::string> items = {"VISSN", "IR", "WV"};
  return items;
}

const std::vector<std::string>& EuDataFormatItems() {
  static const std::vector<std::string> items = {"GIF", "OPEN_MTP.Z", "OPEN_MTP.bz2"};
  return items;
}

const std::vector<std::string>& EuDataSlotItems() {
  static const std::vector<std::string> items = [] {
    std::vector<std::string> made;
    for (int i = 1; i <= kSlotsPerDay; ++i) made.push_back(EuDataSlotAt(TDateTime() + i * kSlot).Name);
    return made;
  }();
  return items;
}

const std::vector<std::string>& EuDataIntervalItems() {
  static const std::vector<std::string> items = {"30 mins", "1 hour",   "2 hours", "3 hours",
                                                 "6 hours", "12 hours", "24 hours"};
  return items;
}

std::vector<std::string> EuDataWantedSlots(int start_slot, int interval) {
  const int step =
      kSteps[interval > 0 && interval < static_cast<int>(kSteps.size()) ? static_cast<std::size_t>(interval)
                                                                        : 0];
  std::set<std::string> wanted;
  int slot = std::max(start_slot, 0);
  // The start slot itself comes in by wrapping round, which every step does.
  for (int i = 0; i < kSlotsPerDay; ++i) {
    slot = (slot + step) % kSlotsPerDay;
    wanted.insert(EuDataSlotItems()[static_cast<std::size_t>(slot)]);
  }
  return {wanted.begin(), wanted.end()};
}

TEuDataSlot EuDataSlotAt(TDateTime time) {
  const std::string name = FormatDateTime("hhnn", time);
  if (name != "0000") return {time, name, FormatDateTime("yyyy-mm-dd_hhnn", time), time};
  const TDateTime day = time - 24h;
  return {time, "2400", FormatDateTime("yyyy-mm-dd_\"2400\"", day), day};
}

std::vector<TEuDataSlot> EuDataSlots(TDateTime now, int back_days) {
  const TDateTime newest = (now - 24h).RoundedDown(kSlot);
  std::vector<TEuDataSlot> slots;
  for (int n = kSlotsPerDay * back_days + 3; n >= 0; --n) slots.push_back(EuDataSlotAt(newest - n * kSlot));
  return slots;
}

std::string EuDataFileName(const TEuDataSlot& slot, int satellite, std::string_view channel,
                           std::string_view format) {
  return "FES_" + slot.DatePart + kSatelliteCodes[satellite] + std::string(channel) + "." +
         std::string(format);
}

TEuDataJob::TEuDataJob(TJobContext& context, TEuDataSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TEuDataJob::Run() {}

}  // namespace skyreel
