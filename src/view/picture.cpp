#include "view/picture.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "base/exceptions.h"
#include "decompress/bzip2_stream.h"
#include "decompress/uncompress.h"
#include "image/image_file.h"

namespace skyreel {

namespace {

/// More than any real picture has. A hostile one would take minutes, or gigabytes for a single row.
constexpr std::int64_t kMostPixels = TExtBitmap::kLargestPixelCount;
constexpr std::int64_t kLongestSide = 200'000;
/// The most that is taken out of a .Z or bzip2 file.
constexpr std::int64_t kMostUnpacked = std::int64_t{256} << 20;
/// What is missing in a damaged picture.
constexpr std::uint8_t kMissing = 128;

/// The picture is not wanted any more.
class EStopped : public std::exception {};

/// Averages the rows of a picture down: each pixel of the image is the mean of a square of the picture. The
/// squares are as large as the room allows, so the image is up to twice as wide and high as the room.
class TAverage : public TRowSink {
 public:
  TAverage(const TPictureWish& wish, TPicture& picture) : wish_(wish), picture_(picture) {}

  TRowWish Begin(const TPictureFacts& facts) override {
    picture_.Kind = facts.Kind + picture_.Kind;
    if (facts.Width <= 0 || facts.Height <= 0) throw EInvalidGraphic("The picture is empty");
    if (facts.Width > kLongestSide || facts.Height > kLongestSide ||
        facts.Width * facts.Height > kMostPixels) {
      throw EInvalidGraphic("A picture of " + std::to_string(facts.Width) + " x " +
                            std::to_string(facts.Height) + " pixels is too large to be shown");
    }
    const QRect all(0, 0, static_cast<int>(facts.Width), static_cast<int>(facts.Height));
    picture_.FullSize = all.size();
    const QRect wanted = wish_.Region.isEmpty() ? all : wish_.Region & all;
    if (wanted.isEmpty() || wish_.Room.isEmpty()) throw EInvalidGraphic("Nothing of the picture is wanted");
    if (facts.WholeBytes > wish_.MostBytes) {
      picture_.NeededBytes = facts.WholeBytes;
      throw EInvalidGraphic("This picture can only be decoded as a whole, which takes " +
                            std::to_string(facts.WholeBytes / 1'000'000) + " MB of memory");
    }
    const int side =
        std::max({1, wanted.width() / wish_.Room.width(), wanted.height() / wish_.Room.height()});
    int reduction = 1;
    while (facts.CanReduce && reduction < 8 && reduction * 2 <= side) reduction *= 2;
    box_ = side / reduction;
    const int pixel = box_ * reduction;  // of the image, in pixels of the full picture
    width_ = (all.width() - 1) / reduction + 1;
    height_ = (all.height() - 1) / reduction + 1;
    area_ = QRect(QPoint(wanted.left() / pixel, wanted.top() / pixel),
                  QPoint(wanted.right() / pixel, wanted.bottom() / pixel));
    picture_.Region = QRect(area_.topLeft() * pixel, area_.size() * pixel) & all;
    TRowWish wish;
    wish.Reduction = reduction;
    wish.FirstRow = area_.top() * box_;
    wish.EndRow = std::min((area_.bottom() + 1) * box_, height_);
    wish.Samples = true;
    return wish;
  }

  void SetRowFromGrey(int y, const std::uint8_t* grey) override { AddBytes<1>(y, grey, 1); }
  void SetRowFromRgb(int y, const std::uint8_t* rgb, int stride) override { AddBytes<3>(y, rgb, stride); }
  void SetRowFromSamples(int y, const float* samples, int channels) override {
    for (int x = 0; x < width_ * channels; ++x) {
      if (std::isnan(samples[x])) continue;
      least_ = std::min(least_, samples[x]);
      greatest_ = std::max(greatest_, samples[x]);
    }
    if (samples_.empty())
      samples_.assign(static_cast<std::size_t>(area_.width() * area_.height() * channels), NAN);
    AddSamples(y, samples, channels);
  }

  /// Makes the image of what was received.
  void Finish() {
    if (row_ >= 0) EndRow();
    if (!samples_.empty()) Stretch();
  }

