#include "sources/eu_data.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "sources/fetch_and_uncompress.h"
#include "sources/slot_walk.h"
#include "sources/wanted_names.h"
#include "transfer/folder_maker.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;

/// In half-hour slots, by the index of the interval item.
constexpr std::array<int, 7> kSteps = {1, 2, 4, 6, 12, 24, 48};
/// Bytes of a whole image: visible, infra-red and water vapour.
constexpr std::int64_t kVisibleSize = 25354344;
constexpr std::int64_t kInfraRedSize = 6475860;
constexpr TUncompressRule kRule{10000, 150ms};
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
    for (int i = 1; i <= kSlotsPerDay; ++i) made.push_back(EuDataSlotAt(TDateTime() + i * kSlotLength).Name);
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
  // Every step wraps round to the start slot, so that it is wanted, too.
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
  const TDateTime newest = (now - 24h).RoundedDown(kSlotLength);
  std::vector<TEuDataSlot> slots;
  for (int n = kSlotsPerDay * back_days + 3; n >= 0; --n)
    slots.push_back(EuDataSlotAt(newest - n * kSlotLength));
  return slots;
}

std::string EuDataFileName(const TEuDataSlot& slot, int satellite, std::string_view channel,
                           std::string_view format) {
  return "FES_" + slot.DatePart + kSatelliteCodes[satellite] + std::string(channel) + "." +
         std::string(format);
}

std::string EuDataRemotePath(const std::string& name) {
  return "/" + Characters(name, 21, 2) + "/" + name;
}

std::vector<TOffer> EuDataOffers(TDateTime day) {
  std::vector<TOffer> offers;
  for (int i = 0; i < kSlotsPerDay; ++i) {
    const TEuDataSlot slot = EuDataSlotAt(day.Midnight() + i * kSlotLength);
    for (const int satellite : {0, 1}) {
      for (const std::string& channel : EuDataChannelItems()) {
        for (const std::string& format : EuDataFormatItems()) {
          const std::string name = EuDataFileName(slot, satellite, channel, format);
          TOffer offer{EuDataRemotePath(name), slot.Time,
                       (satellite == 0 ? "METEOSAT-5 " : "METEOSAT-7 ") + channel,
                       TOffer::PictureOf(channel[0])};
          const bool visible = offer.Picture == TOffer::TPicture::Visible;
          if (format == "GIF") {
            offer.Width = 1250;
          } else {
            offer.Width = visible ? 5000 : 2500;
            offer.DataSize = visible ? kVisibleSize : kInfraRedSize;
          }
          offer.Height = offer.Width;
          offer.Longitude = satellite == 0 ? 63 : 0;
          offers.push_back(std::move(offer));
        }
      }
    }
  }
  return offers;
}

TEuDataJob::TEuDataJob(TJobContext& context, TEuDataSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TEuDataJob::Run() {
  const TWantedNames known =
      TWantedNames::FromFile(context_.ProgramFolder / "EuDAFiles.txt", context_.Display);
  const TFtpLogin login{context_.Servers.Root(kEuDataServer), settings_.UserName, settings_.Password,
                        settings_.Passive, settings_.UseWinInet};
  RunFtpSession(context_, login, [&](TFtpSession& session) {
    // kept: the operating system's library fetches only the first satellite.
    const int satellites = session.UsesWinInet() ? 1 : 2;
    for (int satellite = 0; satellite < satellites; ++satellite) {
      if (context_.Run.StopRequested()) return;
      GetSatellite(satellite, session, known);
    }
  });
}

void TEuDataJob::GetSatellite(int satellite, TFtpSession& session, const TWantedNames& known) {
  const auto index = static_cast<std::size_t>(satellite);
  if (!settings_.Satellites[index]) return;
  const std::vector<std::string> wanted =
      EuDataWantedSlots(settings_.StartSlot[index], settings_.Interval[index]);
  TFolderMaker folders(context_);
  for (const TEuDataSlot& slot : EuDataSlots(context_.Clock.UtcNow(), context_.Shared.BackDays)) {
    if (!std::binary_search(wanted.begin(), wanted.end(), slot.Name)) continue;
    context_.Display.SetPanel(0, FormatDateTime("yyyy-mmm-dd hhnn", slot.Time));
    const std::filesystem::path folder = std::filesystem::path(settings_.OutputPath) / DateFolder(slot.Day);
    if (!folders.Make(folder)) continue;
    for (const std::string& channel : settings_.Channels) {
      for (const std::string& format : settings_.Formats) {
        if (context_.Run.StopRequested() || session.IsLost()) return;
        TCompressedFile file;
        file.Name = EuDataFileName(slot, satellite, channel, format);
        file.RemotePath = EuDataRemotePath(file.Name);
        file.Folder = folder;
        file.Product = EuDataSatelliteItems()[index] + " " + channel + " " + format;
        file.Time = slot.Time;
        file.Uncompress = settings_.Uncompress && IsCompressedName(file.Name);
        file.ImageSize = channel == "VISSN" ? kVisibleSize : kInfraRedSize;
        if (!known.Wants(file.Name)) continue;
        if (context_.Ledger.Present(file.LocalPath())) {
          CountPresent(context_, session.Wanted(file));
          continue;
        }
        if (IsDecoded(context_, session, file)) continue;
        FetchAndUncompress(context_, session, file, kRule);
      }
    }
  }
}

}  // namespace skyreel
