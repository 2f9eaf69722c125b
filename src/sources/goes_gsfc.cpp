#include "sources/goes_gsfc.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "sources/folder_maker.h"
#include "sources/slot_walk.h"
#include "transfer/http_fetch.h"

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
  std::chrono::minutes Earlier;  ///< how long before its half hour's begin a picture is taken
};

constexpr TSatellite kEast{"GOES-E", "/goeseast", "goes-e\\", "G13", std::chrono::minutes(15)};
constexpr TSatellite kWest{"GOES-W", "/goeswest", "goes-w\\", "G15", std::chrono::minutes(0)};

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
};

struct TProduct {
  std::string Item;
  TSeries Series;
};

const std::vector<TProduct>& Products() {
  static const std::vector<TProduct> products = [] {
    std::vector<TProduct> list;
    for (const TSatellite* const satellite : {&kEast, &kWest}) {
      for (const char* const sector : {"conus", "fulldisk", "overview"}) {
        for (const TChannel& channel : kChannels) {
          list.push_back({std::string(satellite->Name) + " " + sector + " " + channel.Name,
                          {satellite, sector, &channel}});
        }
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
    for (const TProduct& product : Products()) list.push_back(product.Item);
    return list;
  }();
  return items;
}

const std::vector<std::string>& GoesSectorNames() {
  static const std::vector<std::string> names = {"antilles", "conus", "fulldisk", "overview"};
  return names;
}

/// One run of the job.
class TGoesJob::TRun {
 public:
  TRun(TJobContext& context, const TGoesSettings& settings)
      : context_(context), settings_(settings), walk_(context), folders_(context.Display) {}

  void Run() {
    // A sector that a damaged setting names must not lead out of the output folder.
    for (const std::string& sector : {settings_.ESector, settings_.WSector}) {
      if (!sector.empty() && !IsSafeFileName(sector)) {
        context_.Display.AddStatusLine("\"" + sector + "\" is no sector - skipped");
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
    for (const TProduct& product : Products()) {
      if (walk_.Stopped()) return;
      if (std::find(settings_.Sectors.begin(), settings_.Sectors.end(), product.Item) ==
          settings_.Sectors.end()) {
        continue;
      }
      walk_.Slots(day, step, [&](int, TDateTime slot) {
        Fetch(product.Series, slot - product.Series.Satellite->Earlier);
      });
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
    const std::string name = FormatDateTime("yymmddhhnn", time) + satellite.Code + series.Channel->Code +
                             (settings_.Lzw ? ".tif" : ".tiff");
    fs::path folder = settings_.OutputPath / PlatformPath(satellite.LocalFolder + series.Sector + "\\");
    if (settings_.DateInFolder) folder /= DateFolder(time);
    if (folders_.Make(folder)) {
      FetchFile(satellite.ServerFolder + std::string(settings_.Lzw ? "-lzw/" : "/") + series.Sector +
                    series.Channel->ServerFolder + name,
                folder / name, time);
    }
  }

  void FetchFile(const std::string& server_path, const fs::path& local_path, TDateTime time) {
    THttpFileRequest request;
    request.Url = context_.Servers.Goes + server_path;
    request.GetName = local_path.filename().string();
    request.ResultName = server_path;
    request.LocalPath = local_path;
    // kept: a compressed picture of 2,000 to 19,999 bytes is filed, and asked for again by the next run.
    request.PresentSize = settings_.Lzw ? 20'000 : 1'000'000;
    request.CompleteSize = settings_.Lzw ? 2'000 : 1'000'000;
    request.FileTime = time;
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
