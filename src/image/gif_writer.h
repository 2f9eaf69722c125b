#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "image/ext_bitmap.h"

struct GifFileType;

namespace skyreel {

/// Writes an animated GIF frame by frame (GIF89a). Each frame has a palette of its own: all of its colours
/// when they are at most 256, otherwise those of a median cut. Throws EInvalidGraphic, std::bad_alloc, and
/// what `write` throws.
class TGifWriter {
 public:
  /// `write` gets the bytes of the file in their order. The sides are 1 to 65,535 pixels. `loops`: the viewer
  /// shows the animation again and again, otherwise once.
  TGifWriter(int width, int height, bool loops, std::function<void(std::string_view bytes)> write);
  ~TGifWriter();
  TGifWriter(const TGifWriter&) = delete;
  TGifWriter& operator=(const TGifWriter&) = delete;

  /// Adds a frame, 24 bits, of the size of the animation. It stays for `hundredths` of a second, 1 to 65,535.
  void Add(const TExtBitmap& frame, int hundredths);
  /// Writes the end of the file. Nothing is added after it.
  void Finish();

 private:
  static int Take(GifFileType* gif, const unsigned char* bytes, int count);
  void Check(int result) const;

  const int width_;
  const int height_;
  const std::function<void(std::string_view bytes)> write_;
  std::exception_ptr failure_;
  GifFileType* gif_ = nullptr;
};

}  // namespace skyreel
