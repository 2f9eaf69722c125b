#include <gif_lib.h>
#include <gmock/gmock.h>

#include <QProcess>
#include <QPushButton>
#include <QTest>

#include "app/animation_bar.h"
#include "app/animation_export.h"
#include "base/files.h"
#include "image/gif_writer.h"
#include "support/helpers.h"

namespace skyreel::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

TDateTime At(int minutes) {
  return TDateTime::FromDate(2026, 11, 20) + std::chrono::minutes(minutes);
}
std::vector<TFrameFile> FilesAt(const std::vector<int>& minutes) {
  std::vector<TFrameFile> files;
  for (const int each : minutes) files.push_back({At(each), std::to_string(each), ""});
  return files;
}

TEST(Animation, TakesThePicturesOfAPeriodAndCountsTheStepsOfGaps) {
  const auto files = InTimeOrder(FilesAt({20, 0, 10, 40, 50, 10, 1500}));
  EXPECT_EQ(StepsOfFrames(files, false), std::vector(6, 1));
  EXPECT_THAT(StepsOfFrames(files, true), ElementsAre(1, 1, 2, 1, kLongestGap, 1));
  EXPECT_EQ(FramesOfLast(files, 24h).size(), 1U);
  EXPECT_EQ(FramesOfLast(files, 25h).size(), 5U);
  EXPECT_EQ(FramesBetween(files, At(10), At(20)).size(), 2U);
  EXPECT_TRUE(FramesBetween(files, At(20), At(10)).empty());
}

QImage Picture(int width, int height, QRgb colour) {
  QImage picture(width, height, QImage::Format_RGB32);
  picture.fill(colour);
  return picture;
}

/// What a player shows in `ticks` ticks of a second each: the minutes of the frames, "-" for no new one.
std::string Played(const std::vector<int>& minutes, const TAnimationStyle& style, int ticks) {
  const auto load = [](const TFrameFile& file, const TFrameLoader::TStop&) {
    if (file.Path == "13") throw std::runtime_error("broken");
    return Picture(10, 10, qRgb(1, 2, 3));
  };
  TAnimationPlayer player(FilesAt(minutes), style, load);
  for (std::size_t i = 0; i < minutes.size(); ++i) player.Loader().WaitFor(i, 10s);
  TAnimationPlayer::TTime now{};
  player.Play(now);
  std::string text;
  for (int i = 0; i < ticks; ++i, now += 1s) {
    const auto shown = player.Tick(now);
    text += (shown ? player.Loader().Files()[shown->Frame].Path.string() : "-") + " ";
  }
  return text + (player.Playing() ? "..." : "end");
}

TEST(AnimationPlayer, ShowsTheFramesInTimeAndPassesOverBrokenOnes) {
  const auto style = [](bool loops, int hold, bool gaps) {
    return TAnimationStyle{.FramesPerSecond = 1, .Loops = loops, .HoldSeconds = hold, .KeepsGaps = gaps};
  };
  EXPECT_EQ(Played({11, 12, 13, 14}, style(false, 0, false), 6), "11 12 14 - - - end");
  EXPECT_EQ(Played({11, 12, 13, 14}, style(true, 2, false), 8), "11 12 14 - - 11 12 14 ...");
  EXPECT_EQ(Played({11, 12, 13, 14, 16}, style(false, 0, true), 7), "11 12 - 14 - 16 - end");
  EXPECT_EQ(Played({13}, style(true, 0, false), 2), "- - end");
}

TEST(FrameLoader, KeepsWithinItsBudgetAndKeepsAllThatFit) {
  const auto load = [](const TFrameFile&, const TFrameLoader::TStop&) { return Picture(10, 10, 0); };
  TFrameLoader loader(FilesAt({1, 2, 3, 4, 5}), load, 3 * 400);
  const auto ready = [&loader](std::size_t frame) {
    return loader.At(frame).State == TFrameLoader::TState::Ready;
  };
  loader.Want(0, false);
  for (std::size_t i = 0; i < 3; ++i) loader.WaitFor(i, 10s);
  EXPECT_TRUE(ready(2));
  loader.Want(3, true);
  for (const std::size_t frame : {4U, 0U}) loader.WaitFor(frame, 10s);
  EXPECT_TRUE(ready(3) && ready(4) && ready(0));
  EXPECT_FALSE(ready(1) || ready(2));
}

