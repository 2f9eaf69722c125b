// Reads and writes JPEG with libjpeg-turbo. The library reports an error by a longjmp, which must not skip a
// destructor: every step runs in Guarded and owns nothing.

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>
// (its header needs the two before it)
#include <jerror.h>

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
};

[[noreturn]] void OnError(j_common_ptr info) {
  TErrors& errors = *static_cast<TErrors*>(info->err);
  errors.format_message(info, errors.Message);
  std::longjmp(errors.Jump, 1);
}

/// For damaged data the library only warns and fills in grey; we refuse such a picture.
void OnMessage(j_common_ptr info, int level) {
  if (level >= 0) return;
  switch (info->err->msg_code) {
    case JWRN_ADOBE_XFORM:
    case JWRN_EXTRANEOUS_DATA:
    case JWRN_JFIF_MAJOR:
    case JWRN_TOO_MUCH_DATA:
      return;
    default:
      OnError(info);
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

class TReader {
 public:
  TReader() {
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

  void Read(TExtBitmap& bitmap, std::string_view data) {
    Step([&] {
      jpeg_mem_src(&info_, reinterpret_cast<const unsigned char*>(data.data()), data.size());
      jpeg_read_header(&info_, TRUE);
    });
    bitmap.SetSize(info_.image_width, info_.image_height);
    const bool inks = info_.jpeg_color_space == JCS_CMYK || info_.jpeg_color_space == JCS_YCCK;
    const bool grey =
        !inks && (bitmap.PixelFormat() == TPixelFormat::Bits8 || info_.jpeg_color_space == JCS_GRAYSCALE);
    info_.out_color_space = inks ? JCS_CMYK : grey ? JCS_GRAYSCALE : JCS_RGB;
    Step([&] { jpeg_start_decompress(&info_); });
    std::vector<std::uint8_t> row(std::size_t{info_.output_width} *
                                  static_cast<std::size_t>(info_.output_components));
    for (int y = 0; y < bitmap.Height(); ++y) {
      Step([&] {
        JSAMPROW rows[] = {row.data()};
        jpeg_read_scanlines(&info_, rows, 1);
      });
      if (inks) InksToRgb(row);
      if (grey) {
        bitmap.SetRowFromGrey(y, row.data());
      } else {
        bitmap.SetRowFromRgb(y, row.data(), inks ? 4 : 3);
      }
    }
    Step([&] { jpeg_finish_decompress(&info_); });
  }

 private:
  template <typename TStep>
  void Step(const TStep& step) {
    if (!Guarded(errors_, step)) throw EInvalidGraphic(std::string("JPEG: ") + errors_.Message);
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

void ReadJpeg(TExtBitmap& bitmap, std::string_view data) {
  TReader().Read(bitmap, data);
}

std::string EncodeJpeg(const TExtBitmap& bitmap, int quality, const std::string& comment) {
  return TWriter().Write(bitmap, quality, comment);
}

}  // namespace skyreel
