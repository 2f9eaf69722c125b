#include "app/find_bar.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QToolButton>

namespace skyreel {

TFindBar::TFindBar(QTableView& view)
    : QWidget(view.parentWidget()), view_(view), text_(new QLineEdit), result_(new QLabel) {
  setObjectName("FindBar");
  text_->setObjectName("EditFind");
  text_->setPlaceholderText("Find in the log");
  text_->setAccessibleName("Find in the log");
  text_->setClearButtonEnabled(true);
  result_->setObjectName("LabelFind");
  auto* const layout = new QHBoxLayout(this);
  layout->setContentsMargins({});
  layout->addWidget(text_, 1);
  layout->addWidget(result_);
  const auto add = [&](const char* name, const char* text, const char* tip, auto action) {
    auto* const button = new QToolButton;
    button->setObjectName(name);
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::TabFocus);
    connect(button, &QToolButton::clicked, this, action);
    layout->addWidget(button);
  };
  add("ButtonFindPrevious", "Previous", "Find the text above (Shift+Enter)", [this] { Find(-1); });
  add("ButtonFindNext", "Next", "Find the text below (Enter)", [this] { Find(1); });
  add("ButtonFindClose", "Close", "Close the search (Esc)", [this] { Close(); });
  connect(text_, &QLineEdit::textChanged, result_, &QLabel::clear);
  hide();
}

void TFindBar::Open() {
  found_ = view_.currentIndex();
  show();
  text_->setFocus();
  text_->selectAll();
}

void TFindBar::Close() {
  hide();
  view_.setFocus();
}

bool TFindBar::event(QEvent* event) {
  if (event->type() == QEvent::ShortcutOverride && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape)
    event->accept();
  return QWidget::event(event);
}

void TFindBar::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Escape:
      return Close();
    case Qt::Key_Return:
    case Qt::Key_Enter:
      return Find(event->modifiers() & Qt::ShiftModifier ? -1 : 1);
    default:
      QWidget::keyPressEvent(event);
  }
}

void TFindBar::Find(int step) {
  const QString text = text_->text();
  const QAbstractItemModel& lines = *view_.model();
  const int count = lines.rowCount();
  if (text.isEmpty() || count == 0) return;
  const int start = found_.isValid() ? found_.row() : count - 1;
  for (int i = 1; i <= count; ++i) {
    const int at = start + step * i;
    const int row = (at % count + count) % count;
    const QModelIndex index = lines.index(row, 0);
    if (!index.data().toString().contains(text, Qt::CaseInsensitive)) continue;
    found_ = index;
    view_.selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    view_.scrollTo(index);
    return result_->setText(at == row ? "" : step > 0 ? "from the top again" : "from the end again");
  }
  result_->setText("not found");
}

}  // namespace skyreel
