#pragma once

#include <QPersistentModelIndex>
#include <QWidget>

class QLabel;
class QLineEdit;
class QTableView;

namespace skyreel {

/// Finds lines in a table of one column. It is hidden until Open.
class TFindBar : public QWidget {
 public:
  /// The table outlives the bar.
  explicit TFindBar(QTableView& view);

  /// Shows the bar and lets the user type.
  void Open();

 protected:
  /// Esc closes the bar, and nothing else.
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  /// Goes to the next line below (1) or above (-1) that has the text, round the ends.
  void Find(int step);
  void Close();

  QTableView& view_;
  QLineEdit* const text_;
  QLabel* const result_;
  /// A new line takes the selection of the table, but the search goes on from here.
  QPersistentModelIndex found_;
};

}  // namespace skyreel
