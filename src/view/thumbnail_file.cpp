#include "view/thumbnail_file.h"

#include <sys/stat.h>

#include <QBuffer>
#include <QCryptographicHash>
#include <QImageReader>
#include <QStandardPaths>
#include <cerrno>

#include "base/exceptions.h"
#include "base/files.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

/// The most memory that a small picture may take.
constexpr std::int64_t kMostBytes = 100'000'000;
const std::string kFailed = "fail/skyreel-" SKYREEL_VERSION;

std::string FolderOf(TThumbnailSize size) {
  return size == TThumbnailSize::Normal ? "normal" : "large";
}

/// Makes the folder and its parents, for the user alone.
void MakePrivateFolder(const fs::path& folder) {
  if (::mkdir(folder.c_str(), S_IRWXU) == 0 || errno != ENOENT || !folder.has_relative_path()) return;
  MakePrivateFolder(folder.parent_path());
  ::mkdir(folder.c_str(), S_IRWXU);
}

}  // namespace

/// What tells a thumbnail from others, as texts of the standard.
struct TThumbnailFiles::TKey {
  explicit TKey(const fs::path& picture) {
    struct stat info {};
    if (::stat(picture.c_str(), &info) != 0) ThrowErrno(picture.string());
    const std::string path = fs::absolute(picture).lexically_normal().string();
    // The characters that GLib leaves as they are: other programs must find the same name.
    Uri = "file://" + QByteArray::fromStdString(path).toPercentEncoding("!$&'()*+,;=:@/");
    Time = QString::number(info.st_mtime);
    Size = QString::number(info.st_size);
    Name = QCryptographicHash::hash(Uri, QCryptographicHash::Md5).toHex().toStdString() + ".png";
  }

  QByteArray Uri;
  QString Time, Size;
  std::string Name;
};

fs::path TThumbnailFiles::DefaultFolder() {
  return fs::path(QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation).toStdString()) /
         "thumbnails";
}

std::optional<TThumbnail> TThumbnailFiles::Find(const TKey& key, TThumbnailSize size) const {
  for (const std::string& below : {FolderOf(size), kFailed}) {
    QImageReader reader(QString::fromStdString((folder_ / below / key.Name).string()), "png");
    const int most = static_cast<int>(size);
    if (!reader.canRead() || reader.size().width() > most || reader.size().height() > most) continue;
    // The reader cannot return a text whose name has a colon.
    QImage image = reader.read();
    if (image.text("Thumb::URI").toUtf8() != key.Uri || image.text("Thumb::MTime") != key.Time ||
        image.text("Thumb::Size") != key.Size) {
      continue;
    }
    if (below == kFailed) return TThumbnail{{}, image.text("Description").toStdString()};
    return TThumbnail{std::move(image), {}};
  }
  return std::nullopt;
}

TThumbnail TThumbnailFiles::Get(const fs::path& picture, TThumbnailSize size,
                                std::shared_ptr<const std::atomic<bool>> stop) const try {
  const TKey key(picture);
  if (auto found = Find(key, size)) return *found;
  const int side = static_cast<int>(size);
  TPicture loaded =
      LoadPicture(picture, {.Room = {side, side}, .MostBytes = kMostBytes, .Stop = std::move(stop)});
  if (loaded.Problem.empty() && !loaded.Image.isNull()) {
    Write(key, FolderOf(size), loaded.Image, "");
  } else if (!loaded.Problem.empty() && loaded.Image.isNull() && loaded.NeededBytes == 0) {
    QImage none(1, 1, QImage::Format_ARGB32);
    none.fill(Qt::transparent);
    Write(key, kFailed, none, loaded.Problem);
  }
  return {loaded.Image, loaded.Problem};
} catch (const std::exception& error) {
  return {{}, ReasonOf(error)};
}

void TThumbnailFiles::Store(const fs::path& picture, TThumbnailSize size, const QImage& image) const try {
  const int side = static_cast<int>(size);
  const bool large = image.width() > side || image.height() > side;
  Write(TKey(picture), FolderOf(size),
        large ? image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation) : image, "");
} catch (const std::exception&) {
  // The picture has gone.
}

void TThumbnailFiles::Write(const TKey& key, const std::string& below, QImage image,
                            const std::string& problem) const {
  image.setText("Thumb::URI", key.Uri);
  image.setText("Thumb::MTime", key.Time);
  image.setText("Thumb::Size", key.Size);
  image.setText("Software", "Skyreel");
  if (!problem.empty()) image.setText("Description", QString::fromStdString(problem));
  QByteArray png;
  QBuffer buffer(&png);
  if (!buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "png")) return;
  const fs::path folder = folder_ / below;
  MakePrivateFolder(folder);
  try {
    WriteFileWhole(folder / key.Name, png.toStdString(), S_IRUSR | S_IWUSR);
  } catch (const std::exception&) {
    // A full disk: the next one who needs the thumbnail makes it again.
  }
}

}  // namespace skyreel
