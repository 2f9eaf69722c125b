#pragma once

#include <QListWidget>

namespace skyreel {

/// A list whose items carry check marks. Items come from the page's form file or from SetItems; either way
/// they can be checked from the moment the list shows them. Its context menu checks all items or none.
class TCheckListBox : public QListWidget {
  Q_OBJECT

 public:
  explicit TCheckListBox(QWidget* parent = nullptr);

  /// Puts these items, all unchecked, in the place of the old ones.
  void SetItems(const QStringList& items);
  /// The texts of the checked items, in list order.
  QStringList CheckedItems() const;

  /// Wide enough for the widest item.
  QSize minimumSizeHint() const override;

  /// The comma text of the checked items.
  QString CheckedText() const;
  /// Checks exactly the items whose text is in the comma text, in whatever letter case. Names of no item are
  /// ignored.
  void SetCheckedText(const QString& comma_text);

 signals:
  /// A check mark changed, by the user or through the item.
  void ClickCheck();

 protected:
  void rowsInserted(const QModelIndex& parent, int start, int end) override;

 private:
  void CheckAll(Qt::CheckState state);
};

}  // namespace skyreel
