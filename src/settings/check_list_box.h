#pragma once

#include <QListWidget>

namespace skyreel {

/// Gives the items of a list or a tree check boxes that can be seen on a dark background too, and more room.
void MakeChecksVisible(QAbstractItemView& view);

/// A list of items with check marks. The items come from the page's form file or from SetItems. The context
/// menu checks all items or none.
class TCheckListBox : public QListWidget {
  Q_OBJECT

 public:
  explicit TCheckListBox(QWidget* parent = nullptr);

  /// Replaces the items with these, all unchecked.
  void SetItems(const QStringList& items);
  /// The texts of the checked items, in list order.
  QStringList CheckedItems() const;

  /// Wide enough for the widest item.
  QSize minimumSizeHint() const override;

  /// The comma text of the checked items.
  QString CheckedText() const;
  /// Checks the items whose text is in the comma text, in either letter case, and unchecks the others.
  /// Ignores unknown names.
  void SetCheckedText(const QString& comma_text);

 signals:
  /// The user or the program changed a check mark.
  void ClickCheck();

 protected:
  void rowsInserted(const QModelIndex& parent, int start, int end) override;

 private:
  void CheckAll(Qt::CheckState state);
};

}  // namespace skyreel
