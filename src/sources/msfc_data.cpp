#include "sources/msfc_data.h"

#include <algorithm>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "sources/fetch_and_uncompress.h"
#include "sources/wanted_names.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;

/// The satellite's part of the file names.
constexpr const char* kSatellitePrefix = "ME7-";

/// Anonymous servers ask for a mail address.

constexpr std::int64_t kImageSize = 6321008;
constexpr TUncompressRule kRule{200000, 0ms};

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

std::vector<TMsfcFile> MsfcFiles(const TMsfcSettings& settings, TDateTime today, int back_days) {
  std::vector<TMsfcFile> files;
  for (int d = back_days - 1; d >= 0; --d) {
    for (std::size_t slot = 0; slot < MsfcSlotItems().size(); ++slot) {
      const TDateTime time = today.Midnight() - std::chrono::days(d) + slot * 6h;
      if (!Has(settings.Slots, MsfcSlotItems()[slot])) continue;
      for (const TChannel& channel : kChannels) {
        if (!Has(settings.Channels, channel.Item) || (slot == 0 && !channel.AtMidnight)) continue;
        files.push_back(
            {time, kSatellitePrefix + FormatDateTime("yyyymmddhhnn", time) + "." + channel.Code + ".ara.Z",
             channel.Item});
      }
    }
  }
  return files;
}

std::string MsfcRemotePath(const std::string& name) {
  return "/Weather/METEOSAT-7/McIDAS_areas/" + Characters(name, 18, 3) + "/5km/" + name;
}

bool IsMsfcFileOut(const TMsfcFile& file, TDateTime now) {
  return file.Time <= now - 1h;
}

std::vector<TOffer> MsfcOffers(TDateTime day) {
  std::vector<TOffer> offers;
  for (const std::string& channel : MsfcChannelItems()) {
    TMsfcSettings settings;
    settings.Channels = {channel};
    settings.Slots = MsfcSlotItems();
    for (const TMsfcFile& file : MsfcFiles(settings, day, 1)) {
      TOffer offer{MsfcRemotePath(file.Name), file.Time, "METEOSAT-7 " + channel,
                   TOffer::PictureOf(channel[0])};
      offer.Width = offer.Height = 2500;
      offer.DataSize = kImageSize;
      offers.push_back(std::move(offer));
    }
  }
  return offers;
}

TMsfcJob::TMsfcJob(TJobContext& context, TMsfcSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TMsfcJob::Run() {
  // kept: the list is read, and reported if it cannot be, but nothing is looked up in it.
  TWantedNames::FromFile(context_.ProgramFolder / "MSFCFiles.txt", context_.Display);
  const TFtpLogin login{context_.Servers.Root(kMsfcServer), "anonymous", kAnonymousPassword,
                        settings_.Passive, settings_.UseWinInet};
  RunFtpSession(context_, login, [&](TFtpSession& session) {
    for (const TMsfcFile& wanted : MsfcFiles(settings_, context_.Clock.UtcNow(), context_.Shared.BackDays)) {
      if (context_.Run.StopRequested() || session.IsLost()) return;
      if (!IsMsfcFileOut(wanted, context_.Clock.UtcNow())) continue;
      TCompressedFile file;
      file.Name = wanted.Name;
      file.RemotePath = MsfcRemotePath(wanted.Name);
      file.Folder = std::filesystem::path(settings_.OutputPath) / DateFolder(wanted.Time);
      file.Product = wanted.Channel;
      file.Time = wanted.Time;
      file.Uncompress = settings_.Uncompress;
      file.ImageSize = kImageSize;
      // kept: a compressed file that is present does not count, so without uncompressing each run fetches
      // every file again.
      if (IsDecoded(context_, session, file)) continue;
      FetchAndUncompress(context_, session, file, kRule);
    }
  });
}

}  // namespace skyreel