/// Pictures on the disk: a red one of 60 x 40, a green one of 40 x 40, one that is cut, one that is gone.
class AnimationExport : public testing::Test {
 protected:
  AnimationExport() {
    Picture(60, 40, qRgb(255, 0, 0)).save(QString::fromStdString(folder_ / "red.png"));
    Picture(40, 40, qRgb(0, 255, 0)).save(QString::fromStdString(folder_ / "green.png"));
    folder_.Write("cut.png", ReadWholeFile(folder_ / "red.png").substr(0, 60));
    order_.Files = {{At(0), folder_ / "cut.png", ""},
                    {At(10), folder_ / "red.png", "Somebody"},
                    {At(20), folder_ / "gone.png", ""},
                    {At(30), folder_ / "green.png", ""}};
    order_.Style = {.FramesPerSecond = 10, .Loops = true, .HoldSeconds = 1, .KeepsGaps = true};
    order_.Ffmpeg = FindFfmpeg();
  }
  TAnimationResult Save(const char* name) {
    order_.Output = folder_ / "out" / name;
    std::filesystem::create_directories(folder_ / "out");
    return SaveAnimation(order_, progress_);
  }

  const TTempFolder folder_;
  TAnimationOrder order_;
  std::shared_ptr<TAnimationProgress> progress_ = std::make_shared<TAnimationProgress>();
};

TEST_F(AnimationExport, SavesVideosThatOthersRead) {
  for (const auto& [name, codec] : {std::pair("a.mp4", "h264"), std::pair("a.webm", "vp9")}) {
    const TAnimationResult result = Save(name);
    EXPECT_EQ(result.Problem, "");
    EXPECT_EQ(result.Frames, 2);
    EXPECT_EQ(result.LeftOut.size(), 2U);
    QProcess probe;
    probe.start("ffprobe", {"-v", "error", "-count_frames", "-of", "csv=p=0", "-show_entries",
                            "stream=codec_name,width,height,pix_fmt,r_frame_rate,nb_read_frames",
                            QString::fromStdString(folder_ / "out" / name)});
    probe.waitForFinished();
    EXPECT_EQ(probe.readAll().trimmed().toStdString(), std::string(codec) + ",60,40,yuv420p,10/1,13");
  }
}

struct TReadGif {
  explicit TReadGif(const std::filesystem::path& path) : Gif(DGifOpenFileName(path.c_str(), nullptr)) {
    EXPECT_EQ(DGifSlurp(Gif), GIF_OK);
    for (int i = 0; i < Gif->ImageCount; ++i) {
      GraphicsControlBlock control;
      DGifSavedExtensionToGCB(Gif, i, &control);
      Delays.push_back(control.DelayTime);
    }
  }
  ~TReadGif() { DGifCloseFile(Gif, nullptr); }
  QRgb Pixel(int image, int x, int y) const {
    const SavedImage& saved = Gif->SavedImages[image];
    const auto& colour = saved.ImageDesc.ColorMap->Colors[saved.RasterBits[y * Gif->SWidth + x]];
    return qRgb(colour.Red, colour.Green, colour.Blue);
  }
  GifFileType* const Gif;
  std::vector<int> Delays;
};

TEST_F(AnimationExport, SavesAGifWithoutFfmpegInOneSizeAndWithCaption) {
  order_.Ffmpeg.clear();
  EXPECT_EQ(Save("a.gif").Problem, "");
  const TReadGif gif(folder_ / "out/a.gif");
  EXPECT_EQ(gif.Gif->SWidth, 60);
  EXPECT_THAT(gif.Delays, ElementsAre(20, 110));
  EXPECT_EQ(gif.Pixel(0, 5, 5), qRgb(255, 0, 0));
  EXPECT_EQ(gif.Pixel(1, 5, 5), qRgb(0, 0, 0));  // the black border
  EXPECT_EQ(gif.Pixel(1, 30, 5), qRgb(0, 255, 0));
  EXPECT_NE(gif.Pixel(1, 30, 38), qRgb(0, 255, 0));
}

