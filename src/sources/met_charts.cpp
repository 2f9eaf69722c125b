#include "sources/met_charts.h"

#include <array>
#include <exception>
#include <filesystem>
#include <utility>

#include "base/files.h"
#include "base/text.h"
#include "net/nm_http.h"
#include "transfer/http_fetch.h"
#include "transfer/http_header.h"
#include "transfer/run_record.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace {

using namespace std::chrono_literals;

constexpr TServerSetting kOceanPrediction{"ServerOceanPrediction", "NOAA Ocean Prediction Center",
                                          "http://www.opc.ncep.noaa.gov"};
constexpr TServerSetting kWeatherFax{"ServerWeatherFax", "NOAA weather fax", "http://weather.noaa.gov"};
constexpr TServerSetting kHurricaneCentre{"ServerHurricaneCentre", "NOAA hurricane centre",
                                          "http://www.nhc.noaa.gov"};
constexpr TServerSetting kRadarArchive{"ServerRadarArchive", "Dutch radar archive",
                                       "http://radar-archive.example"};
constexpr TServerSetting kDutchWeather{"ServerDutchWeather", "Dutch weather site",
                                       "http://weather-site.example"};
constexpr TServerSetting kKarlsruhe{"ServerKarlsruhe", "Karlsruhe university archive",
                                    "http://www.wetterzentrale.de"};
constexpr TServerSetting kNewZealand{"ServerNewZealand", "New Zealand weather service",
                                     "http://www.metservice.co.nz"};
constexpr TServerSetting kAustralia{"ServerAustralia", "Australian Bureau of Meteorology",
                                    "http://www.bom.gov.au"};

/// The times for which a source's charts are asked for.
enum class TWhen {
  Once,          ///< one request, no time named
  MorningDate,   ///< the date an hour before the run began
  EveningDate,   ///< the date thirteen hours before the run began
  PastDays,      ///< each day before today
  QuarterHours,  ///< today, all day, and the days before, in steps of 15 minutes
  HalfHours,     ///< today, all day, and the days before, in steps of 30 minutes
};

struct TChart {
  const char* Path;  ///< a FormatDateTime pattern of the time that is asked for
  int Kind;
};

struct TChartSource {
  const char* Item;  ///< in upper case
  const TServerSetting* Server;
  TWhen When;
  int PerDay;
  std::vector<TChart> Charts;
};

// Requests go out in the order of the rows, and within a row time by time.
const std::vector<TChartSource>& ChartSources() {
  static const std::vector<TChartSource> sources = {
      {"MID ATLANTIC 500MB FORECAST", &kOceanPrediction, TWhen::Once, 1, {{"'/shtml/ppag50bw.gif'", 11}}},
      {"NORTH ATLANTIC 500MB", &kOceanPrediction, TWhen::Once, 1, {{"'/shtml/ppaa50bw.gif'", 10}}},
      {"CENTRAL ATLANTIC", &kWeatherFax, TWhen::Once, 1, {{"'/pub/fax/QPAA99.TIF'", 9}}},
      {"EAST PACIFIC CYCLONE", &kHurricaneCentre, TWhen::Once, 1, {{"'/tafb/PACFUL_00Zbw.gif'", 13}}},
      {"NORTH-WEST PACIFIC CYCLONE", &kOceanPrediction, TWhen::Once, 1, {{"'/shtml/pyba02bw.gif'", 12}}},
      {"RAIN RADAR (CENTRAL EUROPE)",
       &kDutchWeather,
       TWhen::QuarterHours,
       1,
       {{"'/daten/radar/nleurg/'yyyy/mm/ddhhnn'.gif'", 8}}},
      {"LIGHTNING (EUROPE)",
       &kDutchWeather,
       TWhen::HalfHours,
       1,
       {{"'/daten/blitze/'yyyy/mm/'euro'ddhhnn'.gif'", 7}}},
      {"KARLSRUHE (LIGHTNING)",
       &kKarlsruhe,
       TWhen::PastDays,
       1,
       {{"'/wz/pics/archive/'yyyy'/sfloc/Rsfloc'yyyymmdd'.gif'", 5},
        {"'/wz/pics/archive/'yyyy'/sfloc/Rsfloc2'yyyymmdd'.gif'", 6}}},
      {"NEW ZEALAND",
       &kNewZealand,
       TWhen::Once,
       4,
       {{"'/data/swp_0000_anal.gif'", 1},
        {"'/data/swp_0600_anal.gif'", 1},
        {"'/data/swp_1200_anal.gif'", 1},
        {"'/data/swp_1800_anal.gif'", 1},
        {"'/data/tnz_0000_anal.gif'", 2},
        {"'/data/tnz_0600_anal.gif'", 2},
        {"'/data/tnz_1200_anal.gif'", 2},
        {"'/data/tnz_1800_anal.gif'", 2}}},
      {"AUSTRALIA",
       &kAustralia,
       TWhen::MorningDate,
       2,
       {{"'/difacs/archives/'yyyy/mm'/IDX0032.'yyyymmdd'.gif'", 4}}},
      {"AUSTRALIA",
       &kAustralia,
       TWhen::EveningDate,
       2,
       {{"'/difacs/archives/'yyyy/mm'/IDX0532.'yyyymmdd'.gif'", 4}}},
      {"AUSTRALIA",
       &kAustralia,
       TWhen::MorningDate,
       2,
       {{"'/difacs/archives/'yyyy/mm'/IDX0033.'yyyymmdd'.gif'", 3}}},
      {"AUSTRALIA",
       &kAustralia,
       TWhen::EveningDate,
       2,
       {{"'/difacs/archives/'yyyy/mm'/IDX0533.'yyyymmdd'.gif'", 3}}},
  };
  return sources;
}

