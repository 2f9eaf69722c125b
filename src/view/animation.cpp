#include "view/animation.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "view/picture.h"

namespace skyreel {

namespace {

constexpr int kThreads = 2;
/// How soon the player looks again for a picture that is being loaded.
constexpr auto kSoon = std::chrono::milliseconds(5);

/// The distance that most neighbours have; zero without neighbours.
TDateTime::TSpan UsualDistance(const std::vector<TFrameFile>& files) {
  std::map<TDateTime::TSpan, int> counts;
  for (std::size_t i = 1; i < files.size(); ++i) ++counts[files[i].SlotTime - files[i - 1].SlotTime];
  const auto usual = std::ranges::max_element(counts, {}, [](const auto& each) { return each.second; });
  return usual == counts.end() ? TDateTime::TSpan(0) : usual->first;
}

}  // namespace

std::vector<TFrameFile> InTimeOrder(std::vector<TFrameFile> files) {
  std::map<TDateTime, TFrameFile> by_time;
  for (TFrameFile& file : files)
    if (!file.SlotTime.IsZero()) by_time[file.SlotTime] = std::move(file);
  files.clear();
  for (auto& [time, file] : by_time) files.push_back(std::move(file));
  return files;
}

std::vector<TFrameFile> FramesBetween(const std::vector<TFrameFile>& files, TDateTime from, TDateTime to) {
  const auto begin = std::ranges::lower_bound(files, from, {}, &TFrameFile::SlotTime);
  const auto end = std::ranges::upper_bound(files, to, {}, &TFrameFile::SlotTime);
  return begin < end ? std::vector(begin, end) : std::vector<TFrameFile>();
}

std::vector<TFrameFile> FramesOfLast(const std::vector<TFrameFile>& files, std::chrono::hours hours) {
  if (files.empty()) return {};
  const TDateTime newest = files.back().SlotTime;
  // "24 hours" are 144 pictures of a slot each 10 minutes, not 145.
  return FramesBetween(files, newest - hours + TDateTime::TSpan(1), newest);
}

std::vector<int> StepsOfFrames(const std::vector<TFrameFile>& files, bool keeps_gaps) {
  std::vector<int> steps(files.size(), 1);
  const TDateTime::TSpan step = UsualDistance(files);
  if (!keeps_gaps || step.count() <= 0) return steps;
  for (std::size_t i = 1; i < files.size(); ++i) {
    const auto distance = files[i].SlotTime - files[i - 1].SlotTime;
    steps[i - 1] = static_cast<int>(std::clamp<std::int64_t>((distance + step / 2) / step, 1, kLongestGap));
  }
  return steps;
}

TFrameLoader::TFrameLoader(std::vector<TFrameFile> files, TLoad load, std::int64_t budget)
    : files_(std::move(files)), load_(std::move(load)), budget_(budget) {
  for (int i = 0; i < kThreads; ++i) threads_.emplace_back([this] { Work(); });
}

TFrameLoader::~TFrameLoader() {
  {
    const std::scoped_lock lock(mutex_);
    *ends_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void TFrameLoader::Want(std::size_t frame, bool loops) {
  {
    const std::scoped_lock lock(mutex_);
    first_ = frame;
    loops_ = loops;
    DropUnwanted();
  }
  changed_.notify_all();
}

TFrameLoader::TFrame TFrameLoader::At(std::size_t frame) const {
  const std::scoped_lock lock(mutex_);
  return Look(frame);
}

TFrameLoader::TFrame TFrameLoader::WaitFor(std::size_t frame, std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [&] { return Look(frame).State != TState::Loading; });
  return Look(frame);
}

std::map<std::size_t, std::string> TFrameLoader::Broken() const {
  const std::scoped_lock lock(mutex_);
  return broken_;
}

TFrameLoader::TFrame TFrameLoader::Look(std::size_t frame) const {
  if (const auto ready = ready_.find(frame); ready != ready_.end()) return {TState::Ready, ready->second};
  if (const auto broken = broken_.find(frame); broken != broken_.end())
    return {TState::Broken, {}, broken->second};
  return {};
}

std::size_t TFrameLoader::Room() const {
  // One for each thread until the size of a picture is known.
  if (largest_ == 0) return kThreads;
  return static_cast<std::size_t>(std::max<std::int64_t>(kThreads, budget_ / largest_));
}

std::optional<std::size_t> TFrameLoader::Distance(std::size_t frame) const {
  if (!first_) return std::nullopt;
  std::size_t distance = frame - *first_;
  if (frame < *first_) {
    if (!loops_ && Room() < files_.size()) return std::nullopt;
    distance += files_.size();
  }
  return distance < Room() ? std::optional(distance) : std::nullopt;
}

std::optional<std::size_t> TFrameLoader::Next() const {
  if (!first_) return std::nullopt;
  for (std::size_t i = 0; i < std::min(Room(), files_.size()); ++i) {
    const std::size_t frame = (*first_ + i) % files_.size();
    if (!Distance(frame)) break;
    if (!ready_.contains(frame) && !broken_.contains(frame) && !loading_.contains(frame)) return frame;
  }
  return std::nullopt;
}

void TFrameLoader::DropUnwanted() {
  std::erase_if(ready_, [this](const auto& each) { return !Distance(each.first); });
}

void TFrameLoader::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    std::optional<std::size_t> frame;
    changed_.wait(lock, [&] { return *ends_ || (frame = Next()); });
    if (*ends_) return;
    loading_.insert(*frame);
    lock.unlock();
    QImage picture;
    std::string reason;
    try {
      picture = load_(files_[*frame], ends_);
      if (picture.isNull()) reason = "it is empty";
    } catch (const std::exception& error) {
      reason = error.what();
    }
    lock.lock();
    loading_.erase(*frame);
    if (reason.empty()) {
      largest_ = std::max<std::int64_t>(largest_, picture.sizeInBytes());
      ready_[*frame] = std::move(picture);
      DropUnwanted();
    } else {
      broken_[*frame] = reason;
    }
    changed_.notify_all();
  }
}

