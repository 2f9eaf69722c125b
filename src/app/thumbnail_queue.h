#pragma once

#include <QCache>
#include <QObject>
#include <QThreadPool>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "view/thumbnail_file.h"

namespace skyreel {

/// Thumbnails for a list of pictures. Worker threads make them, the one asked for last first; those that the
/// user has scrolled past are dropped. The latest stay in memory.
class TThumbnailQueue : public QObject {
 public:
  TThumbnailQueue(TThumbnailFiles files, TThumbnailSize size);
  /// Stops the work, and waits for the pictures that are being decoded.
  ~TThumbnailQueue() override;

  /// The thumbnail if it is in memory; else nullptr, and OnReady is called later. It lasts until the next
  /// call.
  const TThumbnail* Find(const std::filesystem::path& picture);
  /// Keeps and stores the thumbnail of a picture that was loaded whole.
  void Store(const std::filesystem::path& picture, const QImage& image);
  /// The picture has changed.
  void Forget(const std::filesystem::path& picture);

  std::function<void(const std::filesystem::path& picture)> OnReady;

 private:
  void StartNext();
  void Keep(const std::filesystem::path& picture, const TThumbnail& thumbnail);

  const TThumbnailFiles files_;
  const TThumbnailSize size_;
  QCache<QString, TThumbnail> made_;
  std::vector<std::filesystem::path> waiting_;  ///< the next one last
  std::vector<std::filesystem::path> running_;
  const std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
  QThreadPool pool_;
};

}  // namespace skyreel
