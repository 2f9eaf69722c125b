#include "app/animation_export.h"

#include <unistd.h>

#include <QFontMetrics>
#include <QPainter>
#include <QProcess>
#include <QStandardPaths>
#include <algorithm>
#include <ranges>
#include <stdexcept>
#include <utility>

#include "app/picture_list.h"
#include "app/signal_watcher.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"
#include "catalogue/volume.h"
#include "image/gif_writer.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// How often a wait looks whether to stop.
constexpr auto kTurn = std::chrono::milliseconds(100);
/// Room for the frames that are decoded ahead.
constexpr std::int64_t kAheadBytes = 120'000'000;

class EAnimation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct TStopped {};

constexpr struct TFormat {
  const char* Extension;
  const char* Encoder;  ///< arguments of ffmpeg; empty: made without it

  bool NeedsFfmpeg() const { return *Encoder != '\0'; }
} kFormats[] = {
    {".mp4", "-c:v libx264 -crf 20 -movflags +faststart -f mp4"},
    {".webm", "-c:v libvpx-vp9 -crf 32 -b:v 0 -row-mt 1 -cpu-used 4 -f webm"},
    {".gif", ""},
};

const TFormat* FormatOf(const fs::path& path) {
  const auto format = std::ranges::find_if(
      kFormats, [&](const TFormat& each) { return SameText(each.Extension, path.extension().string()); });
  return format == std::end(kFormats) ? nullptr : format;
}

/// Takes the frames of an animation, all of one size.
class TFrameWriter {
 public:
  virtual ~TFrameWriter() = default;
  /// Shows the picture, 32 bits a pixel, for this number of steps.
  virtual void Add(const QImage& picture, int steps) = 0;
  virtual void Finish() = 0;
};

class TFfmpegWriter : public TFrameWriter {
 public:
  TFfmpegWriter(const TAnimationOrder& order, const TFormat& format, QSize size, std::string file,
                const std::atomic<bool>& stop)
      : order_(order), file_(std::move(file)), stop_(stop) {
    QStringList arguments = {"-hide_banner", "-loglevel", "error", "-xerror", "-y", "-f", "rawvideo"};
    const auto number = [](int value) { return QString::number(value); };
    arguments << "-pixel_format"
              << "bgr0"
              << "-video_size" << number(size.width()) + "x" + number(size.height()) << "-framerate"
              << number(order.Style.FramesPerSecond) << "-i"
              << "pipe:0";
    // Players guess the colours of a video that does not name them.
    arguments << "-vf"
              << "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p"
              << "-colorspace"
              << "bt709"
              << "-color_primaries"
              << "bt709"
              << "-color_trc"
              << "bt709";
    arguments << QString(format.Encoder).split(' ');
    arguments << QString::fromStdString("file:" + file_);
    process_.setStandardOutputFile(QProcess::nullDevice());
    WithSignalsLetThrough([&] { process_.start(QString::fromStdString(order.Ffmpeg), arguments); });
    if (!process_.waitForStarted())
      throw EAnimation("ffmpeg cannot be started: " + process_.errorString().toStdString());
  }
  ~TFfmpegWriter() override {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished();
  }

  void Add(const QImage& picture, int steps) override {
    for (int i = 0; i < steps; ++i) {
      process_.write(reinterpret_cast<const char*>(picture.constBits()), picture.sizeInBytes());
      last_progress_ = TClock::now();
      while (process_.bytesToWrite() > 0) {
        const bool written = process_.waitForBytesWritten(static_cast<int>(kTurn.count()));
        if (process_.state() != QProcess::Running) Fail();
        CheckProgress(written);
      }
    }
  }

  void Finish() override {
    process_.closeWriteChannel();
    last_progress_ = TClock::now();
    std::int64_t size = 0;
    while (!process_.waitForFinished(static_cast<int>(kTurn.count())) &&
           process_.state() != QProcess::NotRunning)
      CheckProgress(std::exchange(size, FileSizeOf(file_)) != size);
    if (process_.exitStatus() != QProcess::NormalExit || process_.exitCode() != 0) Fail();
  }

 private:
  using TClock = std::chrono::steady_clock;

  void CheckProgress(bool moved) {
    if (stop_) throw TStopped();
    TakeErrors();
    const auto now = TClock::now();
    if (moved) last_progress_ = now;
    if (now - last_progress_ < order_.Patience) return;
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(order_.Patience);
    throw EAnimation("ffmpeg made no progress for " + Count(seconds.count(), "second") + " and was stopped");
  }

  void TakeErrors() {
    constexpr qsizetype kMost = 4'000;
    errors_ = (errors_ + process_.readAllStandardError()).right(kMost);
  }

  [[noreturn]] void Fail() {
    if (stop_) throw TStopped();
    TakeErrors();
    std::string last;
    ForEachLine(errors_.toStdString(), [&](std::string_view line) {
      if (!Trim(line).empty()) last = WithoutControls(std::string(Trim(line)));
    });
    last = ReplaceAll(last, "file:" + file_, order_.Output.string());
    const bool killed = process_.exitStatus() == QProcess::CrashExit;
    if (killed) throw EAnimation("ffmpeg was killed" + (last.empty() ? "" : ": " + last));
    if (last.empty()) last = "exit code " + std::to_string(process_.exitCode());
    throw EAnimation("ffmpeg failed: " + last);
  }

