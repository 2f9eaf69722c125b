#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

inline constexpr TServerSetting kGoesServer{"ServerGoes", "GOES images, GSFC", "http://goes.gsfc.nasa.gov"};

/// What the "GOES" page asks for.
struct TGoesSettings {
  std::string OutputPath;            ///< with its trailing separator
  std::vector<std::string> Sectors;  ///< the ticked half-hourly products
  int Interval = 0;                  ///< 0 every 30 minutes, 1 hourly, 2 every 2 hours, 3 every 3 hours
  std::string ESector, WSector;      ///< sector of the daily pictures of GOES-East and -West; empty: none
  std::chrono::minutes ETime{0}, WTime{0};  ///< the daily pictures' time of day, UTC
  bool DateInFolder = false;
  bool Lzw = true;  ///< fetch the compressed pictures
};

/// The half-hourly products, in list order.
const std::vector<std::string>& GoesProductItems();
/// The server's sectors to choose from for the daily picture.
const std::vector<std::string>& GoesSectorNames();

/// The server's pictures of one day.
std::vector<TOffer> GoesOffers(TDateTime day);

/// Fetches GOES pictures from GSFC as TIFF files: half-hourly ones of the chosen products, and for each
/// satellite once a day those of one sector at a chosen time.
class TGoesJob {
 public:
  TGoesJob(TJobContext& context, TGoesSettings settings);
  /// Fetches what is missing; returns at the end or soon after a stop was requested. A failure costs one file
  /// and gets one status line.
  void Run();

 private:
  class TRun;

  TJobContext& context_;
  const TGoesSettings settings_;
};

}  // namespace skyreel
