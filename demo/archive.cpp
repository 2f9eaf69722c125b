#include "demo/archive.h"

#include <regex>

#include "base/exceptions.h"
#include "base/text.h"
#include "demo/encoders.h"
#include "demo/lzw_encoder.h"
#include "demo/picture.h"
#include "sources/dundee_pdus.h"
#include "sources/eu_data.h"
#include "sources/met_charts.h"
#include "sources/msfc_data.h"

namespace skyreel::demo {

namespace {

using namespace std::chrono_literals;

constexpr int kDaysKept = 100;
constexpr std::size_t kMostKeptBytes = 64 << 20;
constexpr std::size_t kLongestPath = 500;

/// A file before its outcome is decided.
struct TMade {
  std::string Content;
  std::string Type;
  TDateTime Modified;
  bool MayStall = false;
};
using TResult = std::optional<TMade>;

/// From "20051110" and "1200"; also "2005-11-10", and the hour "2400" of the day before. Nullopt when that is
/// no time.
std::optional<TDateTime> TimeOf(const std::string& date, const std::string& hhnn) {
  try {
    const std::string digits = ReplaceAll(date, "-", "");
    const TDateTime day = TDateTime::FromDate(ToInteger(digits.substr(0, 4)), ToInteger(digits.substr(4, 2)),
                                              ToInteger(digits.substr(6, 2)));
    if (hhnn == "2400") return day + 24h;
    const int hour = ToInteger(hhnn.substr(0, 2)), minute = ToInteger(hhnn.substr(2, 2));
    if (hour > 23 || minute > 59) return std::nullopt;
    return day + std::chrono::hours(hour) + std::chrono::minutes(minute);
  } catch (const EConvertError&) {
    return std::nullopt;
  }
}

bool Plausible(TDateTime time, TDateTime now) {
  return time <= now && time >= now - std::chrono::days(kDaysKept);
}

/// As TimeOf, but nullopt too when the archive would not have a picture of that time.
std::optional<TDateTime> PictureTime(const std::string& date, const std::string& hhnn, TDateTime now) {
  const auto time = TimeOf(date, hhnn);
  return time && Plausible(*time, now) ? time : std::nullopt;
}

std::string CaptionOf(const std::string& source, TDateTime time) {
  return source + "  " + FormatDateTime("yyyy-mm-dd hh:nn", time) + " UTC";
}

/// A picture of the earth with its caption.
TPicture Earth(const TEarthView& view, const std::string& source, int width, int height, int enlarged = 1) {
  TPicture picture = DrawEarth(view, width, height);
  WriteCaption(picture, CaptionOf(source, view.Time));
  return enlarged == 1 ? picture : Enlarge(picture, enlarged);
}

/// A data file of exactly `size` bytes: a text about it, padded, then the picture's rows.
std::string DataFile(const std::string& source, const TPicture& picture, std::size_t size) {
  std::string file = source + "\n" + std::to_string(picture.Width) + " x " + std::to_string(picture.Height) +
                     " bytes, rows from the top, at the end of this file\n";
  file.resize(size - picture.Pixels.size(), '\0');
  return file += picture.Pixels;
}

// --- EUMETSAT image archive -----------------------------------------------------------------------------

TResult EumetsatPicture(TDateTime time, const std::string& name, TChannel channel, int sector, int width) {
  TEarthView view{channel, 0, 1, time};
  if (sector > 0) {
    view.Zoom = 2.4;
    view.Longitude = (sector - 5) * 12;
  }
  return TMade{EncodeJpeg(Earth(view, name, width, width)), "image/jpeg", time,
               channel == TChannel::Infrared};
}

/// ".../20051110_120000_07_C1D_0.jpg"
TResult EumetsatOldName(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime(m[1], m[2], now);
  if (!time) return std::nullopt;
  const std::string item = m[4];
  const TChannel channel = item[0] == 'C'   ? TChannel::Visible
                           : item[0] == 'E' ? TChannel::WaterVapour
                                            : TChannel::Infrared;
  const int sector = item[1] >= '1' && item[1] <= '9' ? item[1] - '0' : 0;
  return EumetsatPicture(*time, "METEOSAT " + m[3].str() + " " + item, channel, sector, 640);
}

/// ".../SDDI-20051110-1200-BNW-08-VIS006-02-600.jpg"
TResult EumetsatNewName(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime(m[1], m[2], now);
  if (!time) return std::nullopt;
  const std::string name = m[4];
  const TChannel channel = name.starts_with("VIS")  ? TChannel::Visible
                           : name.starts_with("WV") ? TChannel::WaterVapour
                                                    : TChannel::Infrared;
  return EumetsatPicture(*time, "METEOSAT " + m[3].str() + " " + name, channel, ToInteger(m[5].str()),
                         ToInteger(m[6].str()));
}

/// The old naming's listing script: one line a picture of the last days.
TResult EumetsatListing(const std::smatch& m, TDateTime now) {
  const std::string satellite = m[1] == "5" ? "05" : "07";
  const int sector = m[2].str()[0] - '0';
  const char channel = "CDE"[m[3].str()[0] - '1'];
  std::vector<std::string> items;
  if (sector == 0) {
    items = {std::string(1, channel) + "TOT"};
  } else if (channel == 'D') {
    for (const char letter : {'D', 'M', 'O', 'U'}) items.push_back(letter + std::to_string(sector));
  } else {
    items.push_back(channel + std::to_string(sector));
  }
  // The visible sectors are named C1D and so on.
  for (std::string& item : items) {
    if (item.size() == 2 && item[0] == 'C') item += 'D';
  }

  std::string page = "<html><head><script>\nvar images = new Array();\n";
  int frame = 0;
  for (TDateTime slot = (now - std::chrono::days(4)).Midnight(); slot < now; slot = slot + 30min) {
    for (const std::string& item : items) {
      page += "frame" + std::to_string(frame++) + " = \"/~idds/images/out/" +
              FormatDateTime("yyyymmdd_hhnn00_", slot) + satellite + "_" + item + "_0.jpg\";\n";
    }
  }
  page += "number_of_images = " + std::to_string(frame) + ";\n</script></head></html>\n";
  return TMade{page, "text/html", now};
}

// --- Dundee PDUS ----------------------------------------------------------------------------------------

constexpr std::size_t kPdusBytes = 890120;
constexpr int kPdusWidth = 1250, kPdusHeight = 712;

/// All products of the last two days, the oldest first, as the order page lists them.
TResult PdusOrderPage(const std::smatch&, TDateTime now) {
  std::string page = "<html><head><title>Files by date</title></head><body><pre>\n";
  for (int day = 2; day >= 0; --day) {
    const TDateTime date = (now - std::chrono::days(day)).Midnight();
    int area = 0;
    for (const TPdusPage& products : PdusPages()) {
      const char area_letter = static_cast<char>('A' + area++);
      for (const std::string& item : PdusWantedTexts(products.Items)) {
        const auto time = TimeOf(FormatDateTime("yyyymmdd", date), item.substr(0, 4));
        if (!time || *time > now) continue;
        const std::string channel = item.substr(item.rfind(' ') + 1);
        page += "<a href=\"/abin/pdus?name=PDUS" + FormatDateTime("yymmddhhnn", *time) + area_letter +
                channel[0] + "&order=Date\">" + FormatDateTime("dd/mm/yyyy", *time) + " at " + item +
                "</a>\n";
      }
    }
  }
  return TMade{page + "</pre></body></html>\n", "text/html", now};
}

/// "/abin/pdus?name=PDUS0511101230AI&order=Date": area A to F, channel I, V or W
TResult PdusFile(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime("20" + m[1].str(), m[2], now);
  if (!time) return std::nullopt;
  const char area = m[3].str()[0], letter = m[4].str()[0];
  const TChannel channel = letter == 'V'   ? TChannel::Visible
                           : letter == 'W' ? TChannel::WaterVapour
                                           : TChannel::Infrared;
  const double longitudes[] = {0, 0, 140, -75, -135, 63};
  const TEarthView view{channel, longitudes[area - 'A'], area == 'A' ? 2.0 : 1.0, *time};
  const std::string name = "PDUS " + PdusPages().at(static_cast<std::size_t>(area - 'A')).Caption;
  return TMade{DataFile(name, Earth(view, name, kPdusWidth / 2, kPdusHeight / 2, 2), kPdusBytes),
               "application/octet-stream", *time};
}

// --- GOES images ----------------------------------------------------------------------------------------

/// "/goeseast-lzw/conus/vis/0601011745G13I01.tif"
TResult GoesPicture(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime("20" + m[5].str(), m[6], now);
  const bool lzw = m[2].matched;
  if (!time || lzw != (m[8] == "tif")) return std::nullopt;
  const std::string satellite = m[1], sector = m[3], folder = m[4];
  const TChannel channel = folder == "vis"   ? TChannel::Visible
                           : folder == "ir3" ? TChannel::WaterVapour
                                             : TChannel::Infrared;
  const TEarthView view{channel, satellite == "east" ? -75.0 : -135.0, sector == "fulldisk" ? 1.0 : 2.2,
                        *time};
  const TPicture picture = Earth(view, "GOES-" + satellite + " " + sector + " " + folder, 640, 480, 2);
  return TMade{EncodeTiff(picture, lzw), "image/tiff", *time};
}

// --- Weather charts -------------------------------------------------------------------------------------

/// When a chart was made that is asked for without a date: the last time of day that its name gives
/// ("swp_0600_anal.gif"), or the last of every six hours.
TDateTime LastIssue(const std::string& path, TDateTime now) {
  std::smatch m;
  const std::regex hour("_([0-9]{4})_");
  if (!std::regex_search(path, m, hour)) return now.RoundedDown(6h);
  const auto today = TimeOf(FormatDateTime("yyyymmdd", now), m[1]);
  if (!today) return now.RoundedDown(6h);
  return *today <= now ? *today : *today - 24h;
}

/// A chart that Skyreel's own table of chart requests names.
TResult Chart(const std::string& path, TDateTime now) {
  const TServerRoots no_roots;
  // Half an hour ahead, since pictures are asked for once they are that old.
  const std::string bracknell = path.ends_with("/bracka.gif") ? path : "none";
  const TChartPlan plan{no_roots, bracknell, kDaysKept, now, now + 30min};
  unsigned area = 0;
  std::optional<TDateTime> requested;
  for (const std::string& item : MetChartItems()) {
    ++area;
    for (const TChartRequest& request : ChartRequests(item, plan)) {
      if (request.Url == path) requested = request.Requested;
    }
    if (requested) break;
  }
  if (!requested) return std::nullopt;

  TDateTime time = requested->IsZero() ? LastIssue(path, now) : *requested;
  if (path.find("IDX00") != std::string::npos) time = time.Midnight();
  if (path.find("IDX05") != std::string::npos) time = time.Midnight() + 12h;
  if (!Plausible(time, now)) return std::nullopt;

  const std::string name = path.substr(path.rfind('/') + 1);
  TPicture picture = DrawChart(area, time, 640, 480);
  WriteCaption(picture, CaptionOf(name.substr(0, name.rfind('.')), time));
  if (path.ends_with(".zip")) {
    const std::string inside = name.substr(0, name.rfind('.')) + ".gif";
    return TMade{StoreZip(inside, EncodeGif(picture), time), "application/zip", time};
  }
  if (path.ends_with(".gif")) return TMade{EncodeGif(picture), "image/gif", time};
  return TMade{EncodeTiff(picture, true), "image/tiff", time};
}

// --- FTP: EUMETSAT data and MSFC ------------------------------------------------------------------------

constexpr std::size_t kVisibleBytes = 25354344, kInfraredBytes = 6475860, kMsfcBytes = 6321008;

/// "/M7/FES_2003-02-01_1230_M7_IR.OPEN_MTP.bz2"
TResult EuDataFile(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime(m[2], m[3], now);
  if (!time || m[1] != m[4]) return std::nullopt;
  const std::string channel_name = m[5], format = m[6];
  const TChannel channel = channel_name == "VISSN" ? TChannel::Visible
                           : channel_name == "WV"  ? TChannel::WaterVapour
                                                   : TChannel::Infrared;
  const TEarthView view{channel, m[1] == "M5" ? 63.0 : 0.0, 1, *time};
  const std::string name = "METEOSAT-" + m[1].str().substr(1) + " " + channel_name;
  if (format == "GIF") return TMade{EncodeGif(Earth(view, name, 625, 625, 2)), "image/gif", *time};
  const bool visible = channel == TChannel::Visible;
  const std::string data =
      DataFile(name, Earth(view, name, 625, 625, visible ? 8 : 4), visible ? kVisibleBytes : kInfraredBytes);
  return TMade{format == "OPEN_MTP.Z" ? LzwEncode(data) : CompressBz2(data), "application/octet-stream",
               *time};
}

/// "/Weather/METEOSAT-7/McIDAS_areas/ir1/5km/ME7-200302011200.ir1.ara.Z"
TResult MsfcFile(const std::smatch& m, TDateTime now) {
  const auto time = PictureTime(m[2], m[3], now);
  if (!time || m[1] != m[4]) return std::nullopt;
  const TChannel channel = m[1] == "vis"   ? TChannel::Visible
                           : m[1] == "ir2" ? TChannel::WaterVapour
                                           : TChannel::Infrared;
  const std::string name = "METEOSAT-7 " + m[1].str();
  const std::string data = DataFile(name, Earth({channel, 0, 1, *time}, name, 625, 625, 4), kMsfcBytes);
  return TMade{LzwEncode(data), "application/octet-stream", *time};
}

struct TRoute {
  std::regex Path;
  TResult (*Make)(const std::smatch& match, TDateTime now);
};

const std::vector<TRoute>& Routes() {
  static const std::vector<TRoute> routes = {
      {std::regex("/~idds/images/out/(\\d{8})_(\\d{4})00_(\\d\\d)_([C-EMOU][1-9T]\\w{0,2})_0\\.jpg"),
       EumetsatOldName},
      {std::regex(
           "/~idds/images/out/"
           "SDDI-(\\d{8})-(\\d{4})-(?:BNW|RGB)-(\\d\\d)-([A-Z]+(?:_?\\d+)?)-0(\\d)-(600|800|1237)\\.jpg"),
       EumetsatNewName},
      {std::regex("/IDDS-cgi/listImages\\?m=([57]),s=(\\d),c=([123]),.*"), EumetsatListing},
      {std::regex("/abin/filesorder(?:\\?.*)?"), PdusOrderPage},
      {std::regex("/abin/pdus\\?name=PDUS(\\d{6})(\\d{4})([A-F])([IVW])(?:&.*)?"), PdusFile},
      {std::regex("/goes(east|west)(-lzw)?/(\\w+)/(vis|ir3|ir4)/(\\d{6})(\\d{4})(G1[35]I0[134])\\.(tiff?)"),
       GoesPicture},
      {std::regex(
           "/(M[57])/"
           "FES_(\\d{4}-\\d\\d-\\d\\d)_(\\d{4})_(M[57])_(VISSN|IR|WV)\\.(GIF|OPEN_MTP\\.Z|OPEN_MTP\\.bz2)"),
       EuDataFile},
      {std::regex("/Weather/METEOSAT-7/McIDAS_areas/(ir1|ir2|vis)/5km/"
                  "ME7-(\\d{8})(\\d{4})\\.(ir1|ir2|vis)\\.ara\\.Z"),
       MsfcFile},
  };
  return routes;
}

TResult Make(const std::string& path, TDateTime now) {
  std::smatch match;
  for (const TRoute& route : Routes()) {
    if (std::regex_match(path, match, route.Path)) return route.Make(match, now);
  }
  return Chart(path, now);
}

}  // namespace

std::optional<TServedFile> TDemoArchive::Find(const std::string& path) {
  if (path.size() > kLongestPath) return std::nullopt;
  const std::scoped_lock lock(making_);
  if (const auto kept = kept_.find(path); kept != kept_.end()) return kept->second;

  const TDateTime now = now_();
  TResult made = Make(path, now);
  if (!made) return std::nullopt;
  TServedFile file{std::make_shared<const std::string>(std::move(made->Content)), made->Type, made->Modified};
  if (file.Type == "text/html") return file;  // pages change with the time

  const int hour = file.Modified.Parts().Hour;
  if (hour == 3) return std::nullopt;
  if (hour == 9) file.Fault = TFault::Cut;
  if (hour == 21 && made->MayStall) file.Fault = TFault::Stall;

  kept_bytes_ += file.Content->size();
  kept_order_.push_back(path);
  kept_.emplace(path, file);
  while (kept_bytes_ > kMostKeptBytes && kept_order_.size() > 1) {
    const auto oldest = kept_.find(kept_order_.front());
    kept_bytes_ -= oldest->second.Content->size();
    kept_.erase(oldest);
    kept_order_.pop_front();
  }
  return file;
}

std::optional<std::vector<std::string>> TDemoArchive::FolderNames(std::string_view folder) const {
  const TDateTime now = now_();
  std::vector<std::string> names;
  constexpr std::string_view msfc = "/Weather/METEOSAT-7/McIDAS_areas/";
  if (folder == "/") return std::vector<std::string>{"M5", "M7", "Weather"};
  if (folder == "/M5" || folder == "/M7") {
    for (const TEuDataSlot& slot : EuDataSlots(now, 2)) {
      for (const std::string& channel : EuDataChannelItems()) {
        for (const std::string& format : EuDataFormatItems())
          names.push_back(EuDataFileName(slot, folder == "/M5" ? 0 : 1, channel, format));
      }
    }
    return names;
  }
  if (folder.starts_with(msfc) && folder.ends_with("/5km") && folder.size() == msfc.size() + 8) {
    TMsfcSettings all;
    all.Channels = MsfcChannelItems();
    all.Slots = MsfcSlotItems();
    const std::string code = "." + std::string(folder.substr(msfc.size(), 3)) + ".";
    for (const TMsfcFile& file : MsfcFiles(all, now, 2)) {
      if (IsMsfcFileOut(file, now) && file.Name.find(code) != std::string::npos) names.push_back(file.Name);
    }
    if (!names.empty()) return names;
  }
  return std::nullopt;
}

bool TDemoArchive::NeedsLogin(std::string_view path) {
  return path.starts_with("/abin/");
}

}  // namespace skyreel::demo