 private:
  /// Whether the row is wanted. Ends the row of squares before, if this one begins another.
  bool Begins(int y, int channels) {
    if (wish_.Stop && *wish_.Stop) throw EStopped();
    const int row = y / box_;
    if (row < area_.top() || row > area_.bottom()) return false;
    if (row != row_) {
      if (row_ >= 0) EndRow();
      row_ = row;
      rows_ = 0;
      channels_ = channels;
      const auto count = static_cast<std::size_t>(area_.width() * channels);
      if (samples_.empty()) {
        sums_.assign(count, 0);
      } else {
        sample_sums_.assign(count, 0);
        sample_counts_.assign(count, 0);
      }
    }
    ++rows_;
    return true;
  }

  int EndOf(int column) const { return std::min((column + 1) * box_, width_); }

  template <int kChannels>
  void AddBytes(int y, const std::uint8_t* pixels, int stride) {
    if (!Begins(y, kChannels)) return;
    const std::uint8_t* pixel = pixels + std::ptrdiff_t{area_.left()} * box_ * stride;
    if (box_ == 1) {  // nothing to average
      row_ = -1;
      return PutRow<kChannels>(y - area_.top(), [&, skipped = stride - kChannels](std::size_t i) {
        return pixel[i + i / kChannels * static_cast<std::size_t>(skipped)];
      });
    }
    std::uint32_t* sum = sums_.data();
    for (int column = area_.left(); column <= area_.right(); ++column, sum += kChannels) {
      for (int x = column * box_; x < EndOf(column); ++x, pixel += stride) {
        for (int i = 0; i < kChannels; ++i) sum[i] += pixel[i];
      }
    }
  }

  void AddSamples(int y, const float* samples, int channels) {
    if (!Begins(y, channels)) return;
    const float* sample = samples + std::ptrdiff_t{area_.left()} * box_ * channels;
    std::size_t at = 0;
    for (int column = area_.left(); column <= area_.right(); ++column) {
      for (int x = column * box_; x < EndOf(column); ++x) {
        for (int i = 0; i < channels; ++i, ++sample) {
          if (std::isnan(*sample)) continue;
          sample_sums_[at + static_cast<std::size_t>(i)] += double{*sample};
          ++sample_counts_[at + static_cast<std::size_t>(i)];
        }
      }
      at += static_cast<std::size_t>(channels);
    }
  }

  void EndRow() {
    const int y = row_ - area_.top();
    row_ = -1;
    const auto count = static_cast<std::size_t>(area_.width() * channels_);
    if (!samples_.empty()) {
      for (std::size_t i = 0; i < count; ++i) {
        if (sample_counts_[i] > 0)
          samples_[static_cast<std::size_t>(y) * count + i] =
              static_cast<float>(sample_sums_[i] / sample_counts_[i]);
      }
      return;
    }
    const auto mean = [&](std::size_t i) {
      const int column = area_.left() + static_cast<int>(i) / channels_;
      const auto pixels = static_cast<std::uint32_t>((EndOf(column) - column * box_) * rows_);
      return static_cast<std::uint8_t>((sums_[i] + pixels / 2) / pixels);
    };
    if (channels_ == 1) {
      PutRow<1>(y, mean);
    } else {
      PutRow<3>(y, mean);
    }
  }

