#pragma once

#include <QAction>
#include <QTimer>
#include <QWidget>
#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/coverage_source.h"
#include "app/coverage_table.h"

class QComboBox;
class QLabel;

namespace skyreel {

/// What the view needs from outside.
struct TCoverageEnvironment {
  std::filesystem::path JournalFile, LedgerFile;
  std::function<TDateTime()> UtcNow;
  std::function<std::vector<TCoverageSource>()> Sources;
  /// Why a file cannot be fetched now; empty when it can.
  std::function<std::string(const TJournalEntry& file)> WhyNotFetch = {};
};

/// Shows which slots of a product are there: a table of days and slots, a legend with counts, and what can be
/// done with the chosen slots. Disk and journal are read on worker threads; files are checked a day at a
/// time, and only those in view.
class TCoverageView : public QWidget {
 public:
  explicit TCoverageView(TCoverageEnvironment environment, QWidget* parent = nullptr);

  /// The environment has other sources.
  void SourcesChanged();
  /// Reads disk and journal anew.
  void Reload();
  /// A run has ended with this slot.
  void FileDone(const std::string& source, const std::string& product, const TSlotOutcome& tried);

  /// A run has begun or ended.
  void RunChanged();

  // These get chosen slots, oldest first, as the journal names them. The paths are absolute.

  std::function<void(const TJournalEntry& picture)> OnShowPicture;         ///< whose file is there
  std::function<void(const std::vector<TJournalEntry>& files)> OnFetch;    ///< they are missing, or cut
  std::function<void(const std::vector<TJournalEntry>& pictures)> OnPlay;  ///< their files are there

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  struct TLoaded {
    std::shared_ptr<const TCoverageSource> Source = nullptr;
    std::vector<std::string> Products = {};
    std::string Product = "";
    TCoverage Coverage = {};
    std::string Problem = "";  ///< why the journal could not be read
  };

  void BuildControls();
  QAction* AddAction(const QString& text, const char* name, const QKeySequence& key,
                     void (TCoverageView::*action)());
  void WireEvents();
  void FillSources();
  const TCoverageSource* Source() const;  ///< the chosen one, which may still be loading
  /// The work of a worker thread.
  static TLoaded Load(const std::shared_ptr<const TCoverageSource>& source,
                      const TCoverageEnvironment& environment, TDateTime now, std::string product, int days);
  void Show(TLoaded loaded);
  /// Checks the first day in view that is not checked yet, then the next.
  void CheckNextDay();
  void ShowCounts();
  void ShowChoice();
  /// Why so many of the chosen files cannot be fetched.
  std::string WhyNotFetch(int files) const;

  /// Those of the cells that have one of these states.
  std::vector<TJournalEntry> Chosen(const std::vector<TCoverageCell>& cells,
                                    const std::vector<TCellState>& states) const;
  void FetchThese();
  void PlayThese();
  void ShowInFolder();
  void CopyAsText();

  const TCoverageEnvironment environment_;
  std::vector<std::shared_ptr<const TCoverageSource>> sources_;
  TCoverageModel model_;
  std::string chosen_source_;  ///< by the user; empty: the first one
  std::string product_;        ///< chosen by the user, or the first one
  // Of the cells in the table.
  std::shared_ptr<const TCoverageSource> shown_source_;
  std::string shown_product_;
  QComboBox* combo_source_ = nullptr;
  QComboBox* combo_product_ = nullptr;
  QComboBox* combo_period_ = nullptr;
  TCoverageTable* table_ = nullptr;
  std::array<QLabel*, kCellStates> counts_{};
  QLabel* line_ = nullptr;
  QAction* fetch_ = nullptr;
  QAction* play_ = nullptr;
  QAction* folder_ = nullptr;
  QAction* copy_ = nullptr;
  QTimer timer_reload_;  ///< runs while a reload waits for more files
  bool loading_ = false;
  bool load_again_ = false;  ///< what is being loaded is no longer wanted
  bool checking_ = false;
  int version_ = 0;  ///< of the cells: an older check is dropped
};

}  // namespace skyreel
