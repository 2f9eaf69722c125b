#include "settings/check_list_box.h"

#include <QAction>
#include <QScrollBar>
#include <QSet>
#include <QSignalBlocker>
#include <QStyledItemDelegate>

#include "base/comma_text.h"

namespace skyreel {

namespace {

/// Adds space between the columns, and a little between the rows.
class TRoomyDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    return QStyledItemDelegate::sizeHint(option, index) + QSize(option.fontMetrics.height(), 2);
  }

 protected:
  /// Styles draw the frame of a check box in a shade of the window's colour: invisible on a dark list.
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
    QStyledItemDelegate::initStyleOption(option, index);
    const QColor text = option->palette.color(QPalette::Text), base = option->palette.color(QPalette::Base);
    option->palette.setColor(QPalette::Window,
                             QColor((text.red() + base.red()) / 2, (text.green() + base.green()) / 2,
                                    (text.blue() + base.blue()) / 2)
                                 .lighter(140));
  }
};

}  // namespace

void MakeChecksVisible(QAbstractItemView& view) {
  view.setItemDelegate(new TRoomyDelegate(&view));
}

TCheckListBox::TCheckListBox(QWidget* parent) : QListWidget(parent) {
  MakeChecksVisible(*this);
  setResizeMode(QListView::Adjust);
  // Columns have different widths.
  setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  setContextMenuPolicy(Qt::ActionsContextMenu);
  for (const auto& [text, state] :
       {std::pair(tr("Check &all"), Qt::Checked), std::pair(tr("Check &none"), Qt::Unchecked)}) {
    auto* action = new QAction(text, this);
    connect(action, &QAction::triggered, this, [this, state = state] { CheckAll(state); });
    addAction(action);
  }
  connect(this, &QListWidget::itemChanged, this, &TCheckListBox::ClickCheck);
}

void TCheckListBox::SetItems(const QStringList& items) {
  const QSignalBlocker no_clicks(this);
  clear();
  addItems(items);
}

QStringList TCheckListBox::CheckedItems() const {
  QStringList checked;
  for (int i = 0; i < count(); ++i)
    if (item(i)->checkState() == Qt::Checked) checked += item(i)->text();
  return checked;
}

QString TCheckListBox::CheckedText() const {
  std::vector<std::string> checked;
  for (const QString& text : CheckedItems()) checked.push_back(text.toStdString());
  return QString::fromStdString(ToCommaText(checked));
}

void TCheckListBox::SetCheckedText(const QString& comma_text) {
  QSet<QString> wanted;
  for (const std::string& name : FromCommaText(comma_text.toStdString()))
    wanted += QString::fromStdString(name).toCaseFolded();
  for (int i = 0; i < count(); ++i)
    item(i)->setCheckState(wanted.contains(item(i)->text().toCaseFolded()) ? Qt::Checked : Qt::Unchecked);
}

QSize TCheckListBox::minimumSizeHint() const {
  const int needed = sizeHintForColumn(0) + 2 * frameWidth() + verticalScrollBar()->sizeHint().width();
  return QListWidget::minimumSizeHint().expandedTo(QSize(needed, 0));
}

void TCheckListBox::rowsInserted(const QModelIndex& parent, int start, int end) {
  QListWidget::rowsInserted(parent, start, end);
  // An item shows no check mark until it has a state.
  for (int i = start; i <= end; ++i)
    if (!item(i)->data(Qt::CheckStateRole).isValid()) item(i)->setCheckState(Qt::Unchecked);
  updateGeometry();
}

void TCheckListBox::CheckAll(Qt::CheckState state) {
  for (int i = 0; i < count(); ++i) item(i)->setCheckState(state);
}

}  // namespace skyreel
