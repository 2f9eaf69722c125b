#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sources/job_context.h"
#include "sources/offer.h"

namespace skyreel {

/// The servers that the charts come from.
std::vector<TServerSetting> MetChartServers();

/// What the "Weather data" tab asks for.
struct TMetChartsSettings {
  std::string OutputPath;            ///< with its trailing separator
  std::vector<std::string> Sources;  ///< the ticked items of MetChartItems(), in that order
  std::string BracknellUrl;          ///< full URL of the "Bracknell" chart
};

/// The sources to choose from, in list order.
const std::vector<std::string>& MetChartItems();

/// Where a chart's time comes from.
enum class TChartTime {
  LastModifiedRounded,  ///< Last-Modified, rounded down to a whole fraction of a day
  LastModified,         ///< Last-Modified as it is
  LastModifiedDay,      ///< midnight of the Last-Modified day
  Requested,            ///< the time that was asked for
};

/// How charts of one kind are named, timed and judged.
struct TChartKind {
  const char* Name;  ///< a FormatDateTime pattern of the chart's time; nullptr: the URL's file name
  TChartTime Time;
  std::int64_t MinimumSize;  ///< a chart must be larger than this many bytes
  bool PresentBySize;        ///< a picture of a slot: one larger than MinimumSize is not asked for again
};

/// Kind 0 to 14. Throws std::out_of_range beyond.
const TChartKind& ChartKind(int kind);

/// One chart to ask a server for.
struct TChartRequest {
  std::string Url;
  int Kind = 0;
  int PerDay = 1;       ///< charts a day: the fraction of a day that Last-Modified is rounded down to
  TDateTime Requested;  ///< zero when the request names no time
};

/// What the requests of a run depend on.
struct TChartPlan {
  const TServerRoots& Servers;
  std::string BracknellUrl;
  int BackDays = 1;
  TDateTime Start;  ///< when the run began, UTC; fixes the dates of the analyses that come twice a day
  TDateTime Now;    ///< UTC
};

/// The requests of one item (in any letter case), in the order in which they are sent, those of today that
/// are not yet due included; none for an unknown item.
std::vector<TChartRequest> ChartRequests(std::string_view item, const TChartPlan& plan);

/// Whether a chart is asked for at `now`: the picture of a slot of the last half hour is not there yet.
bool IsDue(const TChartRequest& request, TDateTime now);

/// The radar archive's code for the region that `item` (upper case) names. When several region words match,
/// the last one in the list counts. Empty when none matches.
std::string RadarRegionCode(std::string_view item);

/// The chart's time by its kind's rule.
TDateTime ChartTime(const TChartRequest& request, TDateTime last_modified);

/// The chart's file name; empty when the URL gives no safe name.
std::string ChartFileName(const TChartRequest& request, TDateTime chart_time);

/// The servers' charts of one day.
std::vector<TOffer> MetChartOffers(TDateTime day);

/// Fetches weather charts: asks for each chart's header, derives its time from it and downloads what is new
/// into date folders.
class TMetChartsJob {
 public:
  TMetChartsJob(TJobContext& context, TMetChartsSettings settings);
  /// Runs to the end or until a stop is requested. Never throws for a chart that fails.
  void Run();

 private:
  void Fetch(const std::string& item, const TChartRequest& request);

  TJobContext& context_;
  const TMetChartsSettings settings_;
};

}  // namespace skyreel
