#include "demo/live_archive.h"

#include <algorithm>
#include <map>

#include "base/text.h"
#include "catalogue/address.h"
#include "demo/encoders.h"
#include "demo/picture.h"

namespace skyreel::demo {

namespace {

using std::chrono::hours;
using std::chrono::minutes;

constexpr hours kKept{48};
constexpr int kSide = 600;
constexpr int kMostPixels = 2000;
constexpr const char* kPictureHost = "pictures.weather.example";
constexpr const char* kMapHost = "maps.weather.example";
constexpr const char* kChartHost = "charts.weather.example";

constexpr std::pair<const char*, TChannel> kChannels[] = {
    {"visible", TChannel::Visible}, {"infrared", TChannel::Infrared}, {"vapour", TChannel::WaterVapour}};
constexpr const char* kCharts[] = {"europe", "north_atlantic"};

TServedFile Served(std::string content, const char* type, TDateTime modified) {
  return {std::make_shared<const std::string>(std::move(content)), type, modified};
}

void Caption(TPicture& picture, const std::string& title, TDateTime slot) {
  WriteCaption(picture, title + "  " + FormatDateTime("yyyy-mm-dd hh:nn", slot) + " UTC");
}

/// The parameters of an address, their names in upper case.
std::map<std::string, std::string> Query(std::string_view path) {
  std::map<std::string, std::string> query;
  for (std::size_t at = path.find('?'); at < path.size();) {
    const std::size_t end = std::min(path.find('&', at + 1), path.size());
    const std::string_view parameter = path.substr(at + 1, end - at - 1);
    const std::size_t equals = std::min(parameter.find('='), parameter.size());
    query[UpperCase(parameter.substr(0, equals))] =
        PercentDecode(parameter.substr(std::min(equals + 1, parameter.size())));
    at = end;
  }
  return query;
}

}  // namespace

std::vector<std::string> TLiveArchive::Hosts() {
  return {kPictureHost, kMapHost, kChartHost};
}

std::optional<TServedFile> TLiveArchive::Find(std::string_view host, const std::string& path) const {
  if (host == kPictureHost) return FindPicture(path);
  if (host == kMapHost) return FindMap(path);
  if (host == kChartHost) return FindChart(path);
  return std::nullopt;
}

std::vector<TDateTime> TLiveArchive::Published(TDateTime::TSpan every, TDateTime::TSpan delay) const {
  const TDateTime newest = (now_() - delay).RoundedDown(every);
  std::vector<TDateTime> slots;
  for (TDateTime slot = newest - kKept; slot <= newest; slot = slot + every) slots.push_back(slot);
  return slots;
}

std::optional<TServedFile> TLiveArchive::FindPicture(std::string_view path) const {
  constexpr minutes kDelay{8};
  for (const auto& [name, channel] : kChannels) {
    const std::string folder = std::string("/disc/") + name + "/";
    if (!path.starts_with(folder)) continue;
    std::string page = "<html><head><title>Index of " + folder + "</title></head><body>\n<h1>Index of " +
                       folder + "</h1><hr><pre><a href=\"../\">../</a>\n";
    for (const TDateTime slot : Published(minutes(10), kDelay)) {
      const std::string file = FormatDateTime("yyyymmdd_hhnn", slot) + "_disc-" + name + ".jpg";
      if (path == folder + file) {
        TPicture picture = DrawEarth({channel, 0, 1, slot}, kSide, kSide);
        Caption(picture, std::string("Disc ") + name, slot);
        return Served(EncodeJpeg(picture), "image/jpeg", slot + kDelay);
      }
      page += "<a href=\"" + file + "\">" + file + "</a>" +
              FormatDateTime("    dd-mmm-yyyy hh:nn", slot + kDelay) + "     60K\n";
    }
    if (path == folder) return Served(page + "</pre><hr></body></html>\n", "text/html", now_());
  }
  return std::nullopt;
}

std::optional<TServedFile> TLiveArchive::FindMap(const std::string& path) const {
  if (!path.starts_with("/wms?")) return std::nullopt;
  constexpr const char* kTime = "yyyy-mm-dd'T'hh:nn:ss'Z'";
  std::map<std::string, std::string> query = Query(path);
  const std::vector<TDateTime> slots = Published(minutes(15), minutes(12));
  const std::string start = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  if (query["REQUEST"] == "GetCapabilities") {
    std::string document =
        start +
        "<WMS_Capabilities version=\"1.3.0\" xmlns=\"http://www.opengis.net/wms\">\n"
        "<Service><Name>WMS</Name><Title>Demo maps</Title></Service>\n<Capability><Layer>\n";
    for (const auto& [name, channel] : kChannels) {
      document += std::string("<Layer><Name>") + name + "</Name><Dimension name=\"time\" units=\"ISO8601\">" +
                  FormatDateTime(kTime, slots.front()) + "/" + FormatDateTime(kTime, slots.back()) +
                  "/PT15M</Dimension></Layer>\n";
    }
    return Served(document + "</Layer></Capability>\n</WMS_Capabilities>\n", "text/xml", now_());
  }
  const auto side = [&](const char* name) { return ParseNumber<int>(query[name]).value_or(0); };
  const int width = side("WIDTH"), height = side("HEIGHT");
  for (const auto& [name, channel] : kChannels) {
    if (query["LAYERS"] != std::string("demo:") + name || std::min(width, height) < 100 ||
        std::max(width, height) > kMostPixels)
      continue;
    for (const TDateTime slot : slots) {
      if (query["TIME"] != FormatDateTime(kTime, slot)) continue;
      TPicture picture = DrawEarth({channel, 10, 2.5, slot}, width, height);
      Caption(picture, std::string("Europe ") + name, slot);
      return Served(EncodeJpeg(picture), "image/jpeg", slot + minutes(12));
    }
  }
  // As such servers do, it reports an error with status 200.
  return Served(
      start +
          "<ServiceExceptionReport version=\"1.3.0\"><ServiceException code=\"InvalidDimensionValue\">"
          "There is no such picture.</ServiceException></ServiceExceptionReport>\n",
      "text/xml", now_());
}

std::optional<TServedFile> TLiveArchive::FindChart(std::string_view path) const {
  constexpr minutes kDelay{70};
  const TDateTime slot = Published(hours(6), kDelay).back();
  for (unsigned area = 0; area < std::size(kCharts); ++area) {
    if (path != std::string("/analysis/") + kCharts[area] + ".gif") continue;
    TPicture picture = DrawChart(area + 3, slot, 800, kSide);
    Caption(picture, kCharts[area], slot);
    return Served(EncodeGif(picture), "image/gif", slot + kDelay);
  }
  return std::nullopt;
}

}  // namespace skyreel::demo
