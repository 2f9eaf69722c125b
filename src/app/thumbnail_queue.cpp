#include "app/thumbnail_queue.h"

#include <algorithm>

#include "app/background.h"
#include "base/event.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// About as many as a tall screen shows.
constexpr std::size_t kMostWaiting = 64;
constexpr qsizetype kMostBytes = 32 << 20;

QString KeyOf(const fs::path& picture) {
  return QString::fromStdString(picture.string());
}

}  // namespace

TThumbnailQueue::TThumbnailQueue(TThumbnailFiles files, TThumbnailSize size)
    : files_(std::move(files)), size_(size), made_(kMostBytes) {
  pool_.setMaxThreadCount(std::clamp(QThread::idealThreadCount(), 1, 4));
}

TThumbnailQueue::~TThumbnailQueue() {
  *stop_ = true;
}

const TThumbnail* TThumbnailQueue::Find(const fs::path& picture) {
  if (const TThumbnail* const found = made_.object(KeyOf(picture))) return found;
  if (std::ranges::find(running_, picture) != running_.end()) return nullptr;
  std::erase(waiting_, picture);
  waiting_.push_back(picture);
  if (waiting_.size() > kMostWaiting) waiting_.erase(waiting_.begin());
  StartNext();
  return nullptr;
}

void TThumbnailQueue::Forget(const fs::path& picture) {
  made_.remove(KeyOf(picture));
}

void TThumbnailQueue::Store(const fs::path& picture, const QImage& image) {
  InBackground(
      this, &pool_,
      [files = files_, size = size_, picture, image] {
        files.Store(picture, size, image);
        return files.Get(picture, size);
      },
      [this, picture](const TThumbnail& thumbnail) { Keep(picture, thumbnail); });
}

void TThumbnailQueue::Keep(const fs::path& picture, const TThumbnail& thumbnail) {
  made_.insert(KeyOf(picture), new TThumbnail(thumbnail), thumbnail.Image.sizeInBytes() + 512);
  Fire(OnReady, picture);
}

void TThumbnailQueue::StartNext() {
  while (!waiting_.empty() && running_.size() < static_cast<std::size_t>(pool_.maxThreadCount())) {
    const fs::path picture = waiting_.back();
    waiting_.pop_back();
    running_.push_back(picture);
    InBackground(
        this, &pool_,
        [files = files_, size = size_, stop = stop_, picture] { return files.Get(picture, size, stop); },
        [this, picture](const TThumbnail& thumbnail) {
          std::erase(running_, picture);
          Keep(picture, thumbnail);
          StartNext();
        });
  }
}

}  // namespace skyreel
