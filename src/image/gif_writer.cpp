// Writes GIF89a with giflib. The loop is the application extension "NETSCAPE2.0", which all viewers know.

#include "image/gif_writer.h"

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace skyreel {

namespace {

constexpr int kMostColours = 256;
/// Six bits a channel tell grey levels well enough apart, and the table of all colours is small.
constexpr int kBits = 6;
constexpr int kLevels = 1 << kBits;

using TColour = std::array<std::uint8_t, 3>;  // blue, green, red

[[noreturn]] void Fail(int error) {
  const char* const text = GifErrorString(error);
  throw EInvalidGraphic(std::string("GIF: ") + (text != nullptr ? text : "the file cannot be written"));
}

struct TIndexed {
  std::vector<TColour> Palette;
  std::vector<GifPixelType> Pixels;
};

/// Every pixel by its own colour; false when there are too many colours.
bool IndexExactly(const TExtBitmap& frame, TIndexed& indexed) {
  // A hash table of open addresses; colour + 1, so that 0 is free.
  constexpr std::size_t kSlots = 1024;
  std::array<std::uint32_t, kSlots> keys{};
  std::array<GifPixelType, kSlots> indexes{};
  const auto width = static_cast<std::size_t>(frame.Width());
  auto out = indexed.Pixels.begin();
  for (int y = 0; y < frame.Height(); ++y) {
    const std::uint8_t* pixel = frame.ScanLine(y);
    for (std::size_t x = 0; x < width; ++x, pixel += 3) {
      const std::uint32_t blue = pixel[0], green = pixel[1], red = pixel[2];
      const std::uint32_t key = (blue | green << 8U | red << 16U) + 1;
      std::size_t slot = key * 2654435761U >> 22U;
      while (keys[slot] != 0 && keys[slot] != key) slot = (slot + 1) % kSlots;
      if (keys[slot] == 0) {
        if (indexed.Palette.size() == kMostColours) return false;
        keys[slot] = key;
        indexes[slot] = static_cast<GifPixelType>(indexed.Palette.size());
        indexed.Palette.push_back({pixel[0], pixel[1], pixel[2]});
      }
      *out++ = indexes[slot];
    }
  }
  return true;
}

/// Colours that are cut to six bits a channel, and how many pixels have each.
struct TBin {
  TColour Colour{};
  std::uint32_t Pixels = 0;
};

std::size_t BinOf(const std::uint8_t* pixel) {
  constexpr int kShift = 8 - kBits;
  return ((static_cast<std::size_t>(pixel[0]) >> kShift) * kLevels + (pixel[1] >> kShift)) * kLevels +
         (pixel[2] >> kShift);
}

/// Some of the bins, which become one colour.
struct TBox {
  std::vector<TBin>::iterator Begin, End;
  std::uint64_t Pixels = 0;
  std::size_t Channel = 0;  ///< the one that differs most
  int Width = 0;            ///< by so much

  TBox(std::vector<TBin>::iterator begin, std::vector<TBin>::iterator end) : Begin(begin), End(end) {
    TColour low = {255, 255, 255}, high = {};
    for (auto bin = begin; bin != end; ++bin) {
      Pixels += bin->Pixels;
      for (std::size_t c = 0; c < 3; ++c) {
        low.at(c) = std::min(low.at(c), bin->Colour.at(c));
        high.at(c) = std::max(high.at(c), bin->Colour.at(c));
      }
    }
    for (std::size_t c = 0; c < 3; ++c) {
      if (high.at(c) - low.at(c) <= Width) continue;
      Width = high.at(c) - low.at(c);
      Channel = c;
    }
  }
  /// How much the picture gains when the box is cut.
  double Weight() const { return static_cast<double>(Pixels) * Width * Width; }

  TColour Mean() const {
    std::array<std::uint64_t, 3> sums{};
    for (auto bin = Begin; bin != End; ++bin)
      for (std::size_t c = 0; c < 3; ++c) sums.at(c) += std::uint64_t{bin->Colour.at(c)} * bin->Pixels;
    TColour mean;
    for (std::size_t c = 0; c < 3; ++c)
      mean.at(c) = static_cast<std::uint8_t>((sums.at(c) + Pixels / 2) / Pixels);
    return mean;
  }
};

void IndexByMedianCut(const TExtBitmap& frame, TIndexed& indexed) {
  const auto width = static_cast<std::size_t>(frame.Width());
  std::vector<std::uint32_t> counts(static_cast<std::size_t>(kLevels) * kLevels * kLevels);
  for (int y = 0; y < frame.Height(); ++y) {
    const std::uint8_t* pixel = frame.ScanLine(y);
    for (std::size_t x = 0; x < width; ++x, pixel += 3) ++counts[BinOf(pixel)];
  }
  std::vector<TBin> bins;
  const auto level = [](std::size_t bits) { return static_cast<std::uint8_t>(bits * 255 / (kLevels - 1)); };
  for (std::size_t bin = 0; bin < counts.size(); ++bin) {
    if (counts[bin] == 0) continue;
    bins.push_back({{level(bin / kLevels / kLevels), level(bin / kLevels % kLevels), level(bin % kLevels)},
                    counts[bin]});
  }

  std::vector<TBox> boxes = {{bins.begin(), bins.end()}};
  while (boxes.size() < kMostColours) {
    const auto widest = std::ranges::max_element(boxes, {}, &TBox::Weight);
    if (widest->Width == 0) break;
    const TBox box = *widest;
    std::sort(box.Begin, box.End, [channel = box.Channel](const TBin& a, const TBin& b) {
      return a.Colour.at(channel) < b.Colour.at(channel);
    });
    auto middle = box.Begin;
    for (std::uint64_t pixels = 0; pixels * 2 < box.Pixels && middle != box.End; ++middle)
      pixels += middle->Pixels;
    middle = std::clamp(middle, box.Begin + 1, box.End - 1);
    *widest = TBox(box.Begin, middle);
    boxes.emplace_back(middle, box.End);
  }

  // From here on a bin's count is the index of its colour.
  indexed.Palette.clear();
  for (const TBox& box : boxes) {
    for (auto bin = box.Begin; bin != box.End; ++bin)
      counts[BinOf(bin->Colour.data())] = static_cast<std::uint32_t>(indexed.Palette.size());
    indexed.Palette.push_back(box.Mean());
  }
  auto out = indexed.Pixels.begin();
  for (int y = 0; y < frame.Height(); ++y) {
    const std::uint8_t* pixel = frame.ScanLine(y);
    for (std::size_t x = 0; x < width; ++x, pixel += 3)
      *out++ = static_cast<GifPixelType>(counts[BinOf(pixel)]);
  }
}

TIndexed Indexed(const TExtBitmap& frame) {
  TIndexed indexed;
  indexed.Pixels.resize(static_cast<std::size_t>(frame.Width()) * static_cast<std::size_t>(frame.Height()));
  if (!IndexExactly(frame, indexed)) IndexByMedianCut(frame, indexed);
  return indexed;
}

struct TFreeMap {
  void operator()(ColorMapObject* map) const { GifFreeMapObject(map); }
};

/// giflib takes palettes of 2, 4, ... 256 colours.
std::unique_ptr<ColorMapObject, TFreeMap> MapOf(const std::vector<TColour>& palette) {
  int size = 2;
  while (size < static_cast<int>(palette.size())) size *= 2;
  std::unique_ptr<ColorMapObject, TFreeMap> map(GifMakeMapObject(size, nullptr));
  if (map == nullptr) throw std::bad_alloc();
  for (std::size_t i = 0; i < palette.size(); ++i)
    map->Colors[i] = {.Red = palette[i][2], .Green = palette[i][1], .Blue = palette[i][0]};
  return map;
}

}  // namespace

TGifWriter::TGifWriter(int width, int height, bool loops, std::function<void(std::string_view bytes)> write)
    : width_(width), height_(height), write_(std::move(write)) {
  int error = 0;
  gif_ = EGifOpen(this, Take, &error);
  if (gif_ == nullptr) Fail(error);
  try {
    EGifSetGifVersion(gif_, true);
    Check(EGifPutScreenDesc(gif_, width, height, 8, 0, nullptr));
    if (!loops) return;
    constexpr unsigned char kForever[] = {1, 0, 0};
    Check(EGifPutExtensionLeader(gif_, APPLICATION_EXT_FUNC_CODE));
    Check(EGifPutExtensionBlock(gif_, 11, "NETSCAPE2.0"));
    Check(EGifPutExtensionBlock(gif_, sizeof kForever, kForever));
    Check(EGifPutExtensionTrailer(gif_));
  } catch (...) {
    EGifCloseFile(std::exchange(gif_, nullptr), nullptr);
    throw;
  }
}

TGifWriter::~TGifWriter() {
  if (gif_ != nullptr) EGifCloseFile(gif_, nullptr);
}

void TGifWriter::Add(const TExtBitmap& frame, int hundredths) {
  TIndexed indexed = Indexed(frame);
  const GraphicsControlBlock control{.DisposalMode = DISPOSE_DO_NOT,
                                     .UserInputFlag = false,
                                     .DelayTime = hundredths,
                                     .TransparentColor = NO_TRANSPARENT_COLOR};
  GifByteType block[4];
  EGifGCBToExtension(&control, block);
  Check(EGifPutExtension(gif_, GRAPHICS_EXT_FUNC_CODE, sizeof block, block));
  Check(EGifPutImageDesc(gif_, 0, 0, width_, height_, false, MapOf(indexed.Palette).get()));
  for (int y = 0; y < height_; ++y) {
    GifPixelType* const row = &indexed.Pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_)];
    Check(EGifPutLine(gif_, row, width_));
  }
}

void TGifWriter::Finish() {
  int error = 0;
  const int result = EGifCloseFile(std::exchange(gif_, nullptr), &error);
  if (failure_) std::rethrow_exception(failure_);
  if (result != GIF_OK) Fail(error);
}

/// No exception may leave through the library.
int TGifWriter::Take(GifFileType* gif, const unsigned char* bytes, int count) {
  auto& writer = *static_cast<TGifWriter*>(gif->UserData);
  if (writer.failure_) return 0;
  try {
    writer.write_({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)});
    return count;
  } catch (...) {
    writer.failure_ = std::current_exception();
    return 0;
  }
}

void TGifWriter::Check(int result) const {
  if (failure_) std::rethrow_exception(failure_);
  if (result != GIF_OK) Fail(gif_->Error);
}

}  // namespace skyreel
