#pragma once

#include <QAbstractTableModel>
#include <QTableView>
#include <array>
#include <functional>
#include <vector>

#include "catalogue/coverage.h"

namespace skyreel {

/// Paints the sign of a state: shape and colour both tell it. `palette` gives the colours of the background.
void PaintCell(QPainter& painter, TCellState state, const QRectF& place, const QPalette& palette);

/// A coverage as a table: a row for each day, a column for each slot of the day.
class TCoverageModel : public QAbstractTableModel {
 public:
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  /// The time of the slot, its state, the size of the file and the reason, for tool tips and screen readers.
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  /// A cell without a slot cannot be chosen.
  Qt::ItemFlags flags(const QModelIndex& index) const override;

  /// Shows another coverage. The selection stays if its days and columns are the same.
  void Show(TCoverage coverage);
  void Replace(int row, TCoverageDay day);
  /// Takes over what became of a slot. False when no cell has it.
  bool Add(const TSlotOutcome& tried);

  const TCoverage& Coverage() const { return coverage_; }
  const TCoverageDay& Day(int row) const { return coverage_.Days[static_cast<std::size_t>(row)]; }
  const TCoverageCell& At(int row, int column) const {
    return Day(row).Cells[static_cast<std::size_t>(column)];
  }

 private:
  TCoverage coverage_;
};

/// Shows a coverage in small cells, with the days at the left and the hours on top. A drag or Shift with
/// arrow keys selects; Page keys go a day up or down.
class TCoverageTable : public QTableView {
 public:
  /// The model outlives the table.
  explicit TCoverageTable(TCoverageModel& model, QWidget* parent = nullptr);

  /// The selected cells that have a slot, oldest first; without a selection the current one.
  std::vector<TCoverageCell> ChosenCells() const;
  /// How many of these there are of each state.
  std::array<int, kCellStates> ChosenCounts() const;
  /// The rows of these cells, ascending.
  std::vector<int> ChosenRows() const;

  /// Enter was pressed, or the cell was clicked.
  std::function<void(const TCoverageCell& cell)> OnShow;
  std::function<void()> OnSelect;  ///< the selection or the current cell is another one
  std::function<void()> OnScroll;  ///< other days are in view

 protected:
  QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void scrollContentsBy(int dx, int dy) override;
  void selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) override;
  void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;

 private:
  /// Makes the cells as wide as the view has room for.
  void FitCells();
  QModelIndexList Chosen() const;

  TCoverageModel& model_;
};

}  // namespace skyreel
