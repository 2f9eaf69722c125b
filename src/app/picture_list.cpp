#include "app/picture_list.h"

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <QStyle>
#include <algorithm>
#include <array>

#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

QString SlotOrName(const TPictureEntry& entry) {
  return QString::fromStdString(entry.SlotTime.IsZero() ? entry.Path.filename().string()
                                                        : FormatDateTime("yyyy-mm-dd hh:nn", entry.SlotTime));
}

/// All items have decorations of one size, so that their texts stand in line.
QPixmap Centred(const QPixmap& picture) {
  QPixmap square(TPictureList::kSide, TPictureList::kSide);
  square.fill(Qt::transparent);
  QPainter(&square).drawPixmap((square.width() - picture.width()) / 2,
                               (square.height() - picture.height()) / 2, picture);
  return square;
}

bool IsEarlier(const TPictureEntry& a, const TPictureEntry& b) {
  return a.SlotTime < b.SlotTime;
}

}  // namespace

bool MayBePicture(const fs::path& path) {
  constexpr std::array kOthers = {".nc",  ".h5",  ".hdf", ".tar", ".zip",  ".gz",  ".pdf",
                                  ".txt", ".htm", ".csv", ".xml", ".html", ".json"};
  const std::string packing = LowerCase(path.extension().string());
  const fs::path name = packing == ".z" || packing == ".bz2" ? path.stem() : path;
  return std::ranges::find(kOthers, LowerCase(name.extension().string())) == kOthers.end();
}

TPictureList::TPictureList(QObject* parent, TThumbnailQueue& thumbnails)
    : QAbstractListModel(parent), thumbnails_(thumbnails) {
  thumbnails_.OnReady = [this](const fs::path& path) {
    const QModelIndex changed = index(RowOf(path));
    if (changed.isValid()) emit dataChanged(changed, changed);
  };
}

void TPictureList::SetEntries(std::vector<TPictureEntry> entries) {
  beginResetModel();
  entries_ = std::move(entries);
  std::ranges::reverse(entries_);
  std::ranges::stable_sort(entries_, IsEarlier);
  endResetModel();
}

int TPictureList::Add(const TPictureEntry& entry) {
  if (const int row = RowOf(entry.Path); row >= 0) {
    thumbnails_.Forget(entry.Path);
    entries_[static_cast<std::size_t>(row)] = entry;
    emit dataChanged(index(row), index(row));
    return row;
  }
  const auto place = std::ranges::upper_bound(entries_, entry, IsEarlier);
  const int row = static_cast<int>(place - entries_.begin());
  thumbnails_.Forget(entry.Path);
  beginInsertRows({}, row, row);
  entries_.insert(place, entry);
  endInsertRows();
  return row;
}

int TPictureList::RowOf(const fs::path& path) const {
  const auto found = std::ranges::find(entries_, path, &TPictureEntry::Path);
  return found == entries_.end() ? -1 : static_cast<int>(found - entries_.begin());
}

QVariant TPictureList::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const TPictureEntry& entry = At(index.row());
  switch (role) {
    case Qt::DisplayRole:
      return SlotOrName(entry);
    case Qt::DecorationRole: {
      const TThumbnail* const thumbnail = ThumbnailAt(index.row());
      if (thumbnail == nullptr) return Centred({});
      if (!thumbnail->Image.isNull()) return Centred(QPixmap::fromImage(thumbnail->Image));
      return Centred(QApplication::style()->standardPixmap(QStyle::SP_MessageBoxWarning));
    }
    case Qt::ToolTipRole:
    case Qt::AccessibleDescriptionRole: {
      const TThumbnail* const thumbnail = ThumbnailAt(index.row());
      std::string text = entry.Title + " " + entry.Product + "\n" + entry.Path.string();
      if (thumbnail != nullptr && !thumbnail->Problem.empty()) text += "\n" + thumbnail->Problem;
      return QString::fromStdString(text).toHtmlEscaped().replace("\n", "<br>");
    }
    default:
      return {};
  }
}

}  // namespace skyreel
