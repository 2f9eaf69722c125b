#pragma once

#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QListView>
#include <QSplitter>
#include <QTimer>
#include <QToolBar>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/animation_bar.h"
#include "app/picture_canvas.h"
#include "app/picture_list.h"
#include "app/thumbnail_queue.h"

namespace skyreel {

/// Shows the pictures that the journal names: a strip of thumbnails, oldest first, and one picture large.
/// Built when it is first shown, since only then Reload asks the journal.
class TPicturesView : public QWidget {
 public:
  /// What the journal does not know of a source.
  struct TSourceWords {
    std::string Title, Credit;
  };
  struct TEnvironment {
    std::filesystem::path Journal;
    std::function<TSourceWords(const std::string& source)>
        Describe;  ///< unset: the journal's name is the title
    std::filesystem::path ThumbnailFolder = TThumbnailFiles::DefaultFolder();
  };
  explicit TPicturesView(TEnvironment environment, QWidget* parent = nullptr);

  /// Asks the journal again, on a worker thread.
  void Reload();
  /// A run has stored a file. It is shown at once, unless the user looks at an older picture or chose another
  /// source or product.
  void ShowNewest(const TPictureEntry& entry);
  /// Chooses the source and product of a picture, and shows it.
  void ShowPicture(const TPictureEntry& picture);
  /// The same, and plays the pictures of that product up to the time `to`, which is included.
  void PlayFrom(const TPictureEntry& picture, TDateTime to);

 private:
  struct TAnswer {
    std::map<std::string, std::set<std::string>> Products;
    std::vector<TPictureEntry> Entries;
    std::string Problem;   ///< what is wrong with the journal; empty when nothing is
    bool Answered = true;  ///< the journal could be read
    bool Busy = false;     ///< another program has locked the journal
  };

  void AddActions();
  void WireEvents();
  void Take(TAnswer answer);
  void GoToWanted();
  void FillSources();
  void FillProducts();
  bool IsChosen(const TPictureEntry& entry) const;
  void GoTo(int row);
  void Step(int rows) { GoTo(strip_->currentIndex().row() + rows); }
  void ShowCurrent();
  /// Looks up the pictures of the same source and product as the current one.
  TAnimationBar::TJob MakeFileJob() const;
  void ShowFrame(const TFrameFile& file, const QImage& picture);
  void ShowPaused(const TFrameFile& file);
  void ShowCaption();
  void SetCaption(const QStringList& parts);
  /// Of a picture that the user had decoded, although its thumbnail would have taken too much memory.
  void StoreThumbnail();
  void SetFullScreen(bool full);
  bool eventFilter(QObject* watched, QEvent* event) override;

  const TEnvironment environment_;
  TThumbnailQueue thumbnails_;
  TPictureList list_;
  std::map<std::string, std::set<std::string>> products_;  ///< of each source
  std::vector<TPictureEntry> came_while_asking_;
  bool asking_ = false, ask_again_ = false;
  bool following_ = true;  ///< the user looks at the newest picture
  std::filesystem::path newest_;
  std::optional<TPictureEntry> wanted_;  ///< to be shown when the journal has answered
  std::optional<TDateTime> play_to_;     ///< to be played then
  QAction leave_full_;                   ///< the canvas has it in the full screen only
  QTimer newest_timer_;                  ///< many files a second must not stop each other's decoding

  QComboBox* const source_;
  QComboBox* const product_;
  QListView* const strip_;
  TPictureCanvas* const canvas_;
  QToolBar* const bar_;
  QLabel* const caption_;
  TAnimationBar* const animation_;
  bool keeps_animation_ = false;  ///< while the current picture changes, but not by the user
  QLabel* const empty_;
  QSplitter* const splitter_;
  QWidget* full_ = nullptr;  ///< the window that holds the canvas in full screen
};

}  // namespace skyreel