constexpr std::array<TChartKind, 15> kKinds = {{
    {"'bracka_'hhnn'.gif'", TChartTime::LastModifiedRounded, 0, false},
    {"'nz_swp_'hhnn'.gif'", TChartTime::LastModifiedRounded, 0, false},
    {"'nz_tnz_'hhnn'.gif'", TChartTime::LastModifiedRounded, 0, false},
    {"'aus_ind_'hhnn'.gif'", TChartTime::LastModifiedRounded, 0, false},
    {"'aus_pac_'hhnn'.gif'", TChartTime::LastModifiedRounded, 0, false},
    {"'Rsfloc.gif'", TChartTime::LastModified, 0, false},
    {"'Rsfloc2.gif'", TChartTime::LastModified, 0, false},
    {"'blitz_eu_'hhnn'.gif'", TChartTime::Requested, 5000, true},
    {"'radar_eu_'hhnn'.gif'", TChartTime::Requested, 5000, true},
    {"'QPAA99.tif'", TChartTime::LastModifiedDay, 0, false},
    {"'ppaa50bw.gif'", TChartTime::LastModifiedDay, 0, false},
    {"'ppag50bw.gif'", TChartTime::LastModifiedDay, 0, false},
    {"'pyba02bw.gif'", TChartTime::LastModifiedDay, 0, false},
    {"'PACFUL_00Zbw.gif'", TChartTime::LastModifiedDay, 0, false},
    {nullptr, TChartTime::Requested, 0, false},
}};

/// A Last-Modified up to this date counts as missing.
const TDateTime kOldestDate = TDateTime::FromDate(1960, 1, 1);
/// How far a server's clock may be ahead. Nobody would look for a chart that is filed further in the future.
constexpr auto kClockTolerance = 24h;
/// Between a download and the next request.
constexpr auto kPause = 150ms;

constexpr std::string_view kRadarArchivePrefix = "RAIN RADAR (MM)";

/// Midnight of each day before today, yesterday first.
std::vector<TDateTime> PastDays(const TChartPlan& plan) {
  std::vector<TDateTime> times;
  for (int d = 1; d <= plan.BackDays; ++d) times.push_back((plan.Now - std::chrono::days(d)).Midnight());
  return times;
}

/// The times of today and the days before, today first.
std::vector<TDateTime> TimesOfDays(const TChartPlan& plan, std::chrono::minutes step) {
  std::vector<TDateTime> times;
  for (int d = 0; d < plan.BackDays; ++d) {
    const TDateTime day = (plan.Now - std::chrono::days(d)).Midnight();
    for (TDateTime time = day; time < day + 24h; time = time + step) times.push_back(time);
  }
  return times;
}

std::vector<TDateTime> TimesOf(TWhen when, const TChartPlan& plan) {
  switch (when) {
    case TWhen::MorningDate:
      return {plan.Start - 1h};
    case TWhen::EveningDate:
      return {plan.Start - 13h};
    case TWhen::PastDays:
      return PastDays(plan);
    case TWhen::QuarterHours:
      return TimesOfDays(plan, 15min);
    case TWhen::HalfHours:
      return TimesOfDays(plan, 30min);
    case TWhen::Once:
      break;
  }
  return {TDateTime()};
}

/// The picture line with the reason added. A request that cannot be sent reads " - timed out", too.
std::string ChartLine(const TFileResult& result) {
  switch (result.Outcome) {
    case TFileOutcome::Incomplete:
    case TFileOutcome::Refused:
      return PictureLine(result) + ": " + result.Reason;
    case TFileOutcome::NotAsked:
      return result.Name + " - timed out";
    default:
      return PictureLine(result);
  }
}

}  // namespace

