#include "demo/live_archive.h"

#include <algorithm>
#include <stdexcept>

#include "base/text.h"
#include "catalogue/catalogue.h"
#include "demo/encoders.h"
#include "demo/picture.h"

namespace skyreel::demo {

namespace {

constexpr int kSide = 600;
constexpr int kMostPixels = 2000;

/// What goes wrong on purpose, in the slots whose "hhnn" begins with Time.
struct TPlannedFault {
  enum class TKind { Missing, Cut, ErrorPage };
  std::string_view Source, Time;
  TKind Kind;
};
using enum TPlannedFault::TKind;
constexpr TPlannedFault kFaults[] = {{"example.weather.clouds", "03", Missing},
                                     {"example.weather.clouds", "1520", Missing},
                                     {"example.weather.clouds", "0910", Cut},
                                     {"example.weather.station", "", ErrorPage}};

/// The number of pixels that an address asks for: "width=400".
int Pixels(const std::string& address, std::string_view name) {
  const std::size_t at = LowerCase(address).find(name);
  if (at == std::string::npos) return kSide;
  const std::size_t begin = at + name.size();
  const std::string_view digits = std::string_view(address).substr(begin, address.find('&', begin) - begin);
  return std::clamp(ParseNumber<int>(digits).value_or(kSide), 1, kMostPixels);
}

TPicture Draw(const TStandInFile& file) {
  const int width = Pixels(file.Address, "width="), height = Pixels(file.Address, "height=");
  const std::string& group = file.Source.Group;
  if (group == "Radar") return DrawRadar(file.Slot, width, height);
  if (group == "Charts") {
    const auto area = static_cast<unsigned>(file.Combination.empty() ? 0 : file.Combination[0]);
    return DrawChart(area + 3, file.Slot, width, height);
  }
  TEarthView view{TChannel::Infrared, 0, 1, file.Slot};
  for (const auto& [name, channel] : {std::pair("visible", TChannel::Visible),
                                      {"vapour", TChannel::WaterVapour},
                                      {"true-colour", TChannel::Visible}})
    if (file.Address.find(name) != std::string::npos) view.Channel = channel;
  // A picture of a whole day shows it at noon.
  if (group == "Polar") view.Time = view.Time + std::chrono::hours(12);
  if (width != height) view.Longitude = 10, view.Zoom = 2.5;
  return DrawEarth(view, width, height);
}

/// The part of a picture that a tile shows.
TPicture Tile(const TPicture& picture, const TStandInFile& file) {
  TPicture tile{picture.Width / file.Columns, picture.Height / file.Rows, {}};
  for (int y = 0; y < tile.Height; ++y)
    tile.Pixels.append(
        picture.Pixels,
        static_cast<std::size_t>((file.Row * tile.Height + y) * picture.Width + file.Column * tile.Width),
        static_cast<std::size_t>(tile.Width));
  return tile;
}

std::optional<TServedFile> Make(const TStandInFile& file) {
  const auto fault = std::ranges::find_if(kFaults, [&](const TPlannedFault& each) {
    return file.Source.Id == each.Source && FormatDateTime("hhnn", file.Slot).starts_with(each.Time);
  });
  const auto is = [&](TPlannedFault::TKind kind) {
    return fault != std::end(kFaults) && fault->Kind == kind;
  };
  if (is(Missing)) return std::nullopt;
  if (is(ErrorPage)) {
    return TServedFile{std::make_shared<const std::string>("<html><body>Closed for repairs.</body></html>\n"),
                       "text/html",
                       {}};
  }
  TPicture picture = Draw(file);
  std::string title = file.Source.Title;
  if (!file.Combination.empty()) title += ", " + LabelOf(file.Source, file.Combination);
  WriteCaption(picture, title + "  " + FormatDateTime("yyyy-mm-dd hh:nn", file.Slot) + " UTC");
  picture = Tile(picture, file);
  std::string content = file.Way.Type == TFileType::Gif    ? EncodeGif(picture)
                        : file.Way.Type == TFileType::Tiff ? EncodeTiff(picture, true)
                                                           : EncodeJpeg(picture);
  if (is(Cut)) content.resize(content.size() / 2);
  return TServedFile{std::make_shared<const std::string>(std::move(content)), "image", {}};
}

}  // namespace

TLiveArchive::TLiveArchive(TDemoArchive::TNow now, const std::filesystem::path& folder)
    : stand_in_(now, Make) {
  const TCatalogue catalogue = LoadCatalogue({}, {{}, folder});
  for (const TProblem& problem : catalogue.Problems) throw std::runtime_error(problem.Message());
  for (const TCatalogueEntry& entry : catalogue.Entries) sources_.push_back(*entry.Description);
  std::set<std::string> hosts;
  for (const TDescription& source : sources_) {
    AddStandInHosts(source, now(), hosts);
    for (std::size_t way = 0; way < source.Ways.size(); ++way) stand_in_.Add(source, way, AllRows(source));
  }
  hosts_.assign(hosts.begin(), hosts.end());
}

}  // namespace skyreel::demo
