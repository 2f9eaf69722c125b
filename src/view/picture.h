#pragma once

#include <QImage>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

namespace skyreel {

/// What is wanted of a picture.
struct TPictureWish {
  QSize Room;      ///< in pixels; the result is the largest that fits, and never enlarged
  QRect Region{};  ///< of the full picture, which is to fit into Room; empty: all of it
  /// A file that cannot be decoded row by row is not decoded if that takes more memory, in bytes.
  std::int64_t MostBytes = kMostBytes;
  std::shared_ptr<const std::atomic<bool>> Stop{};  ///< becomes true to end the work early

  static constexpr std::int64_t kMostBytes = 200'000'000;
};

/// What could be read of a picture file.
struct TPicture {
  QImage Image;                  ///< null: nothing
  QRect Region;                  ///< what Image shows, in pixels of the full picture
  QSize FullSize;                ///< empty when it is not known
  std::string Kind;              ///< "JPEG", "TIFF in bzip2"
  std::string Problem;           ///< a sentence that says what is wrong; empty when all was read
  std::int64_t NeededBytes = 0;  ///< not 0: not decoded, because it would take so much memory
};

/// Loads a picture file, inside .Z and bzip2 too, for a view. Its content, not its name, says what it is.
/// Takes memory for the room, not for the full picture. Samples of more than 8 bits are stretched to black
/// and white by their own least and greatest value. Never throws; takes long, so call it on a worker thread.
TPicture LoadPicture(const std::filesystem::path& path, const TPictureWish& wish);

}  // namespace skyreel