TFrameLoader::TLoad LoadForView(QSize room) {
  return [room](const TFrameFile& file, const TFrameLoader::TStop& stop) {
    TPicture picture = LoadPicture(file.Path, {.Room = room, .Stop = stop});
    if (!picture.Problem.empty()) throw std::runtime_error(picture.Problem);
    return std::move(picture.Image);
  };
}

TAnimationPlayer::TAnimationPlayer(std::vector<TFrameFile> files, TAnimationStyle style,
                                   TFrameLoader::TLoad load, std::int64_t budget)
    : budget_(budget), loader_(std::in_place, std::move(files), std::move(load), budget) {
  SetStyle(style);
}

void TAnimationPlayer::SetStyle(const TAnimationStyle& style) {
  const std::size_t frame = frame_of_step_.empty() ? 0 : frame_of_step_[static_cast<std::size_t>(step_)];
  style_ = style;
  frame_of_step_.clear();
  const std::vector<int> steps = StepsOfFrames(loader_->Files(), style.KeepsGaps);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (i == frame) step_ = Steps();
    frame_of_step_.insert(frame_of_step_.end(), static_cast<std::size_t>(steps[i]), i);
  }
  loader_->Want(frame, style.Loops);
}

void TAnimationPlayer::SetLoad(TFrameLoader::TLoad load) {
  std::vector<TFrameFile> files = loader_->Files();
  loader_.emplace(std::move(files), std::move(load), budget_);
  shown_.reset();
  GoTo(step_);
}

void TAnimationPlayer::Play(TTime now) {
  if (step_ + 1 >= Steps()) GoTo(0);
  playing_ = true;
  due_ = now + Period();
}

void TAnimationPlayer::GoTo(int step) {
  step_ = std::clamp(step, 0, Steps() - 1);
  wanted_ = true;
  loader_->Want(frame_of_step_[static_cast<std::size_t>(step_)], style_.Loops);
}

void TAnimationPlayer::GoToFrame(std::size_t frame) {
  GoTo(static_cast<int>(std::ranges::lower_bound(frame_of_step_, frame) - frame_of_step_.begin()));
}

TAnimationPlayer::TTime::duration TAnimationPlayer::Period() const {
  const TTime::duration period = TTime::duration(std::chrono::seconds(1)) / style_.FramesPerSecond;
  return step_ + 1 < Steps() ? period : period + std::chrono::seconds(style_.HoldSeconds);
}

std::optional<TAnimationPlayer::TShown> TAnimationPlayer::Tick(TTime now) {
  // Each round passes over one broken picture.
  for (int round = 0; round <= Steps(); ++round) {
    const bool last = step_ + 1 == Steps();
    if (!wanted_ && !(playing_ && now >= due_)) return std::nullopt;
    if (!wanted_ && last && !style_.Loops) {
      playing_ = false;
      return std::nullopt;
    }
    const int step = wanted_ ? step_ : last ? 0 : step_ + 1;
    const std::size_t frame = frame_of_step_[static_cast<std::size_t>(step)];
    loader_->Want(frame, style_.Loops);
    TFrameLoader::TFrame found = loader_->At(frame);
    if (found.State == TFrameLoader::TState::Loading) return std::nullopt;
    step_ = step;
    // A late picture moves the whole rest of the animation.
    due_ = (std::exchange(wanted_, false) ? now : std::max(due_, now - Period())) + Period();
    if (found.State == TFrameLoader::TState::Ready) {
      if (shown_ == frame) return std::nullopt;
      shown_ = frame;
      return TShown{frame, std::move(found.Picture)};
    }
    if (style_.KeepsGaps || !playing_) return std::nullopt;
    due_ = now;
  }
  playing_ = false;  // all are broken
  return std::nullopt;
}

std::optional<TAnimationPlayer::TTime> TAnimationPlayer::NextTick(TTime now) const {
  if (wanted_) return now + kSoon;
  if (!playing_) return std::nullopt;
  return std::max(due_, now + std::chrono::milliseconds(1));
}

}  // namespace skyreel