  /// `value(i)` is the byte of channel i % kChannels of pixel i / kChannels.
  template <int kChannels, typename TValue>
  void PutRow(int y, const TValue& value) {
    QImage& image = picture_.Image;
    if (image.isNull()) {
      image = QImage(area_.size(), kChannels == 1 ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
      if (image.isNull()) throw std::bad_alloc();
      image.fill(QColor(kMissing, kMissing, kMissing));
    }
    const auto width = static_cast<std::size_t>(area_.width());
    if constexpr (kChannels == 1) {
      std::uint8_t* const to = image.scanLine(y);
      for (std::size_t x = 0; x < width; ++x) to[x] = value(x);
    } else {
      auto* const to = reinterpret_cast<QRgb*>(image.scanLine(y));
      for (std::size_t x = 0; x < width; ++x) to[x] = qRgb(value(3 * x), value(3 * x + 1), value(3 * x + 2));
    }
  }

  void Stretch() {
    const double range = double{greatest_} - double{least_};
    const auto count = static_cast<std::size_t>(area_.width() * channels_);
    for (int y = 0; y < area_.height(); ++y) {
      const float* const from = &samples_[static_cast<std::size_t>(y) * count];
      const auto value = [&](std::size_t i) {
        if (std::isnan(from[i]) || !(range > 0)) return kMissing;
        return static_cast<std::uint8_t>(std::lround((double{from[i]} - double{least_}) * 255 / range));
      };
      if (channels_ == 1) {
        PutRow<1>(y, value);
      } else {
        PutRow<3>(y, value);
      }
    }
  }

  const TPictureWish& wish_;
  TPicture& picture_;
  int width_ = 0, height_ = 0;  ///< of the picture as the decoder delivers it
  int box_ = 1;                 ///< side of the squares, in its pixels
  QRect area_;                  ///< the wanted squares
  int row_ = -1;                ///< the row of squares that is being added up
  int channels_ = 1;
  int rows_ = 0;  ///< of the picture that are in it
  std::vector<std::uint32_t> sums_;
  std::vector<double> sample_sums_;
  std::vector<std::uint32_t> sample_counts_;
  std::vector<float> samples_;  ///< the means; empty for a picture of bytes
  float least_ = std::numeric_limits<float>::max(), greatest_ = std::numeric_limits<float>::lowest();
};

/// The content of a .Z or bzip2 file, up to where it is damaged.
class TUnpacked {
 public:
  explicit TUnpacked(const std::filesystem::path& path) : path_(path) {}

  /// Nothing when the file is not packed.
  std::optional<std::string_view> Open(TPictureBytes& bytes, TPicture& picture) {
    char head[3] = {};
    const std::string_view start(head, bytes.Read(0, head, sizeof(head)));
    try {
      if (start == "BZh") {
        picture.Kind = " in bzip2";
        ReadBzip2();
      } else if (start.starts_with("\x1F\x9D")) {
        picture.Kind = " in .Z";
        TMemoryStream packed;
        packed.LoadFromFile(path_, kMostUnpacked);
        TUncompressor decoder;
        decoder.OutputLimit = kMostUnpacked;
        decoder.Decompress(packed.View(), content_);
      } else {
        return std::nullopt;
      }
    } catch (const EBZip2Error&) {
      picture.Problem = "Not unpacked whole: the bzip2 data is damaged";
    } catch (const std::runtime_error& error) {
      picture.Problem = "Not unpacked whole: " + ReasonOf(error);
    }
    return content_.View();
  }

 private:
  void ReadBzip2() {
    constexpr std::int64_t kStep = 1 << 20;
    TFileStream file(path_);
    TBZDecompressionStream stream(file);
    for (std::int64_t got = kStep; got == kStep;) {
      const std::int64_t size = content_.Size();
      if (size >= kMostUnpacked) throw EDecompressError("it holds too much");
      content_.Reserve(size + kStep);
      got = stream.Read(content_.Data() + size, kStep);
      content_.SetSize(size + got);
    }
    if (!stream.StreamEnded()) throw EDecompressError("the file is cut off");
  }

  const std::filesystem::path& path_;
  TMemoryStream content_;
};

std::string Sentence(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr)
    return "There is not enough memory for this picture";
  return ReasonOf(error);
}

}  // namespace

TPicture LoadPicture(const std::filesystem::path& path, const TPictureWish& wish) {
  TPicture picture;
  TAverage average(wish, picture);
  try {
    TPictureBytes bytes(path);
    TUnpacked unpacked(path);
    if (const auto content = unpacked.Open(bytes, picture)) {
      TPictureBytes inner(*content);
      DecodePicture(average, inner);
    } else {
      DecodePicture(average, bytes);
    }
  } catch (const EStopped&) {
    return {};
  } catch (const std::exception& error) {
    if (picture.Problem.empty()) picture.Problem = Sentence(error);
  }
  try {
    average.Finish();
    const QSize fitting = picture.Image.size().scaled(wish.Room, Qt::KeepAspectRatio);
    if (!picture.Image.isNull() && fitting.width() < picture.Image.width())
      picture.Image =
          picture.Image.scaled(fitting.expandedTo({1, 1}), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  } catch (const std::exception& error) {
    picture.Image = {};
    picture.Problem = Sentence(error);
  }
  return picture;
}

}  // namespace skyreel
