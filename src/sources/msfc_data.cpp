#include "sources/msfc_data.h"

#include <algorithm>
#include <utility>

namespace skyreel {

namespace {

using namespace std::chrono_literals;

/// The satellite of this server; its part of the file names.
constexpr const char* kSatellitePrefix = "ME7-";

/// A channel's code in file names and the item that asks for it, in the order in which they are fetched.
struct TChannel {
  const char* Code;
  const char* Item;
  bool AtMidnight;  ///< there is an image at 0000
};
constexpr TChannel kChannels[] = {{"ir1", "IR", true}, {"ir2", "WV", true}, {"vis", "VISSN", false}};

bool Has(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

const std::vector<std::string>& MsfcChannelItems() {
  static const std::vector<std::string> items = {"VISSN", "IR", "WV"};
  return items;
}

const std::vector<std::string>& MsfcSlotItems() {
  static const std::vector<std::string> items = {"0000", "0600", "1200", "1800"};
  return items;
}

std::vector<TMsfcFile> MsfcFiles(const TMsfcSettings& settings, TDateTime now, int back_days) {
  std::vector<TMsfcFile> files;
  for (int d = back_days - 1; d >= 0; --d) {
    for (std::size_t slot = 0; slot < MsfcSlotItems().size(); ++slot) {
      const TDateTime time = now.Midnight() - std::chrono::days(d) + slot * 6h;
      if (!Has(settings.Slots, MsfcSlotItems()[slot]) || time > now - 1h) continue;
      for (const TChannel& channel : kChannels) {
        if (!Has(settings.Channels, channel.Item) || (slot == 0 && !channel.AtMidnight)) continue;
        files.push_back(
            {time, kSatellitePrefix + FormatDateTime("yyyymmddhhnn", time) + "." + channel.Code + ".ara.Z"});
      }
    }
  }
  return files;
}

TMsfcJob::TMsfcJob(TJobContext& context, TMsfcSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TMsfcJob::Run() {}

}  // namespace skyreel
