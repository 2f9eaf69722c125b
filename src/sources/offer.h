#pragma once

#include <string>

#include "base/date_time.h"

namespace skyreel {

/// A file that a source's server has. The demo archive makes up such files.
struct TOffer {
  enum class TPicture { Visible, Infrared, WaterVapour, Chart };
  /// By the first letter of a channel's name: V, W, or anything else for infra-red.
  static constexpr TPicture PictureOf(char channel) {
    if (channel == 'V' || channel == 'v') return TPicture::Visible;
    return channel == 'W' ? TPicture::WaterVapour : TPicture::Infrared;
  }

  std::string Path;   ///< below the server's root, with its query
  TDateTime Time;     ///< of the picture, UTC
  std::string Title;  ///< what the picture shows: "GOES-E conus vis"
  TPicture Picture = TPicture::Infrared;
  int Width = 640;  ///< pixels
  int Height = 480;
  /// Bytes of a data file before it is compressed; 0 for a picture, whose format is the path's extension.
  std::size_t DataSize = 0;
  double Longitude = 0;       ///< degrees east, below the satellite
  double Zoom = 1;            ///< 1 shows the whole disc
  std::string ListedAt = {};  ///< path of the server's page that lists the file; empty: none does
};

}  // namespace skyreel
