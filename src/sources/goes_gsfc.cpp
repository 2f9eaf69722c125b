#include "sources/goes_gsfc.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "sources/slot_walk.h"
#include "transfer/folder_maker.h"
#include "transfer/http_fetch.h"
#include "transfer/run_record.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// A picture is asked for once it is this old.
constexpr std::chrono::minutes kPublishingDelay{30};

struct TSatellite {
  const char* Name;
  const char* ServerFolder;
  const char* LocalFolder;
  const char* Code;
  std::chrono::minutes Earlier;  ///< how long before the half hour begins a picture is taken
  double Longitude;              ///< degrees east
};

constexpr TSatellite kEast{"GOES-E", "/goeseast", "goes-e\\", "G13", std::chrono::minutes(15), -75};
constexpr TSatellite kWest{"GOES-W", "/goeswest", "goes-w\\", "G15", std::chrono::minutes(0), -135};

struct TChannel {
  const char* Name;
  const char* ServerFolder;
  const char* Code;
};

constexpr std::array<TChannel, 3> kChannels = {{
    {"vis", "/vis/", "I01"},
    {"IR", "/ir4/", "I04"},
    {"WV", "/ir3/", "I03"},
}};

/// A series of pictures: one channel of a satellite's sector.
struct TSeries {
  const TSatellite* Satellite;
  std::string Sector;
  const TChannel* Channel;

  std::string Item() const { return std::string(Satellite->Name) + " " + Sector + " " + Channel->Name; }
};

std::string FileName(const TSeries& series, TDateTime time, bool lzw) {
  return FormatDateTime("yymmddhhnn", time) + series.Satellite->Code + series.Channel->Code +
         (lzw ? ".tif" : ".tiff");
}

std::string ServerPath(const TSeries& series, TDateTime time, bool lzw) {
  return series.Satellite->ServerFolder + std::string(lzw ? "-lzw/" : "/") + series.Sector +
         series.Channel->ServerFolder + FileName(series, time, lzw);
}

/// The series to choose from, in list order.
const std::vector<TSeries>& Products() {
  static const std::vector<TSeries> products = [] {
    std::vector<TSeries> list;
    for (const TSatellite* const satellite : {&kEast, &kWest}) {
      for (const char* const sector : {"conus", "fulldisk", "overview"}) {
        for (const TChannel& channel : kChannels) list.push_back({satellite, sector, &channel});
      }
    }
    return list;
  }();
  return products;
}

}  // namespace

const std::vector<std::string>& GoesProductItems() {
  static const std::vector<std::string> items = [] {
    std::vector<std::string> list;
    for (const TSeries& series : Products()) list.push_back(series.Item());
    return list;
  }();
  return items;
}

const std::vector<std::string>& GoesSectorNames() {
  static const std::vector<std::string> names = {"antilles", "conus", "fulldisk", "overview"};
  return names;
}

std::vector<TOffer> GoesOffers(TDateTime day) {
  std::vector<TOffer> offers;
  const auto add = [&](const TSatellite& satellite, TDateTime time) {
    for (const std::string& sector : GoesSectorNames()) {
      for (const TChannel& channel : kChannels) {
        for (const bool lzw : {false, true}) {
          TOffer offer{ServerPath({&satellite, sector, &channel}, time, lzw), time,
                       std::string(satellite.Name) + " " + sector + " " + channel.Name,
                       TOffer::PictureOf(channel.Name[0])};
          offer.Width = 1280;
          offer.Height = 960;
          offer.Longitude = satellite.Longitude;
          offer.Zoom = sector == "fulldisk" ? 1 : 2.2;
          offers.push_back(std::move(offer));
        }
      }
    }
  };
  for (int slot = 0; slot < kSlotsPerDay; ++slot) {
    const TDateTime time = day.Midnight() + slot * kSlotLength;
    for (const TSatellite* satellite : {&kEast, &kWest}) add(*satellite, time - satellite->Earlier);
    // A daily picture is usually one of these.
    add(kEast, time + std::chrono::minutes(2));
  }
  return offers;
}

/// One run of the job.
class TGoesJob::TRun {
 public:
  TRun(TJobContext& context, const TGoesSettings& settings)
      : context_(context), settings_(settings), walk_(context), folders_(context) {}

  void Run() {
    // A damaged setting may name a sector that leads out of the output folder.
    for (const std::string& sector : {settings_.ESector, settings_.WSector}) {
      if (!sector.empty() && !IsSafeFileName(sector)) {
        ReportFailure(context_, "\"" + sector + "\" is not a sector - skipped");
      }
    }
    walk_.Days([this](TDateTime day) {
      HalfHourlyPass(day);
      DailyPass(day);
    });
  }

 private:
  void HalfHourlyPass(TDateTime day) {
    constexpr int kSteps[] = {1, 2, 4, 6};
    const int step = kSteps[settings_.Interval >= 0 && settings_.Interval <= 3 ? settings_.Interval : 0];
    for (const TSeries& series : Products()) {
      if (walk_.Stopped()) return;
      if (std::ranges::find(settings_.Sectors, series.Item()) == settings_.Sectors.end()) continue;
      walk_.Slots(day, step, [&](TDateTime slot) { Fetch(series, slot - series.Satellite->Earlier); });
    }
  }

  void DailyPass(TDateTime day) {
    Daily(kEast, settings_.ESector, day.Midnight() + settings_.ETime);
    Daily(kWest, settings_.WSector, day.Midnight() + settings_.WTime);
  }

  void Daily(const TSatellite& satellite, const std::string& sector, TDateTime time) {
    if (!IsSafeFileName(sector)) return;
    for (const TChannel& channel : kChannels) {
      if (walk_.Stopped()) return;
      Fetch({&satellite, sector, &channel}, time);
    }
  }

  void Fetch(const TSeries& series, TDateTime time) {
    if (time + kPublishingDelay > context_.Clock.UtcNow()) return;
    const TSatellite& satellite = *series.Satellite;
    const std::string name = FileName(series, time, settings_.Lzw);
    fs::path folder = settings_.OutputPath / PlatformPath(satellite.LocalFolder + series.Sector + "\\");
    if (settings_.DateInFolder) folder /= DateFolder(time);
    if (!folders_.Make(folder)) return;
    const std::string server_path = ServerPath(series, time, settings_.Lzw);
    THttpFileRequest request;
    request.Url = context_.Servers.Root(kGoesServer) + server_path;
    request.GetLine = "Get: " + name;
    request.Name = server_path;
    request.Product = series.Item();
    request.SlotTime = time;
    request.LocalPath = folder / name;
    request.CompleteSize = settings_.Lzw ? 2'000 : 1'000'000;
    // kept: a compressed picture of 2,000 to 19,999 bytes is filed, and asked for again by the next run.
    const std::int64_t good = settings_.Lzw ? 20'000 : 1'000'000;
    if (FileSizeOf(request.LocalPath) >= good) return CountPresent(context_, request.Wanted());
    FetchHttpFile(context_, request);
  }

  TJobContext& context_;
  const TGoesSettings& settings_;
  TSlotWalk walk_;
  TFolderMaker folders_;
};

TGoesJob::TGoesJob(TJobContext& context, TGoesSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TGoesJob::Run() {
  TRun(context_, settings_).Run();
}

}  // namespace skyreel
