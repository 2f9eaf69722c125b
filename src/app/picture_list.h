#pragma once

#include <QAbstractListModel>
#include <filesystem>
#include <string>
#include <vector>

#include "app/thumbnail_queue.h"
#include "base/date_time.h"

namespace skyreel {

/// One picture of the view.
struct TPictureEntry {
  std::string Source;   ///< as the journal calls it
  std::string Title;    ///< of the source, for the user
  std::string Product;  ///< empty: the source has one only
  TDateTime SlotTime;   ///< UTC; zero: unknown
  std::filesystem::path Path;
  std::string Credit;  ///< empty: none is known
};

/// Whether the file may be a picture, going by the extension. Those of data and documents are not.
bool MayBePicture(const std::filesystem::path& path);

/// The pictures of a strip, in the order of their slot times, with their thumbnails.
class TPictureList : public QAbstractListModel {
 public:
  static constexpr int kSide = static_cast<int>(TThumbnailSize::Normal);  ///< of a thumbnail, in pixels

  TPictureList(QObject* parent, TThumbnailQueue& thumbnails);

  /// The entries come with the newest first.
  void SetEntries(std::vector<TPictureEntry> entries);
  /// Adds the entry at its place, or takes it for one whose file was replaced. Returns its row.
  int Add(const TPictureEntry& entry);
  const TPictureEntry& At(int row) const { return entries_.at(static_cast<std::size_t>(row)); }
  /// -1: it is not in the list.
  int RowOf(const std::filesystem::path& path) const;
  int Count() const { return static_cast<int>(entries_.size()); }
  /// Whether a thumbnail was made and what it shows.
  const TThumbnail* ThumbnailAt(int row) const { return thumbnails_.Find(At(row).Path); }

  int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : Count(); }
  QVariant data(const QModelIndex& index, int role) const override;

 private:
  TThumbnailQueue& thumbnails_;
  std::vector<TPictureEntry> entries_;
};

}  // namespace skyreel
