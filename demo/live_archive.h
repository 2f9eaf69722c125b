#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "demo/archive.h"

namespace skyreel::demo {

/// What today's servers offer, in three shapes, for the descriptions in demo/sources:
/// pictures.weather.example  a folder of dated JPEG pictures every 10 minutes, with its listing
/// maps.weather.example      a WMS that draws layers of a time dimension, every 15 minutes
/// charts.weather.example    GIF charts under fixed names, every 6 hours
/// It keeps two days. Several threads may use it.
class TLiveArchive {
 public:
  explicit TLiveArchive(TDemoArchive::TNow now) : now_(std::move(now)) {}

  static std::vector<std::string> Hosts();

  /// The file at a host's path, with its query.
  std::optional<TServedFile> Find(std::string_view host, const std::string& path) const;

 private:
  /// Slots of the last two days that are `delay` old, the newest last.
  std::vector<TDateTime> Published(TDateTime::TSpan every, TDateTime::TSpan delay) const;
  std::optional<TServedFile> FindPicture(std::string_view path) const;
  std::optional<TServedFile> FindMap(const std::string& path) const;
  std::optional<TServedFile> FindChart(std::string_view path) const;

  TDemoArchive::TNow now_;
};

}  // namespace skyreel::demo
