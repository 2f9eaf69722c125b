// Reads and writes JPEG with libjpeg-turbo. The library reports an error by a longjmp, which must not skip a
// destructor: every step runs in Guarded and owns nothing.

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
// (its header needs the two before it)
#include <jerror.h>

#include <algorithm>
#include <csetjmp>
#include <string>
#include <vector>

#include "image/codecs.h"

namespace skyreel {

namespace {

/// More passes than any real file has. A small hostile file could otherwise take hours.
constexpr int kMostScans = 200;

struct TErrors : jpeg_error_mgr {
  std::jmp_buf Jump;
  char Message[JMSG_LENGTH_MAX] = {};
  char Warning[JMSG_LENGTH_MAX] = {};
};

[[noreturn]] void OnError(j_common_ptr info) {
  TErrors& errors = *static_cast<TErrors*>(info->err);
  errors.format_message(info, errors.Message);
  std::longjmp(errors.Jump, 1);
}

/// For damaged data the library only warns and fills in grey. The first warning is kept: the picture is
/// refused once its rows are read.
void OnMessage(j_common_ptr info, int level) {
  TErrors& errors = *static_cast<TErrors*>(info->err);
  if (level >= 0 || errors.Warning[0] != '\0') return;
  switch (info->err->msg_code) {
    case JWRN_ADOBE_XFORM:
    case JWRN_EXTRANEOUS_DATA:
    case JWRN_JFIF_MAJOR:
    case JWRN_TOO_MUCH_DATA:
      return;
    default:
      errors.format_message(info, errors.Warning);
  }
}

void Prepare(TErrors& errors) {
  jpeg_std_error(&errors);
  errors.error_exit = OnError;
  errors.emit_message = OnMessage;
}

/// False when the library reported an error in `step`.
template <typename TStep>
bool Guarded(TErrors& errors, const TStep& step) {
  if (setjmp(errors.Jump) != 0) return false;
  step();
  return true;
}

/// Feeds the file to the decoder.
struct TSource : jpeg_source_mgr {
  TPictureBytes& Bytes;
  std::int64_t At = 0;
  std::vector<JOCTET> Buffer = std::vector<JOCTET>(1 << 18);

  explicit TSource(TPictureBytes& bytes) : jpeg_source_mgr{}, Bytes(bytes) {
    init_source = [](j_decompress_ptr) {};
    fill_input_buffer = [](j_decompress_ptr info) -> boolean {
      Of(info).Fill(info);
      return TRUE;
    };
    skip_input_data = [](j_decompress_ptr info, long count) {
      TSource& source = Of(info);
      const std::size_t here =
          std::min(source.bytes_in_buffer, static_cast<std::size_t>(std::max(count, 0L)));
      source.next_input_byte += here;
      source.bytes_in_buffer -= here;
      source.At += std::max(count, 0L) - static_cast<long>(here);
    };
    resync_to_restart = jpeg_resync_to_restart;
    term_source = [](j_decompress_ptr) {};
  }
  static TSource& Of(j_decompress_ptr info) { return *static_cast<TSource*>(info->src); }
  void Fill(j_decompress_ptr info) {
    std::size_t count = Bytes.Read(At, Buffer.data(), Buffer.size());
    At += static_cast<std::int64_t>(count);
    if (count == 0) {
      WARNMS(info, JWRN_JPEG_EOF);
      Buffer[0] = 0xFF;
      Buffer[1] = JPEG_EOI;
      count = 2;
    }
    next_input_byte = Buffer.data();
    bytes_in_buffer = count;
  }
};

class TReader {
 public:
  explicit TReader(TPictureBytes& bytes) : source_(bytes) {
    Prepare(errors_);
    info_.err = &errors_;
    progress_.progress_monitor = [](j_common_ptr info) {
      if (reinterpret_cast<j_decompress_ptr>(info)->input_scan_number > kMostScans) {
        ERREXIT(info, JERR_BAD_PROGRESSION);
      }
    };
    Step([&] { jpeg_create_decompress(&info_); });
    info_.progress = &progress_;
  }
  ~TReader() { jpeg_destroy_decompress(&info_); }
  TReader(const TReader&) = delete;
  TReader& operator=(const TReader&) = delete;

  void Read(TRowSink& sink) {
    Step([&] {
      info_.src = &source_;
      jpeg_read_header(&info_, TRUE);
    });
    const TRowWish wish = sink.Begin({.Kind = "JPEG",
                                      .Width = info_.image_width,
                                      .Height = info_.image_height,
                                      .WholeBytes = WholeBytes(),
                                      .CanReduce = true});
    const bool inks = info_.jpeg_color_space == JCS_CMYK || info_.jpeg_color_space == JCS_YCCK;
    const bool grey = !inks && (wish.Grey || info_.jpeg_color_space == JCS_GRAYSCALE);
    info_.out_color_space = inks ? JCS_CMYK : grey ? JCS_GRAYSCALE : JCS_RGB;
    info_.scale_num = 1;
    info_.scale_denom = static_cast<unsigned>(wish.Reduction);
    Step([&] { jpeg_start_decompress(&info_); });
    std::vector<std::uint8_t> row(std::size_t{info_.output_width} *
                                  static_cast<std::size_t>(info_.output_components));
    if (wish.FirstRow > 0) Step([&] { jpeg_skip_scanlines(&info_, static_cast<JDIMENSION>(wish.FirstRow)); });
    const auto height = static_cast<int>(info_.output_height);
    const int end = std::min(height, wish.EndRow);
    for (int y = wish.FirstRow; y < end; ++y) {
      Step([&] {
        JSAMPROW rows[] = {row.data()};
        jpeg_read_scanlines(&info_, rows, 1);
      });
      if (inks) InksToRgb(row);
      if (grey) {
        sink.SetRowFromGrey(y, row.data());
      } else {
        sink.SetRowFromRgb(y, row.data(), inks ? 4 : 3);
      }
    }
    if (end == height) Step([&] { jpeg_finish_decompress(&info_); });
    if (errors_.Warning[0] != '\0') Fail(errors_.Warning);
  }