std::vector<TServerSetting> MetChartServers() {
  return {kOceanPrediction, kWeatherFax, kHurricaneCentre, kRadarArchive,
          kDutchWeather,    kKarlsruhe,  kNewZealand,      kAustralia};
}

const std::vector<std::string>& MetChartItems() {
  static const std::vector<std::string> items = {"Australia",
                                                 "Bracknell",
                                                 "Central Atlantic",
                                                 "Mid Atlantic 500mb forecast",
                                                 "New Zealand",
                                                 "North Atlantic 500mb",
                                                 "Lightning (Europe)",
                                                 "Karlsruhe (lightning)",
                                                 "Rain radar (central Europe)",
                                                 "Rain radar (MM) Western Europe",
                                                 "Rain radar (MM) Central Europe",
                                                 "Rain radar (MM) UK",
                                                 "Rain radar (MM) Netherlands",
                                                 "Rain radar (MM) Denmark",
                                                 "Rain radar (MM) France",
                                                 "East Pacific cyclone",
                                                 "North-west Pacific cyclone"};
  return items;
}

const TChartKind& ChartKind(int kind) {
  return kKinds.at(static_cast<std::size_t>(kind));
}

std::string RadarRegionCode(std::string_view item) {
  constexpr std::pair<std::string_view, const char*> regions[] = {
      {"CENTRAL EUROPE", "r-ce"}, {"DENMARK", "r-dk"},       {"NETHERLANDS", "r-nl"}, {"UK", "r-uk"},
      {"FRANCE", "r-fr"},         {"WESTERN EUROPE", "r-we"}};
  std::string code;
  for (const auto& [word, region_code] : regions) {
    if (item.find(word) != std::string_view::npos) code = region_code;
  }
  return code;
}

std::vector<TChartRequest> ChartRequests(std::string_view item, const TChartPlan& plan) {
  const std::string wanted = UpperCase(item);
  if (wanted == "BRACKNELL") return {{plan.BracknellUrl, 0, 4, {}}};

  std::vector<TChartRequest> requests;
  if (wanted.starts_with(kRadarArchivePrefix)) {
    const std::string code = RadarRegionCode(wanted);
    if (code.empty()) return {};
    for (const TDateTime day : PastDays(plan)) {
      requests.push_back(
          {plan.Servers.Root(kRadarArchive) + "/data/gss/" + code + FormatDateTime("yymmdd", day) + ".zip",
           14, 1, day});
    }
    return requests;
  }
  for (const TChartSource& source : ChartSources()) {
    if (wanted != source.Item) continue;
    for (const TDateTime time : TimesOf(source.When, plan)) {
      for (const TChart& chart : source.Charts) {
        requests.push_back({plan.Servers.Root(*source.Server) + FormatDateTime(chart.Path, time), chart.Kind,
                            source.PerDay, time});
      }
    }
  }
  return requests;
}

bool IsDue(const TChartRequest& request, TDateTime now) {
  return !ChartKind(request.Kind).PresentBySize || request.Requested < now - 30min;
}

TDateTime ChartTime(const TChartRequest& request, TDateTime last_modified) {
  switch (ChartKind(request.Kind).Time) {
    case TChartTime::LastModifiedRounded:
      return last_modified.RoundedDown(TDateTime::TSpan(24h) / request.PerDay);
    case TChartTime::LastModified:
      return last_modified;
    case TChartTime::LastModifiedDay:
      return last_modified.Midnight();
    case TChartTime::Requested:
      break;
  }
  return request.Requested;
}

std::string ChartFileName(const TChartRequest& request, TDateTime chart_time) {
  const TChartKind& kind = ChartKind(request.Kind);
  if (kind.Name != nullptr) return FormatDateTime(kind.Name, chart_time);
  const std::string name = request.Url.substr(request.Url.rfind('/') + 1);
  return IsSafeFileName(name) ? name : std::string();
}

std::vector<TOffer> MetChartOffers(TDateTime day) {
  std::vector<TOffer> offers;
  TServerRoots paths_only;
  for (const TServerSetting& server : MetChartServers()) paths_only.Set(server, "");
  // An hour into the next day all charts of this one are out.
  const TDateTime midnight = day.Midnight();
  const TChartPlan plan{paths_only, "/wz/pics/bracka.gif", 2, midnight + 1h, midnight + 25h};
  for (const std::string& item : MetChartItems()) {
    for (const TChartRequest& request : ChartRequests(item, plan)) {
      if (!IsDue(request, plan.Now)) continue;
      TOffer offer{request.Url, request.Requested, item, TOffer::TPicture::Chart};
      if (!request.Requested.IsZero()) {
        offers.push_back(std::move(offer));
        continue;
      }
      // A chart without a date in its path may name its time of day, "swp_0600_anal".
      for (const auto& [hour, name] :
           {std::pair(0h, "_0000_"), {6h, "_0600_"}, {12h, "_1200_"}, {18h, "_1800_"}}) {
        const bool named = request.Url.find("00_anal") != std::string::npos;
        if (named && request.Url.find(name) == std::string::npos) continue;
        offer.Time = midnight + hour;
        offers.push_back(offer);
      }
    }
  }
  return offers;
}

