#pragma once

#include <QImage>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/date_time.h"

namespace skyreel {

/// One picture of an animation.
struct TFrameFile {
  TDateTime SlotTime;  ///< zero: not known
  std::filesystem::path Path;
  std::string Credit;
};

/// How an animation runs.
struct TAnimationStyle {
  static constexpr int kMostFramesPerSecond = 30;
  static constexpr int kLongestHold = 10;

  int FramesPerSecond = 12;  ///< 1 to kMostFramesPerSecond
  bool Loops = true;
  int HoldSeconds = 1;     ///< how much longer the last picture stays, 0 to kLongestHold
  bool KeepsGaps = false;  ///< the last picture stays while a slot has none; otherwise the gap is passed over
};

/// The files in the order of their slot times, each time once (the last of the list counts). Files without a
/// time are left out.
std::vector<TFrameFile> InTimeOrder(std::vector<TFrameFile> files);
/// The files, in the order of time, from `from` to `to`, both included.
std::vector<TFrameFile> FramesBetween(const std::vector<TFrameFile>& files, TDateTime from, TDateTime to);
/// The files, in the order of time, of the hours up to the newest one.
std::vector<TFrameFile> FramesOfLast(const std::vector<TFrameFile>& files, std::chrono::hours hours);

/// For how many steps each frame stays. The files are in the order of time. A step is the distance that most
/// neighbours have; a gap counts as at most kLongestGap steps.
std::vector<int> StepsOfFrames(const std::vector<TFrameFile>& files, bool keeps_gaps);
inline constexpr int kLongestGap = 144;

/// Loads the pictures of an animation ahead of their show, on two threads.
class TFrameLoader {
 public:
  enum class TState { Loading, Ready, Broken };
  struct TFrame {
    TState State = TState::Loading;
    QImage Picture{};
    std::string Reason{};  ///< why it is broken
  };
  using TStop = std::shared_ptr<const std::atomic<bool>>;
  /// Makes the picture of a frame; called on both threads. It may end early when `stop` becomes true. Throws
  /// std::exception when there is no picture.
  using TLoad = std::function<QImage(const TFrameFile& file, const TStop& stop)>;

  /// The pictures that are kept take `budget` bytes, or as many as two of them do if that is more.
  TFrameLoader(std::vector<TFrameFile> files, TLoad load, std::int64_t budget);
  ~TFrameLoader();
  TFrameLoader(const TFrameLoader&) = delete;
  TFrameLoader& operator=(const TFrameLoader&) = delete;

  const std::vector<TFrameFile>& Files() const { return files_; }
  /// Loads from this frame on, as many as the budget allows, and drops the others. `loops`: the first frame
  /// follows the last.
  void Want(std::size_t frame, bool loops);
  /// The frame as it is now.
  TFrame At(std::size_t frame) const;
  /// Waits until the frame, a wanted one, is loaded or broken, for at most `limit`.
  TFrame WaitFor(std::size_t frame, std::chrono::milliseconds limit) const;
  /// The frames that turned out to be broken, with their reasons.
  std::map<std::size_t, std::string> Broken() const;

 private:
  void Work();
  TFrame Look(std::size_t frame) const;
  /// How many frames after the wanted one come before this; nothing when it is not wanted.
  std::optional<std::size_t> Distance(std::size_t frame) const;
  std::optional<std::size_t> Next() const;
  std::size_t Room() const;
  void DropUnwanted();

  const std::vector<TFrameFile> files_;
  const TLoad load_;
  const std::int64_t budget_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  const std::shared_ptr<std::atomic<bool>> ends_ = std::make_shared<std::atomic<bool>>(false);
  std::optional<std::size_t> first_;  ///< the wanted one
  bool loops_ = false;
  std::int64_t largest_ = 0;  ///< bytes of a picture
  std::map<std::size_t, QImage> ready_;
  std::map<std::size_t, std::string> broken_;
  std::set<std::size_t> loading_;
  std::vector<std::thread> threads_;
};

/// Makes the pictures for a view of `room` pixels. Throws std::runtime_error for a picture that is damaged or
/// gone.
TFrameLoader::TLoad LoadForView(QSize room);

/// Plays an animation: says which picture is due. Its caller gives the time and shows the picture.
class TAnimationPlayer {
 public:
  using TTime = std::chrono::steady_clock::time_point;

  /// `budget`: see TFrameLoader. There is one file or more.
  TAnimationPlayer(std::vector<TFrameFile> files, TAnimationStyle style, TFrameLoader::TLoad load,
                   std::int64_t budget = kBudget);

  /// Also while it plays.
  void SetStyle(const TAnimationStyle& style);
  const TAnimationStyle& Style() const { return style_; }

  /// Makes the pictures anew, for a view of another size for example.
  void SetLoad(TFrameLoader::TLoad load);

  /// Begins to play at the present step; at the end, with the first.
  void Play(TTime now);
  void Pause() { playing_ = false; }
  bool Playing() const { return playing_; }
  /// Goes to a step. Its picture comes with a later Tick.
  void GoTo(int step);
  void GoToFrame(std::size_t frame);

  int Steps() const { return static_cast<int>(frame_of_step_.size()); }
  int Step() const { return step_; }

  struct TShown {
    std::size_t Frame;
    QImage Picture;
  };
  /// Moves on to the step that is due. Returns its picture if it is another one than before. Does not
  /// wait for pictures: the animation stops until the next one is loaded.
  std::optional<TShown> Tick(TTime now);
  /// When the next Tick is useful; nothing while it pauses and shows what it should.
  std::optional<TTime> NextTick(TTime now) const;

  /// The frame that was shown last.
  std::optional<std::size_t> ShownFrame() const { return shown_; }

  const TFrameLoader& Loader() const { return *loader_; }

  /// With it 144 pictures for a view of 640 x 640 pixels all stay in memory.
  static constexpr std::int64_t kBudget = 240'000'000;

 private:
  TTime::duration Period() const;

  TAnimationStyle style_;
  const std::int64_t budget_;
  std::optional<TFrameLoader> loader_;
  std::vector<std::size_t> frame_of_step_;
  int step_ = 0;
  bool playing_ = false;
  bool wanted_ = true;                ///< the picture of the step is still to be shown
  std::optional<std::size_t> shown_;  ///< the frame that was returned last
  TTime due_{};                       ///< of the next step
};

}  // namespace skyreel
