#include "demo/picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "base/text.h"

namespace skyreel::demo {

namespace {

struct TPoint {
  double X, Y, Z;
};

double Dot(const TPoint& a, const TPoint& b) {
  return a.X * b.X + a.Y * b.Y + a.Z * b.Z;
}

/// A fixed random number from 0 to 1 for each point of a lattice.
double Lattice(int x, int y, int z, unsigned seed) {
  auto h = static_cast<std::uint32_t>(x) * 0x8DA6B343u ^ static_cast<std::uint32_t>(y) * 0xD8163841u ^
           static_cast<std::uint32_t>(z) * 0xCB1AB31Fu ^ seed * 0x9E3779B9u;
  h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
  h = (h ^ (h >> 12)) * 0x297A2D39u;
  return static_cast<double>(h ^ (h >> 15)) / 4294967295.0;
}

double Mix(double a, double b, double t) {
  return a + (b - a) * t;
}

/// Random values that change smoothly over a distance of about 1.
double Noise(const TPoint& p, unsigned seed) {
  const double fx = std::floor(p.X), fy = std::floor(p.Y), fz = std::floor(p.Z);
  const int x = static_cast<int>(fx), y = static_cast<int>(fy), z = static_cast<int>(fz);
  const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
  const double tx = smooth(p.X - fx), ty = smooth(p.Y - fy), tz = smooth(p.Z - fz);
  const auto row = [&](int dy, int dz) {
    return Mix(Lattice(x, y + dy, z + dz, seed), Lattice(x + 1, y + dy, z + dz, seed), tx);
  };
  return Mix(Mix(row(0, 0), row(1, 0), ty), Mix(row(0, 1), row(1, 1), ty), tz);
}

/// Noise of several scales, each half as large and half as strong as the one before; 0 to 1.
double Layers(TPoint p, int layers, unsigned seed) {
  double sum = 0, weight = 0, strength = 1;
  for (int i = 0; i < layers; ++i) {
    sum += strength * Noise(p, seed + static_cast<unsigned>(i));
    weight += strength;
    strength /= 2;
    p = {p.X * 2.03, p.Y * 2.03, p.Z * 2.03};
  }
  return sum / weight;
}

TPoint TurnedEast(const TPoint& p, double degrees) {
  const double a = degrees * std::numbers::pi / 180;
  return {p.X * std::cos(a) + p.Z * std::sin(a), p.Y, p.Z * std::cos(a) - p.X * std::sin(a)};
}

char Grey(double value) {
  return static_cast<char>(static_cast<unsigned char>(std::clamp(value, 0.0, 1.0) * 255 + 0.5));
}

/// A cheap random sequence for the sensor noise.
class TGrain {
 public:
  explicit TGrain(std::uint32_t seed) : state_(seed) {}
  /// From -strength to +strength.
  int Next(int strength) {
    state_ = state_ * 1664525u + 1013904223u;
    return static_cast<int>(state_ >> 24) % (2 * strength + 1) - strength;
  }

 private:
  std::uint32_t state_;
};

/// Rows of a 5 by 7 letter, the top first; bit 4 is the left column.
struct TGlyph {
  char Letter;
  std::array<unsigned char, 7> Rows;
};

constexpr TGlyph kFont[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x1E}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x01, 0x01, 0x01, 0x01, 0x11, 0x11, 0x0E}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x19, 0x19, 0x15, 0x13, 0x13, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x0A, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x1B, 0x11}}, {'X', {0x11, 0x0A, 0x04, 0x04, 0x04, 0x0A, 0x11}},
    {'Y', {0x11, 0x11, 0x0A, 0x04, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'-', {0x00, 0x00, 0x00, 0x0E, 0x00, 0x00, 0x00}}, {':', {0x00, 0x04, 0x00, 0x00, 0x00, 0x04, 0x00}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x06}}, {'/', {0x01, 0x01, 0x02, 0x04, 0x08, 0x10, 0x10}},
    {'_', {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1F}},
};
constexpr int kGlyphWidth = 5, kGlyphHeight = 7, kGlyphStep = 6;

}  // namespace

TPicture DrawEarth(const TEarthView& view, int width, int height) {
  const double day = view.Time.Days();
  const double hours = (day - std::floor(day)) * 24;
  // At noon UTC the sun stands over Greenwich.
  const TPoint sun = TurnedEast({0, 0.2, 0.98}, view.Longitude + (hours - 12) * 15);
  const double drift = day * 0.7;

  TPicture picture{width, height, std::string(static_cast<std::size_t>(width) * height, '\0')};
  TGrain grain(static_cast<std::uint32_t>(view.Time.Milliseconds() / 60000));
  const double scale = 2.04 / (std::min(width, height) * view.Zoom);
  std::size_t at = 0;
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column, ++at) {
      const double x = (column - width / 2.0) * scale;
      const double y = (height / 2.0 - row) * scale + (view.Zoom > 1 ? 0.45 : 0);
      const double r2 = x * x + y * y;
      double value = 0.03;
      if (r2 < 1) {
        const TPoint facing{x, y, std::sqrt(1 - r2)};
        const TPoint ground = TurnedEast(facing, view.Longitude);
        const bool land = Layers({ground.X * 1.8, ground.Y * 1.8, ground.Z * 1.8}, 5, 7) > 0.53;
        const double bands = 0.06 * std::cos(ground.Y * 9);
        const double cloud = std::clamp(
            (Layers({ground.X * 3 + drift, ground.Y * 4, ground.Z * 3 - drift}, 5, 40) + bands - 0.5) * 5,
            0.0, 1.0);
        const double limb = std::pow(facing.Z, 0.35);
        switch (view.Channel) {
          case TChannel::Visible: {
            const double light = 0.22 + 0.78 * std::clamp(Dot(facing, sun) * 1.6, 0.0, 1.0);
            value = Mix(land ? 0.34 : 0.13, 0.95, cloud) * light * limb;
            break;
          }
          case TChannel::Infrared:
            // Cold is bright: high clouds are white, warm land is darker than the sea.
            value = Mix(land ? 0.24 : 0.36, 0.93, cloud * cloud) * (0.75 + 0.25 * limb);
            break;
          case TChannel::WaterVapour:
            value = 0.3 + 0.5 * Layers({ground.X * 2 + drift, ground.Y * 3, ground.Z * 2 - drift}, 3, 40) *
                              (0.6 + 0.6 * cloud);
            break;
        }
      }
      picture.Pixels[at] = Grey(value + grain.Next(2) / 255.0);
    }
  }
  return picture;
}

