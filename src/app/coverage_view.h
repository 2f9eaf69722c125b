#pragma once

#include <QAction>
#include <QTimer>
#include <QWidget>
#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "app/coverage_table.h"

class QComboBox;
class QLabel;

namespace skyreel {

/// A source whose coverage can be shown. Its functions run on a worker thread, must not throw, and refer to
/// nothing that may go meanwhile.
struct TCoverageSource {
  std::string Id;  ///< as the journal names it
  std::string Title;
  std::filesystem::path Output;
  std::function<std::vector<std::string>()> Products;  ///< as the journal names them
  std::function<TExpectation(const std::string& product, TDateTime now, int days)> Expect;
  std::shared_ptr<const TDescription> Description;  ///< null for a built-in source
};

/// The coverage of a described source. `keep_days` as in TWantedSource.
TCoverageSource CoverageOf(std::shared_ptr<const TDescription> source, TChoices choices,
                           std::filesystem::path output, std::optional<int> keep_days);

/// What the view needs from outside.
struct TCoverageEnvironment {
  std::filesystem::path JournalFile;
  std::function<TDateTime()> UtcNow;
  std::function<std::vector<TCoverageSource>()> Sources;
  /// Absolute paths that the transfer ledger holds; called on a worker thread. May be empty.
  std::function<std::unordered_set<std::string>()> Noted = {};
};

/// Slots of one product.
struct TChosenSlots {
  struct TSlot {
    TDateTime Time;
    std::filesystem::path Path;  ///< absolute; empty when it is not known
    TCellState State;
  };
  std::string Source;
  std::string Product;
  std::vector<TSlot> Slots;  ///< oldest first; at least one
};

/// Shows which slots of a product are there: a table of days and slots, a legend with counts, and what can be
/// done with the chosen slots. Disk and journal are read on worker threads; files are checked a day at a
/// time, and only those in view.
class TCoverageView : public QWidget {
 public:
  explicit TCoverageView(TCoverageEnvironment environment, QWidget* parent = nullptr);

  /// Reads disk and journal anew.
  void Reload();
  /// A run has ended with this slot.
  void FileDone(const std::string& source, const std::string& product, const TSlotOutcome& tried);

  std::function<void(const TChosenSlots& chosen)> OnShowPicture;  ///< exactly one, whose file is there
  std::function<void(const TChosenSlots& chosen)> OnFetch;        ///< their files are not there, or cut
  std::function<void(const TChosenSlots& chosen)> OnPlay;         ///< their files are there

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  struct TLoaded {
    std::vector<std::string> Products;
    std::string Product;
    TCoverage Coverage;
    std::string Problem;  ///< why the journal could not be read
  };

  void BuildControls();
  QAction* AddAction(const QString& text, const char* name, const QKeySequence& key,
                     void (TCoverageView::*action)());
  void WireEvents();
  void FillSources();
  const TCoverageSource* Source() const;
  /// The work of a worker thread.
  static TLoaded Load(const TCoverageSource& source, const TCoverageEnvironment& environment, TDateTime now,
                      std::string product, int days);
  void Show(TLoaded loaded);
  /// Checks the first day in view that is not checked yet, then the next.
  void CheckNextDay();
  void ShowCounts();
  void ShowChoice();

  /// Those of the cells that have one of these states.
  TChosenSlots Chosen(const std::vector<TCoverageCell>& cells, const std::vector<TCellState>& states) const;
  void FetchThese();
  void PlayThese();
  void ShowInFolder();
  void CopyAsText();

  const TCoverageEnvironment environment_;
  std::vector<std::shared_ptr<const TCoverageSource>> sources_;
  TCoverageModel model_;
  std::string product_;  ///< that the table shows
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
