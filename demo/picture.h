#pragma once

#include <string>
#include <string_view>

#include "base/date_time.h"

namespace skyreel::demo {

/// A grey picture, one byte a pixel, rows from the top.
struct TPicture {
  int Width = 0;
  int Height = 0;
  std::string Pixels;
};

/// How a channel sees the earth.
enum class TChannel { Visible, Infrared, WaterVapour };

/// What an imaginary satellite sees.
struct TEarthView {
  TChannel Channel = TChannel::Visible;
  double Longitude = 0;  ///< degrees east, below the satellite
  double Zoom = 1;       ///< 1: the whole disc fills the picture; larger: a part of its northern half
  TDateTime Time;        ///< UTC; moves the sun and the clouds
};

/// The earth with seas, land, clouds and a darker edge. The same view gives the same picture.
TPicture DrawEarth(const TEarthView& view, int width, int height);

/// A weather chart: coast lines and isobars, black on white. `area` chooses another part of the world.
TPicture DrawChart(unsigned area, TDateTime time, int width, int height);

/// Rain as a radar sees it, in four steps of strength over a dim map.
TPicture DrawRadar(TDateTime time, int width, int height);

/// Every pixel repeated `factor` times both ways, with a little sensor noise like that of real pictures.
TPicture Enlarge(const TPicture& picture, int factor);

/// Writes `text` in a small built-in font (capitals, digits and -:./_ ; anything else is a blank) into a
/// black band along the picture's lower edge.
void WriteCaption(TPicture& picture, std::string_view text);

}  // namespace skyreel::demo
