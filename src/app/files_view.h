#pragma once

#include <QAbstractTableModel>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <vector>

#include "app/file_list.h"

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTableView;

namespace skyreel {

/// Files of the journal as a table; the newest answer of ListFiles.
class TFilesModel : public QAbstractTableModel {
 public:
  using QAbstractTableModel::QAbstractTableModel;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  const TListedFiles& Files() const { return files_; }
  void SetFiles(TListedFiles files);

 private:
  TListedFiles files_;
};

/// What became of each file of the latest run, or of the last day, week or month. The journal is read on a
/// worker thread.
class TFilesView : public QWidget {
 public:
  struct TSetup {
    std::filesystem::path Journal;
    std::function<TDateTime()> UtcNow;
    /// Why this file cannot be fetched anew; empty when it can.
    std::function<std::string(const TJournalEntry& file)> WhyNotAgain;
    std::function<void(const std::vector<TJournalEntry>& files)> FetchAgain;
  };
  explicit TFilesView(TSetup setup);

  /// Reads what is new in the journal.
  void Refresh();
  /// While a run adds files, new ones appear by themselves.
  void SetRunning(bool running);
  /// Lets the user type into the filter box.
  void Find();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void BuildTable();
  void AddActions();
  void ReadAnew();
  void Show(TFileAnswer answer);
  void ShowSummary();
  void ShowMenu(const QPoint& at);
  std::vector<TJournalEntry> Selected() const;
  void CopyOfSelected(const std::function<std::string(const TJournalEntry&)>& text) const;
  void OpenFile();
  void OpenFolder();
  /// Opens a path in the desktop's program for it.
  void Open(const std::filesystem::path& path);
  std::string WhyNotAgain(const std::vector<TJournalEntry>& files) const;
  void FetchAgain();
  void Tell(const std::string& text);

  const TSetup setup_;
  QComboBox* const range_;
  QLineEdit* const filter_;
  QCheckBox* const problems_;
  QLabel* const summary_;
  QLabel* const message_;  ///< what went wrong; hidden when it is empty
  QTableView* const table_;
  TFilesModel model_;
  QAction *open_ = nullptr, *folder_ = nullptr, *copy_path_ = nullptr, *copy_address_ = nullptr,
          *again_ = nullptr;
  QTimer timer_refresh_, timer_filter_;

  TListedFiles all_;
  std::int64_t run_ = 0, last_id_ = 0;
  std::size_t problems_count_ = 0;
  bool reading_ = false;    ///< a worker is busy with a question
  bool asks_next_ = false;  ///< another question waits for its end
  bool forgets_ = false;    ///< the next question begins anew
  std::string problem_;     ///< of the journal
};

}  // namespace skyreel
