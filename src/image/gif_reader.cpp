// Reads the first picture of a GIF file with giflib, at its place on the logical screen. A screen that is too
// small for the picture becomes larger.

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

[[noreturn]] void Fail(const std::string& what) {
  throw EInvalidGraphic("GIF: " + what);
}

[[noreturn]] void FailWithCode(int error) {
  const char* const text = GifErrorString(error);
  Fail(text != nullptr ? text : "file is corrupt");
}

int ReadBytes(GifFileType* gif, GifByteType* buffer, int count) {
  auto& rest = *static_cast<std::string_view*>(gif->UserData);
  const std::size_t taken = std::min(rest.size(), static_cast<std::size_t>(std::max(count, 0)));
  if (taken > 0) std::memcpy(buffer, rest.data(), taken);
  rest.remove_prefix(taken);
  return static_cast<int>(taken);
}

struct TClose {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};

/// Skips extensions and reads the description of the first picture.
void FindPicture(GifFileType* gif) {
  for (;;) {
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(gif, &record) != GIF_OK) FailWithCode(gif->Error);
    if (record == IMAGE_DESC_RECORD_TYPE) break;
    if (record == TERMINATE_RECORD_TYPE) Fail("file holds no picture");
    if (record != EXTENSION_RECORD_TYPE) continue;
    int code = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(gif, &code, &block) != GIF_OK) FailWithCode(gif->Error);
    while (block != nullptr) {
      if (DGifGetExtensionNext(gif, &block) != GIF_OK) FailWithCode(gif->Error);
    }
  }
  if (DGifGetImageDesc(gif) != GIF_OK) FailWithCode(gif->Error);
}

}  // namespace

void ReadGif(TExtBitmap& bitmap, std::string_view data) {
  int error = 0;
  const std::unique_ptr<GifFileType, TClose> gif(DGifOpen(&data, ReadBytes, &error));
  if (gif == nullptr) FailWithCode(error);
  FindPicture(gif.get());

  const GifImageDesc& frame = gif->Image;
  if (frame.Width <= 0 || frame.Height <= 0 || frame.Left < 0 || frame.Top < 0) Fail("picture is empty");
  const int width = std::max(gif->SWidth, frame.Left + frame.Width);
  const int height = std::max(gif->SHeight, frame.Top + frame.Height);
  bitmap.SetSize(width, height);

  const ColorMapObject* const map = frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
  if (map == nullptr) Fail("picture has no colours");
  const auto colour = [](const ColorMapObject* colours, int index, std::uint8_t* rgb) {
    const GifColorType& c = colours->Colors[index];
    rgb[0] = c.Red;
    rgb[1] = c.Green;
    rgb[2] = c.Blue;
  };

  std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 3, 0);
  if (const ColorMapObject* screen = gif->SColorMap;
      screen != nullptr && gif->SBackGroundColor < screen->ColorCount) {
    for (std::size_t x = 0; x < row.size(); x += 3) colour(screen, gif->SBackGroundColor, &row[x]);
  }
  for (int y = 0; y < height; ++y) {
    if (y < frame.Top || y >= frame.Top + frame.Height) bitmap.SetRowFromRgb(y, row.data());
  }

  std::vector<GifPixelType> indexes(static_cast<std::size_t>(frame.Width));
  const auto read_row = [&](int y) {
    if (DGifGetLine(gif.get(), indexes.data(), frame.Width) != GIF_OK) FailWithCode(gif->Error);
    for (int x = 0; x < frame.Width; ++x) {
      const int index = indexes[static_cast<std::size_t>(x)];
      if (index >= map->ColorCount) Fail("pixel has no colour");
      colour(map, index, &row[static_cast<std::size_t>(frame.Left + x) * 3]);
    }
    bitmap.SetRowFromRgb(frame.Top + y, row.data());
  };
  if (!frame.Interlace) {
    for (int y = 0; y < frame.Height; ++y) read_row(y);
    return;
  }
  constexpr struct { int First, Step; } kPasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  for (const auto& pass : kPasses) {
    for (int y = pass.First; y < frame.Height; y += pass.Step) read_row(y);
  }
}

}  // namespace skyreel