 private:
  template <typename TStep>
  void Step(const TStep& step) {
    if (Guarded(errors_, step)) return;
    Fail(errors_.Warning[0] != '\0' ? errors_.Warning : errors_.Message);
  }
  [[noreturn]] static void Fail(const char* message) {
    throw EInvalidGraphic(std::string("JPEG: ") + message);
  }

  /// A picture of several scans is complete only after the last one, so that all its coefficients are kept.
  std::int64_t WholeBytes() {
    if (jpeg_has_multiple_scans(&info_) == FALSE) return 0;
    std::int64_t blocks = 0;
    for (int i = 0; i < info_.num_components; ++i) {
      const jpeg_component_info& component = info_.comp_info[i];
      blocks += std::int64_t{component.width_in_blocks} * component.height_in_blocks;
    }
    return blocks * static_cast<std::int64_t>(sizeof(JBLOCK));
  }

  void InksToRgb(std::vector<std::uint8_t>& row) const {
    const bool inverted = info_.saw_Adobe_marker != FALSE;
    for (std::size_t x = 0; x < row.size(); x += 4) {
      const int black = inverted ? row[x + 3] : 255 - row[x + 3];
      for (std::size_t i = x; i < x + 3; ++i) {
        row[i] = static_cast<std::uint8_t>((inverted ? row[i] : 255 - row[i]) * black / 255);
      }
    }
  }

  TErrors errors_;
  TSource source_;
  jpeg_progress_mgr progress_{};
  jpeg_decompress_struct info_{};
};

/// Collects what the encoder writes.
struct TDestination : jpeg_destination_mgr {
  std::string Data;
  std::vector<JOCTET> Buffer = std::vector<JOCTET>(65536);

  TDestination() {
    init_destination = [](j_compress_ptr info) { Of(info).Restart(); };
    empty_output_buffer = [](j_compress_ptr info) -> boolean {
      Of(info).Take(info, Of(info).Buffer.size());
      Of(info).Restart();
      return TRUE;
    };
    term_destination = [](j_compress_ptr info) {
      Of(info).Take(info, Of(info).Buffer.size() - Of(info).free_in_buffer);
    };
  }
  static TDestination& Of(j_compress_ptr info) { return *static_cast<TDestination*>(info->dest); }
  void Restart() {
    next_output_byte = Buffer.data();
    free_in_buffer = Buffer.size();
  }
  void Take(j_compress_ptr info, std::size_t count) {
    bool taken = true;
    try {
      Data.append(reinterpret_cast<const char*>(Buffer.data()), count);
    } catch (const std::exception&) {
      taken = false;  // no exception may leave through the library
    }
    if (!taken) ERREXIT1(info, JERR_OUT_OF_MEMORY, 0);
  }
};

class TWriter {
 public:
  TWriter() {
    Prepare(errors_);
    info_.err = &errors_;
  }
  ~TWriter() { jpeg_destroy_compress(&info_); }
  TWriter(const TWriter&) = delete;
  TWriter& operator=(const TWriter&) = delete;

  std::string Write(const TExtBitmap& bitmap, int quality, const std::string& comment) {
    const bool written = Guarded(errors_, [&] {
      const bool grey = bitmap.PixelFormat() == TPixelFormat::Bits8;
      jpeg_create_compress(&info_);
      info_.dest = &destination_;
      info_.image_width = static_cast<JDIMENSION>(bitmap.Width());
      info_.image_height = static_cast<JDIMENSION>(bitmap.Height());
      info_.input_components = grey ? 1 : 3;
      info_.in_color_space = grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
      jpeg_set_defaults(&info_);
      jpeg_set_quality(&info_, quality, TRUE);
      jpeg_start_compress(&info_, TRUE);
      if (!comment.empty()) {
        jpeg_write_marker(&info_, JPEG_COM, reinterpret_cast<const JOCTET*>(comment.data()),
                          static_cast<unsigned>(comment.size()));
      }
      for (int y = 0; y < bitmap.Height(); ++y) {
        JSAMPROW rows[] = {const_cast<JSAMPROW>(bitmap.ScanLine(y))};  // only read
        jpeg_write_scanlines(&info_, rows, 1);
      }
      jpeg_finish_compress(&info_);
    });
    if (!written) throw EInvalidGraphic(std::string("JPEG: ") + errors_.Message);
    return std::move(destination_.Data);
  }

 private:
  TErrors errors_;
  TDestination destination_;
  jpeg_compress_struct info_{};
};

}  // namespace

void ReadJpeg(TRowSink& sink, TPictureBytes& bytes) {
  TReader(bytes).Read(sink);
}

std::string EncodeJpeg(const TExtBitmap& bitmap, int quality, const std::string& comment) {
  return TWriter().Write(bitmap, quality, comment);
}

}  // namespace skyreel
