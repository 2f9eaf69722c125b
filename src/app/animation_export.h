#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "journal/journal.h"
#include "view/animation.h"

namespace skyreel {

/// An animation to save, and where.
struct TAnimationOrder {
  static constexpr int kLeastSide = 16, kMostSide = 4096;

  std::vector<TFrameFile> Files;  ///< in the order of time
  TAnimationStyle Style;
  int LongestSide = 1080;        ///< of a frame, kLeastSide to kMostSide pixels; no picture is enlarged
  bool Caption = true;           ///< paints time and credit into each frame
  std::filesystem::path Output;  ///< its extension chooses the format: .mp4, .webm, .gif
  std::string Ffmpeg;            ///< the program; empty: not installed
  /// ffmpeg is stopped after this time without input or output.
  std::chrono::milliseconds Patience = std::chrono::minutes(1);
};

/// Shared by the thread that saves and the one that watches.
struct TAnimationProgress {
  std::atomic<int> Frames = 0;     ///< of Order.Files, done
  std::atomic<bool> Stop = false;  ///< set it to give up
};

struct TAnimationResult {
  std::string Problem;   ///< a sentence without a full stop: why no file was written; empty when one was
  bool Stopped = false;  ///< Stop was set in time; then there is no file and no problem
  int Frames = 0;        ///< pictures in the animation
  std::map<std::size_t, std::string> LeftOut;  ///< the broken ones and why
  double Seconds = 0;                          ///< how long the animation runs
  std::int64_t Bytes = 0;                      ///< of the file
};

/// Saves an animation: MP4 (H.264) and WebM (VP9) by ffmpeg, GIF without it. The file arrives whole or not at
/// all. Never throws. Takes long, so call it on a worker thread; it needs a QGuiApplication for the captions.
/// Broken pictures are left out.
TAnimationResult SaveAnimation(const TAnimationOrder& order,
                               const std::shared_ptr<TAnimationProgress>& progress);

/// Whether files of this extension are animations, and whether they need ffmpeg.
bool IsAnimationName(const std::filesystem::path& path);
bool NeedsFfmpeg(const std::filesystem::path& path);
/// The path of ffmpeg; empty when it is not installed.
std::string FindFfmpeg();
extern const char* const kNoFfmpegText;

/// The files that are on the disk and may be pictures, in the order of time. `files` has the newest first, as
/// the journal gives them. Looks at the disk.
std::vector<TFrameFile> FramesOf(const std::vector<TArrival>& files, const std::string& credit);

/// "144 pictures, 12.0 seconds, 3.4 MB" and what was left out.
std::string SavedText(const TAnimationResult& result);

}  // namespace skyreel
