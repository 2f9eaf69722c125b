#pragma once

#include <QImage>
#include <filesystem>
#include <optional>
#include <string>

#include "view/picture.h"

namespace skyreel {

enum class TThumbnailSize { Normal = 128, Large = 256 };  ///< the longer side at most, in pixels

struct TThumbnail {
  QImage Image;         ///< null: no picture
  std::string Problem;  ///< what is wrong with the picture; empty: nothing
};

/// The thumbnails of the user's desktop, which other programs use too. Source: the freedesktop Thumbnail
/// Managing Standard. A thumbnail is valid only while its picture keeps its time and size. Its
/// operations may run on several threads at once, and a cache that cannot be written is not an error.
class TThumbnailFiles {
 public:
  /// The folder holds "normal", "large" and "fail".
  explicit TThumbnailFiles(std::filesystem::path folder = DefaultFolder()) : folder_(std::move(folder)) {}
  /// $XDG_CACHE_HOME/thumbnails
  static std::filesystem::path DefaultFolder();

  /// The thumbnail from the cache, or else a new one, which is stored. A stopped one is empty.
  TThumbnail Get(const std::filesystem::path& picture, TThumbnailSize size,
                 std::shared_ptr<const std::atomic<bool>> stop = {}) const;
  /// Stores a thumbnail of a picture that was loaded whole.
  void Store(const std::filesystem::path& picture, TThumbnailSize size, const QImage& image) const;

 private:
  struct TKey;
  std::optional<TThumbnail> Find(const TKey& key, TThumbnailSize size) const;
  void Write(const TKey& key, const std::string& below, QImage image, const std::string& problem) const;

  std::filesystem::path folder_;
};

}  // namespace skyreel
