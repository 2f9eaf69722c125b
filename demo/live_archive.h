#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "demo/stand_in.h"

namespace skyreel::demo {

/// What today's servers offer: draws the pictures that the descriptions of a folder ask for, with a radar,
/// a chart or the earth by the source's group. Some go wrong on purpose: of "example.weather.clouds" pictures
/// are missing or cut, and "example.weather.station" has an error page for a picture. Several threads may use
/// it.
class TLiveArchive {
 public:
  /// Reads the folder's descriptions. Throws std::runtime_error when one is wrong.
  TLiveArchive(TDemoArchive::TNow now, const std::filesystem::path& folder);

  std::vector<std::string> Hosts() const { return hosts_; }
  /// The file at a host's path, with its query.
  std::optional<TServedFile> Find(const std::string& host, const std::string& path) {
    return stand_in_.Find(host, path);
  }

 private:
  std::vector<TDescription> sources_;
  std::vector<std::string> hosts_;
  TStandIn stand_in_;
};

}  // namespace skyreel::demo