TMetChartsJob::TMetChartsJob(TJobContext& context, TMetChartsSettings settings)
    : context_(context), settings_(std::move(settings)) {}

void TMetChartsJob::Run() {
  const TDateTime start = context_.Clock.UtcNow();
  for (const std::string& item : settings_.Sources) {
    const TChartPlan plan{context_.Servers, settings_.BracknellUrl, context_.Shared.BackDays, start,
                          context_.Clock.UtcNow()};
    for (const TChartRequest& request : ChartRequests(item, plan)) {
      if (context_.Run.StopRequested()) return;
      // A run may take hours, and pictures become due meanwhile.
      if (IsDue(request, context_.Clock.UtcNow())) Fetch(item, request);
    }
  }
}

void TMetChartsJob::Fetch(const std::string& item, const TChartRequest& request) {
  const TChartKind& kind = ChartKind(request.Kind);
  const auto local_path = [&](TDateTime time) {
    return std::filesystem::path(settings_.OutputPath) / DateFolder(time) / ChartFileName(request, time);
  };
  const std::string shown = UrlForDisplay(request.Url);
  TWantedFile wanted{item, request.Requested, {}, shown};
  if (kind.Time == TChartTime::Requested) wanted.Path = local_path(request.Requested);
  if (kind.PresentBySize && FileSizeOf(wanted.Path) > kind.MinimumSize &&
      context_.Ledger.Present(wanted.Path))
    return CountPresent(context_, std::move(wanted));

  TFileResult result;
  result.Source = context_.Source;
  result.Product = item;
  result.SlotTime = request.Requested;
  result.Name = result.Address = shown;
  result.Outcome = TFileOutcome::Refused;
  // Without a line where that is normal.
  const auto end = [&](const std::string& reason, bool with_line) {
    result.Reason = reason;
    EndFile(context_, result, with_line ? shown + " - " + reason : "");
  };
  const auto refuse = [&](const std::string& reason) { end("refused: " + reason, true); };
  THttpFileInfo info;
  try {
    info = AskHttpFileInfo(context_, request.Url, wanted);
  } catch (const ESockError& error) {
    result.Outcome = TFileOutcome::TimedOut;
    return end(error.what(), false);  // the next run asks again
  } catch (const std::exception& error) {
    result.Outcome = TFileOutcome::NotAsked;
    return end(error.what(), true);
  }
  if (info.ReplyCode >= 400) {
    const bool absent = IsAbsent(info.ReplyCode);
    if (absent) result.State = TFileState::Missing;
    return end("refused by the server: " + std::to_string(info.ReplyCode), !absent);
  }
  if (!info.Readable || info.LastModified <= kOldestDate) {
    result.State = TFileState::Missing;
    return end("the server names no usable date", false);
  }
  if (kind.Time != TChartTime::Requested && info.LastModified > context_.Clock.UtcNow() + kClockTolerance) {
    return refuse("dated in the future, " + FormatDateTime("yyyy-mm-dd", info.LastModified));
  }

  const TDateTime time = ChartTime(request, info.LastModified);
  const std::filesystem::path path = local_path(time);
  if (path.filename().empty()) return refuse("unsafe file name");
  if (info.ContentLength <= kind.MinimumSize) {
    result.State = TFileState::Missing;
    return end("the server's file is too small", false);
  }
  if (FileSizeOf(path) == info.ContentLength && context_.Ledger.Present(path))
    return CountPresent(context_, {item, time, path, shown});

  THttpFileRequest file;
  file.Url = request.Url;
  file.GetLine = "Get " + shown;
  file.Name = shown;
  file.Product = item;
  file.SlotTime = time;
  file.LocalPath = path;
  file.Delivery = TDelivery::Direct;
  file.GoodSize = kind.MinimumSize + 1;
  file.CompleteSize = info.ContentLength;
  file.AfterSaving = [this](TFileResult&) { context_.Clock.Sleep(kPause); };
  file.Line = ChartLine;
  FetchHttpFile(context_, file);
}

}  // namespace skyreel