TEST_F(AnimationExport, GivesOneSentenceAndLeavesNothingWhenItFails) {
  const auto script = [this](const std::string& name, const std::string& text) {
    const auto path = folder_.Write(name, "#!/bin/sh\n" + text + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path.string();
  };
  const auto usual = order_;
  const struct {
    const char* Output;
    std::string Problem;
    std::function<void()> Arrange;
  } kCases[] = {
      {"a.mp4", "is not installed", [&] { order_.Ffmpeg.clear(); }},
      {"a.mp4", "ffmpeg cannot be started", [&] { order_.Ffmpeg = folder_ / "none"; }},
      {"a.mp4", "ffmpeg failed: no encoder",
       [&] { order_.Ffmpeg = script("fails", "echo first >&2; echo no encoder >&2; exit 1"); }},
      {"a.mp4", "ffmpeg was killed", [&] { order_.Ffmpeg = script("dies", "kill -9 $$"); }},
      {"a.mp4", "ffmpeg made no progress",
       [&] {
         order_.LongestSide = TAnimationOrder::kMostSide;
         Picture(300, 300, 0).save(QString::fromStdString(folder_ / "red.png"));
         order_.Ffmpeg = script("hangs", "exec sleep 100");
       }},
      {"a.webm", "ffmpeg made no progress",
       [&] { order_.Ffmpeg = script("hangs_late", "cat > /dev/null; exec sleep 100"); }},
      {"a.webm", "ffmpeg wrote nothing", [&] { order_.Ffmpeg = script("lazy", "cat > /dev/null"); }},
      {"a.avi", "must end in .mp4, .webm or .gif", [] {}},
      {"a.gif", "no pictures in this period", [&] { order_.Files.clear(); }},
      {"a.gif", "None of the pictures can be read", [&] { order_.Files.resize(1); }},
      {"none/a.gif", "cannot be written: No such file or directory", [] {}},
  };
  for (const auto& each : kCases) {
    order_ = usual;
    order_.Patience = 300ms;
    each.Arrange();
    EXPECT_THAT(Save(each.Output).Problem, HasSubstr(each.Problem));
    EXPECT_TRUE(folder_.Tree("out").empty()) << each.Output << " " << each.Problem;
  }
}

TEST_F(AnimationExport, KeepsTheOldFileOnAFullDiskAndWhenItIsStopped) {
  folder_.Write("out/a.gif", "old");
  folder_.Write("out/a.mp4", "old");
  for (const char* const name : {"a.gif", "a.mp4"}) {
    const auto limit = LimitFileSize(200);
    EXPECT_NE(Save(name).Problem, "") << name;
  }
  progress_->Stop = true;
  EXPECT_TRUE(Save("a.gif").Stopped);
  EXPECT_THAT(folder_.Tree("out"), ElementsAre(std::pair("a.gif", 3), std::pair("a.mp4", 3)));
}

TEST(GifWriter, KeepsManyColoursNearAndTellsAWriteError) {
  TExtBitmap picture(TPixelFormat::Bits24);
  picture.SetSize(64, 64);
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      const std::uint8_t blue = static_cast<std::uint8_t>(4 * x), red = static_cast<std::uint8_t>(4 * y);
      std::copy_n(std::array<std::uint8_t, 3>{blue, 128, red}.data(), 3, picture.ScanLine(y) + 3 * x);
    }
  const TTempFolder folder;
  std::string bytes;
  TGifWriter writer(64, 64, false, [&bytes](std::string_view more) { bytes += more; });
  writer.Add(picture, 5);
  writer.Finish();
  const TReadGif gif(folder.Write("a.gif", bytes));
  int worst = 0;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      const QRgb pixel = gif.Pixel(0, x, y);
      worst = std::max({worst, std::abs(qBlue(pixel) - 4 * x), std::abs(qRed(pixel) - 4 * y)});
    }
  EXPECT_LE(worst, 10);
  const auto full = [](std::string_view) { throw std::runtime_error("full"); };
  EXPECT_EQ(Failure([&] { TGifWriter(64, 64, true, full).Finish(); }), "full");
}

TEST_F(AnimationExport, BarPlaysPausesAndCountsWhatIsLeftOut) {
  std::vector<TDateTime> shown;
  std::optional<TDateTime> paused;
  TAnimationBar bar({.MakeFileJob = [this] { return [files = order_.Files] { return files; }; },
                     .Room = [] { return QSize(30, 30); },
                     .Show = [&](const TFrameFile& file, const QImage&) { shown.push_back(file.SlotTime); },
                     .Paused = [&](const TFrameFile& file) { paused = file.SlotTime; },
                     .Current = [] { return std::filesystem::path(); }});
  bar.findChild<QSpinBox*>("SpinSpeed")->setValue(30);
  bar.PlayRange(At(0), At(60));
  EXPECT_TRUE(QTest::qWaitFor([&] { return shown.size() == 2; }));
  EXPECT_THAT(shown, ElementsAre(At(10), At(30)));
  bar.PlayOrPause();
  EXPECT_EQ(paused, At(30));
  EXPECT_EQ(bar.StateText(), "4 pictures, 2 left out");
  bar.PlayRange(At(40), At(60));
  EXPECT_TRUE(QTest::qWaitFor([&] { return bar.StateText() == "There are no pictures in this period"; }));
}

}  // namespace
}  // namespace skyreel::test