  const TAnimationOrder& order_;
  const std::string file_;
  const std::atomic<bool>& stop_;
  TClock::time_point last_progress_;
  QByteArray errors_;
  QProcess process_;
};

class TGifFrames : public TFrameWriter {
 public:
  TGifFrames(const TAnimationOrder& order, QSize size, int file)
      : style_(order.Style),
        writer_(size.width(), size.height(), style_.Loops, [file](std::string_view bytes) {
          if (!WriteAll(file, bytes)) ThrowErrno("the file");
        }) {
    bitmap_.SetSize(size.width(), size.height());
  }

  void Add(const QImage& picture, int steps) override {
    constexpr int kMostHundredths = 65'535;
    for (int y = 0; y < picture.height(); ++y) {
      const auto* from = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
      std::uint8_t* to = bitmap_.ScanLine(y);
      for (int x = 0; x < picture.width(); ++x, to += 3) {
        to[0] = static_cast<std::uint8_t>(qBlue(from[x]));
        to[1] = static_cast<std::uint8_t>(qGreen(from[x]));
        to[2] = static_cast<std::uint8_t>(qRed(from[x]));
      }
    }
    // Rounded times add up to the right one.
    const auto hundredths = [this](std::int64_t at) { return at * 100 / style_.FramesPerSecond; };
    writer_.Add(bitmap_, static_cast<int>(std::min<std::int64_t>(
                             hundredths(steps_ + steps) - hundredths(steps_), kMostHundredths)));
    steps_ += steps;
  }
  void Finish() override { writer_.Finish(); }

 private:
  const TAnimationStyle style_;
  std::int64_t steps_ = 0;
  TExtBitmap bitmap_{TPixelFormat::Bits24};
  TGifWriter writer_;
};

/// A dark strip at the lower edge with the time on the left and the credit on the right.
void PaintCaption(QImage& picture, const TFrameFile& file) {
  QPainter painter(&picture);
  QFont font("DejaVu Sans");
  font.setPixelSize(std::max(9, picture.height() / 40));
  painter.setFont(font);
  const QFontMetrics metrics(font);
  const int margin = metrics.height() / 3;
  const QRect strip(0, picture.height() - metrics.height() - margin, picture.width(),
                    metrics.height() + margin);
  painter.fillRect(strip, QColor(0, 0, 0, 170));
  painter.setPen(Qt::white);
  const QRect text = strip.adjusted(margin, 0, -margin, 0);
  const QString time = QString::fromStdString(FormatDateTime("yyyy-mm-dd hh:nn' UTC'", file.SlotTime));
  painter.drawText(text, Qt::AlignVCenter | Qt::AlignLeft, time);
  const int room = text.width() - metrics.horizontalAdvance(time) - 2 * margin;
  const QString credit =
      metrics.elidedText(QString::fromStdString(file.Credit).simplified(), Qt::ElideRight, room);
  painter.drawText(text, Qt::AlignVCenter | Qt::AlignRight, credit);
}

/// Makes pictures of one size, with black around smaller ones.
TFrameLoader::TLoad LoadFrames(QSize size, bool caption) {
  return [size, caption, load = LoadForView(size)](const TFrameFile& file, const TFrameLoader::TStop& stop) {
    QImage picture = load(file, stop).convertToFormat(QImage::Format_RGB32);
    if (picture.size() != size) {
      QImage frame(size, QImage::Format_RGB32);
      frame.fill(Qt::black);
      const QSize spare = size - picture.size();
      QPainter(&frame).drawImage(spare.width() / 2, spare.height() / 2, picture);
      picture = std::move(frame);
    }
    if (caption) PaintCaption(picture, file);
    return picture;
  };
}

/// One run of SaveAnimation.
class TSaving {
 public:
  TSaving(const TAnimationOrder& order, std::shared_ptr<TAnimationProgress> progress)
      : order_(order), progress_(std::move(progress)) {}

  TAnimationResult Run() {
    const TFormat* const format = FormatOf(order_.Output);
    if (format == nullptr) throw EAnimation("The name of the file must end in .mp4, .webm or .gif");
    if (format->NeedsFfmpeg() && order_.Ffmpeg.empty()) throw EAnimation(kNoFfmpegText);
    if (order_.Files.empty()) throw EAnimation("There are no pictures in this period");
    std::error_code ignored;
    if (fs::exists(order_.Output, ignored) && !fs::is_regular_file(order_.Output, ignored))
      throw EAnimation(order_.Output.string() + " is not a file");
    const QSize size = FrameSize();
    RemoveAbandoned(order_.Output.parent_path());
    const TTemporary temporary = MakeTemporary(order_.Output);
    const TAtScopeEnd remove([&] { ::unlink(temporary.Name.c_str()); });
    {
      std::unique_ptr<TFrameWriter> writer;
      if (format->NeedsFfmpeg())
        writer = std::make_unique<TFfmpegWriter>(order_, *format, size, temporary.Name, progress_->Stop);
      else
        writer = std::make_unique<TGifFrames>(order_, size, temporary.File.Get());
      AddAll(*writer, size);
      writer->Finish();
    }
    result_.Bytes = FileSizeOf(temporary.Name);
    if (result_.Bytes <= 0) throw EAnimation("ffmpeg wrote nothing");
    if (::fsync(temporary.File.Get()) != 0) ThrowErrno(order_.Output.string());
    MoveFileWhole(temporary.File.Get(), temporary.Name, order_.Output);
    return std::move(result_);
  }

