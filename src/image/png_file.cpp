// Reads and writes PNG with libpng. The library reports an error by a longjmp: every step runs in Guarded and
// owns nothing.

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

constexpr png_alloc_size_t kMostChunkMemory = 8 << 20;
constexpr png_uint_32 kMostChunks = 1000;
constexpr int kMostChannels = 4;

struct TState {
  std::jmp_buf Jump;
  char Message[200] = {};
  TPictureBytes* Bytes = nullptr;
  std::int64_t At = 0;
};

[[noreturn]] void OnError(png_structp png, png_const_charp text) {
  TState& state = *static_cast<TState*>(png_get_error_ptr(png));
  std::strncpy(state.Message, text, sizeof(state.Message) - 1);
  std::longjmp(state.Jump, 1);
}

void OnRead(png_structp png, png_bytep buffer, png_size_t count) {
  TState& state = *static_cast<TState*>(png_get_io_ptr(png));
  if (state.Bytes->Read(state.At, buffer, count) < count) png_error(png, "file is cut off");
  state.At += static_cast<std::int64_t>(count);
}

template <typename TStep>
bool Guarded(TState& state, const TStep& step) {
  if (setjmp(state.Jump) != 0) return false;
  step();
  return true;
}

class TReader {
 public:
  explicit TReader(TPictureBytes& bytes) {
    state_.Bytes = &bytes;
    png_ =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, &state_, OnError, [](png_structp, png_const_charp) {});
    info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
  }
  ~TReader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  TReader(const TReader&) = delete;
  TReader& operator=(const TReader&) = delete;

  void Read(TRowSink& sink) {
    if (info_ == nullptr) throw std::bad_alloc();
    Step([&] {
      png_set_read_fn(png_, &state_, OnRead);
      png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // the bitmap has a limit
      png_set_chunk_malloc_max(png_, kMostChunkMemory);
      png_set_chunk_cache_max(png_, kMostChunks);
      png_read_info(png_, info_);
    });
    const png_uint_32 width = png_get_image_width(png_, info_);
    const png_uint_32 height = png_get_image_height(png_, info_);
    const bool interlaced = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
    const TRowWish wish = sink.Begin(
        {.Kind = "PNG",
         .Width = width,
         .Height = height,
         .WholeBytes = interlaced ? std::int64_t{kMostChannels} * width * height : std::int64_t{0}});
    int passes = 1;
    Step([&] {
      png_set_scale_16(png_);
      png_set_expand(png_);  // palettes to colours, grey to 8 bits, transparent colours to alpha
      passes = png_set_interlace_handling(png_);
      png_read_update_info(png_, info_);
    });
    const std::size_t channels = png_get_channels(png_, info_);
    const std::size_t stride = channels * width;
    if (png_get_rowbytes(png_, info_) != stride) throw EInvalidGraphic("PNG: unexpected pixel format");

    // Only an interlaced picture needs all rows at once. Each pass fills the gaps that later ones leave.
    std::vector<std::uint8_t> rows(passes > 1 ? stride * height : stride);
    try {
      for (int pass = 1; pass < passes; ++pass) {
        for (std::size_t y = 0; y < height; ++y)
          Step([&] { png_read_row(png_, nullptr, rows.data() + y * stride); });
      }
    } catch (const EInvalidGraphic&) {
      for (std::size_t y = 0; y < height; ++y)
        PutRow(sink, static_cast<int>(y), rows.data() + y * stride, width, channels);
      throw;
    }
    const auto end = std::min(std::int64_t{height}, std::int64_t{wish.EndRow});
    for (int y = 0; y < end; ++y) {
      std::uint8_t* const row = rows.data() + (passes > 1 ? static_cast<std::size_t>(y) * stride : 0);
      Step([&] { png_read_row(png_, nullptr, row); });
      PutRow(sink, y, row, width, channels);
    }
    if (end == height) Step([&] { png_read_end(png_, nullptr); });
  }

 private:
  template <typename TStep>
  void Step(const TStep& step) {
    if (!Guarded(state_, step)) throw EInvalidGraphic(std::string("PNG: ") + state_.Message);
  }

  /// `row` holds grey or colour pixels, with alpha for 2 or 4 channels.
  static void PutRow(TRowSink& sink, int y, std::uint8_t* row, std::size_t width, std::size_t channels) {
    const std::size_t colours = channels < 3 ? 1 : 3;
    if (channels != colours) {
      std::uint8_t* to = row;
      for (std::size_t x = 0; x < width; ++x) {
        const std::uint8_t* const from = row + x * channels;
        const int alpha = from[colours];
        for (std::size_t i = 0; i < colours; ++i) {
          *to++ = static_cast<std::uint8_t>((from[i] * alpha + 255 * (255 - alpha) + 127) / 255);
        }
      }
    }
    if (colours == 1) {
      sink.SetRowFromGrey(y, row);
    } else {
      sink.SetRowFromRgb(y, row);
    }
  }

  TState state_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

/// Appends to the string that `png` was given. No exception may leave through the library.
void OnWrite(png_structp png, png_bytep data, png_size_t count) {
  bool taken = true;
  try {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), count);
  } catch (const std::exception&) {
    taken = false;
  }
  if (!taken) png_error(png, "out of memory");
}

class TWriter {
 public:
  TWriter() {
    png_ =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &state_, OnError, [](png_structp, png_const_charp) {});
    info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
  }
  ~TWriter() { png_destroy_write_struct(&png_, &info_); }
  TWriter(const TWriter&) = delete;
  TWriter& operator=(const TWriter&) = delete;

  std::string Write(const TExtBitmap& bitmap) {
    if (info_ == nullptr) throw std::bad_alloc();
    const bool written = Guarded(state_, [&] {
      png_set_write_fn(png_, &data_, OnWrite, [](png_structp) {});
      png_set_IHDR(png_, info_, static_cast<png_uint_32>(bitmap.Width()),
                   static_cast<png_uint_32>(bitmap.Height()), 8,
                   bitmap.PixelFormat() == TPixelFormat::Bits8 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB,
                   PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
      png_write_info(png_, info_);
      png_set_bgr(png_);
      for (int y = 0; y < bitmap.Height(); ++y) png_write_row(png_, bitmap.ScanLine(y));
      png_write_end(png_, nullptr);
    });
    if (!written) throw EInvalidGraphic(std::string("PNG: ") + state_.Message);
    return std::move(data_);
  }

 private:
  std::string data_;
  TState state_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

}  // namespace

void ReadPng(TRowSink& sink, TPictureBytes& bytes) {
  TReader(bytes).Read(sink);
}

std::string EncodePng(const TExtBitmap& bitmap) {
  return TWriter().Write(bitmap);
}

}  // namespace skyreel
