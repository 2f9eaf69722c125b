// Reads the first picture of a GIF file with giflib, at its place on the logical screen. A screen that is too
// small for the picture becomes larger.

#include <gif_lib.h>

#include <algorithm>
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

struct TSource {
  TPictureBytes& Bytes;
  std::int64_t At = 0;
};

int ReadBytes(GifFileType* gif, GifByteType* buffer, int count) {
  auto& source = *static_cast<TSource*>(gif->UserData);
  const std::size_t taken =
      source.Bytes.Read(source.At, buffer, static_cast<std::size_t>(std::max(count, 0)));
  source.At += static_cast<std::int64_t>(taken);
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

/// Reads the four passes of the picture and puts its rows in their order, also those of a damaged picture.
template <typename TPut>
void ReadInterlaced(GifFileType* gif, const TPut& put) {
  const GifImageDesc& frame = gif->Image;
  const auto width = static_cast<std::size_t>(frame.Width);
  std::vector<GifPixelType> indexes(width * static_cast<std::size_t>(frame.Height));
  constexpr struct { int First, Step; } kPasses[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  bool whole = true;
  for (const auto& pass : kPasses) {
    for (int y = pass.First; y < frame.Height && whole; y += pass.Step)
      whole = DGifGetLine(gif, &indexes[static_cast<std::size_t>(y) * width], frame.Width) == GIF_OK;
  }
  for (int y = 0; y < frame.Height; ++y) put(y, &indexes[static_cast<std::size_t>(y) * width]);
  if (!whole) FailWithCode(gif->Error);
}

}  // namespace

void ReadGif(TRowSink& sink, TPictureBytes& bytes) {
  int error = 0;
  TSource source{bytes};
  const std::unique_ptr<GifFileType, TClose> gif(DGifOpen(&source, ReadBytes, &error));
  if (gif == nullptr) FailWithCode(error);
  FindPicture(gif.get());

  const GifImageDesc& frame = gif->Image;
  if (frame.Width <= 0 || frame.Height <= 0 || frame.Left < 0 || frame.Top < 0) Fail("picture is empty");
  const int width = std::max(gif->SWidth, frame.Left + frame.Width);
  const int height = std::max(gif->SHeight, frame.Top + frame.Height);
  const TRowWish wish =
      sink.Begin({.Kind = "GIF",
                  .Width = width,
                  .Height = height,
                  .WholeBytes = frame.Interlace ? std::int64_t{frame.Width} * frame.Height : 0});

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
  const auto put_row = [&](int y) { sink.SetRowFromRgb(y, row.data()); };
  const std::vector<std::uint8_t> background = row;
  for (int y = 0; y < frame.Top; ++y) put_row(y);

  const auto frame_width = static_cast<std::size_t>(frame.Width);
  const auto put_frame_row = [&](int y, const GifPixelType* indexes) {
    for (std::size_t x = 0; x < frame_width; ++x) {
      if (indexes[x] >= map->ColorCount) Fail("pixel has no colour");
      colour(map, indexes[x], &row[(static_cast<std::size_t>(frame.Left) + x) * 3]);
    }
    put_row(frame.Top + y);
  };
  const int end = std::clamp(wish.EndRow - frame.Top, 0, int{frame.Height});
  if (frame.Interlace) {
    ReadInterlaced(gif.get(), put_frame_row);
  } else {
    std::vector<GifPixelType> indexes(frame_width);
    for (int y = 0; y < end; ++y) {
      if (DGifGetLine(gif.get(), indexes.data(), frame.Width) != GIF_OK) FailWithCode(gif->Error);
      put_frame_row(y, indexes.data());
    }
  }
  row = background;
  for (int y = frame.Top + frame.Height; y < std::min(height, wish.EndRow); ++y) put_row(y);
}

}  // namespace skyreel