 private:
  TFrameLoader::TStop Stop() const { return {progress_, &progress_->Stop}; }
  void CheckStop() const {
    if (progress_->Stop) throw TStopped();
  }

  /// That of the first picture that can be read.
  QSize FrameSize() const {
    const QSize room(order_.LongestSide, order_.LongestSide);
    std::string reason;
    for (const TFrameFile& file : order_.Files) {
      CheckStop();
      try {
        const QSize size = LoadForView(room)(file, Stop()).size();
        // The videos need even sides.
        return QSize(size.width() & ~1, size.height() & ~1)
            .expandedTo({TAnimationOrder::kLeastSide, TAnimationOrder::kLeastSide});
      } catch (const std::runtime_error& error) {
        if (reason.empty()) reason = ReasonOf(error);
      }
    }
    CheckStop();
    throw EAnimation("None of the pictures can be read: " + reason);
  }

  void AddAll(TFrameWriter& writer, QSize size) {
    TFrameLoader loader(order_.Files, LoadFrames(size, order_.Caption), kAheadBytes);
    const std::vector<int> steps = StepsOfFrames(order_.Files, order_.Style.KeepsGaps);
    QImage picture;
    int stays = 0;
    const auto add = [&] {
      if (picture.isNull()) return;
      writer.Add(picture, stays);
      ++result_.Frames;
      result_.Seconds += static_cast<double>(stays) / order_.Style.FramesPerSecond;
    };
    for (std::size_t i = 0; i < steps.size(); ++i) {
      loader.Want(i, false);
      TFrameLoader::TFrame frame;
      while (frame.State == TFrameLoader::TState::Loading) {
        CheckStop();
        frame = loader.WaitFor(i, kTurn);
      }
      CheckStop();
      if (frame.State == TFrameLoader::TState::Ready) {
        add();
        picture = std::move(frame.Picture);
        stays = steps[i];
      } else if (order_.Style.KeepsGaps) {
        stays += steps[i];
      }
      progress_->Frames = static_cast<int>(i) + 1;
    }
    stays += order_.Style.HoldSeconds * order_.Style.FramesPerSecond;
    add();
    result_.LeftOut = loader.Broken();
    if (result_.Frames == 0) throw EAnimation("None of the pictures can be read");
  }

  const TAnimationOrder& order_;
  const std::shared_ptr<TAnimationProgress> progress_;
  TAnimationResult result_;
};

}  // namespace

const char* const kNoFfmpegText =
    "MP4 and WebM need the program ffmpeg, which is not installed. A GIF can be saved without it";

TAnimationResult SaveAnimation(const TAnimationOrder& order,
                               const std::shared_ptr<TAnimationProgress>& progress) {
  TAnimationResult result;
  try {
    return TSaving(order, progress).Run();
  } catch (const TStopped&) {
    result.Stopped = true;
  } catch (const EAnimation& error) {
    result.Problem = error.what();
  } catch (const std::exception& error) {
    result.Problem = order.Output.string() + " cannot be written: " + ReasonOf(error);
  }
  return result;
}

bool IsAnimationName(const fs::path& path) {
  return FormatOf(path) != nullptr;
}

bool NeedsFfmpeg(const fs::path& path) {
  const TFormat* const format = FormatOf(path);
  return format != nullptr && format->NeedsFfmpeg();
}

std::string FindFfmpeg() {
  return QStandardPaths::findExecutable("ffmpeg").toStdString();
}

std::vector<TFrameFile> FramesOf(const std::vector<TArrival>& files, const std::string& credit) {
  std::vector<TFrameFile> frames;
  // The newest file of a slot counts; it comes first.
  for (const TArrival& file : std::views::reverse(files))
    if (MayBePicture(file.Path) && FileSizeOf(file.Path) >= 0)
      frames.push_back({file.SlotTime, file.Path, credit});
  return InTimeOrder(std::move(frames));
}

std::string SavedText(const TAnimationResult& result) {
  const QString seconds = QString::number(result.Seconds, 'f', 1);
  std::string text =
      Count(result.Frames, "picture") + ", " + seconds.toStdString() + " seconds, " + SizeText(result.Bytes);
  if (!result.LeftOut.empty())
    text += ". " + Count(static_cast<std::int64_t>(result.LeftOut.size()), "picture") +
            " left out: " + result.LeftOut.begin()->second;
  return text;
}

}  // namespace skyreel