TPicture DrawChart(unsigned area, TDateTime time, int width, int height) {
  const double drift = time.Days();
  TPicture picture{width, height, std::string(static_cast<std::size_t>(width) * height, '\xFF')};
  // A line runs where the right or lower neighbour is of another class.
  const auto draw_lines = [&](auto classify, char grey) {
    std::vector<int> above(static_cast<std::size_t>(width) + 1), row(above.size());
    for (int y = 0; y <= height; ++y) {
      for (int x = 0; x <= width; ++x)
        row[static_cast<std::size_t>(x)] = classify(x / double(width), y / double(width));
      for (int x = 0; y > 0 && x < width; ++x) {
        const auto i = static_cast<std::size_t>(x);
        if (above[i] != above[i + 1] || above[i] != row[i])
          picture.Pixels[static_cast<std::size_t>(y - 1) * width + i] = grey;
      }
      std::swap(above, row);
    }
  };
  const double offset = area * 13.7;
  draw_lines(
      [&](double x, double y) {
        return Layers({x * 4 + offset, y * 4, 1}, 5, 7) > 0.52 ? 1 : 0;
      },
      '\x90');
  draw_lines(
      [&](double x, double y) {
        return static_cast<int>(Layers({x * 3 + offset, y * 3, drift}, 2, 90) * 24);
      },
      '\0');
  return picture;
}

TPicture DrawRadar(TDateTime time, int width, int height) {
  const double drift = time.Days() * 10;
  TPicture picture{width, height, {}};
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      const double x = column / double(width) * 5, y = row / double(width) * 5;
      const bool land = Layers({x, y, 3}, 5, 7) > 0.5;
      const double rain = Layers({x * 1.5 - drift, y * 1.5, drift / 4}, 4, 60) - 0.58;
      const int step = rain > 0 ? std::min(4, 1 + static_cast<int>(rain * 25)) : 0;
      picture.Pixels += Grey(step > 0 ? 0.2 + 0.2 * step : land ? 0.14 : 0.05);
    }
  }
  return picture;
}

TPicture Enlarge(const TPicture& picture, int factor) {
  TPicture large{picture.Width * factor, picture.Height * factor, {}};
  large.Pixels.resize(static_cast<std::size_t>(large.Width) * large.Height);
  TGrain grain(1);
  std::size_t at = 0;
  for (int y = 0; y < large.Height; ++y) {
    const std::size_t row = static_cast<std::size_t>(y / factor) * picture.Width;
    for (int x = 0; x < large.Width; ++x, ++at) {
      // Noise in two pixels of nine keeps the picture compressible.
      const int noise = grain.Next(4) / 4;
      const int value = static_cast<unsigned char>(picture.Pixels[row + x / factor]) + noise;
      large.Pixels[at] = static_cast<char>(static_cast<unsigned char>(std::clamp(value, 0, 255)));
    }
  }
  return large;
}

void WriteCaption(TPicture& picture, std::string_view text) {
  const int size = std::max(1, (picture.Width - 4) / (static_cast<int>(text.size()) * kGlyphStep));
  const int dot = std::min(size, std::max(1, picture.Height / 120));
  const int top = picture.Height - (kGlyphHeight + 4) * dot;
  if (top < 0) return;
  std::fill(picture.Pixels.begin() + static_cast<std::ptrdiff_t>(top) * picture.Width, picture.Pixels.end(),
            '\0');
  const auto fill_dot = [&](int x, int y) {
    for (int dy = 0; dy < dot; ++dy) {
      for (int dx = 0; dx < dot; ++dx) {
        if (x + dx < picture.Width)
          picture
              .Pixels[static_cast<std::size_t>(y + dy) * picture.Width + static_cast<std::size_t>(x + dx)] =
              '\xF0';
      }
    }
  };
  int left = 2 * dot;
  for (const char letter : UpperCase(text)) {
    const auto* glyph = std::find_if(std::begin(kFont), std::end(kFont),
                                     [&](const TGlyph& entry) { return entry.Letter == letter; });
    for (int row = 0; glyph != std::end(kFont) && row < kGlyphHeight; ++row) {
      for (int column = 0; column < kGlyphWidth; ++column) {
        if (glyph->Rows[static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1)
          fill_dot(left + column * dot, top + (row + 2) * dot);
      }
    }
    left += kGlyphStep * dot;
  }
}

}  // namespace skyreel::demo
