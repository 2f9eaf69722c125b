#include "settings/persisted_controls.h"

#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QEvent>

namespace skyreel {

namespace {

class TWheelGuard : public QObject {
 public:
  using QObject::QObject;
  bool eventFilter(QObject* control, QEvent* event) override {
    if (event->type() != QEvent::Wheel || static_cast<QWidget*>(control)->hasFocus()) return false;
    event->ignore();
    return true;
  }
};

/// A combo box for screen readers. The library's own has the selected item as its name on Linux.
class TAccessibleComboBox : public QAccessibleWidget {
 public:
  explicit TAccessibleComboBox(TpstComboBox& combo)
      : QAccessibleWidget(&combo, QAccessible::ComboBox), combo_(combo) {}

  QString text(QAccessible::Text kind) const override {
    return kind == QAccessible::Value ? combo_.currentText() : QAccessibleWidget::text(kind);
  }
  int childCount() const override { return 1; }
  QAccessibleInterface* child(int index) const override {
    return index == 0 ? QAccessible::queryAccessibleInterface(combo_.view()) : nullptr;
  }
  int indexOfChild(const QAccessibleInterface* child) const override {
    return child->object() == combo_.view() ? 0 : -1;
  }
  QStringList actionNames() const override { return {showMenuAction()}; }
  void doAction(const QString& action) override {
    if (action == showMenuAction()) combo_.showPopup();
  }

 private:
  TpstComboBox& combo_;
};

QAccessibleInterface* MakeAccessible(const QString&, QObject* object) {
  auto* combo = qobject_cast<TpstComboBox*>(object);
  return combo != nullptr ? new TAccessibleComboBox(*combo) : nullptr;
}

}  // namespace

void KeepFromWheel(QWidget& control) {
  // With the default policy the wheel would take the focus.
  control.setFocusPolicy(Qt::StrongFocus);
  control.installEventFilter(new TWheelGuard(&control));
}

void RestorePersistedControls(QWidget& root, TRegistryStore& store) {
  for (QWidget* widget : root.findChildren<QWidget*>())
    if (auto* control = dynamic_cast<TPersistedControl*>(widget)) control->Restore(store);
}

TpstEdit::TpstEdit(QWidget* parent) : TPersisted(parent) {
  connect(this, &QLineEdit::textChanged, this, [this] { Track(); });
}

void TpstEdit::Restore(TRegistryStore& store) {
  // kept: a default that was never stored is taken for a scrambled one.
  const QSignalBlocker no_change_handlers(this);
  setText(Scrambled(text()));
  TPersisted::Restore(store);
}

QString TpstEdit::Scrambled(QString text) const {
  if (!property("Scrambled").toBool()) return text;
  for (QChar& c : text) c = QChar(c.unicode() ^ 0x5A);
  return text;
}

TpstComboBox::TpstComboBox(QWidget* parent) : TPersisted(parent) {
  // Once, however many there are: the library ignores a factory that it has.
  QAccessible::installFactory(MakeAccessible);
  KeepFromWheel(*this);
  connect(this, &QComboBox::activated, this, [this] { Track(); });
}

TpstRadioGroup::TpstRadioGroup(QWidget* parent) : TPersisted(parent) {
  connect(this, &TpstRadioGroup::ItemIndexChanged, this, [this] { Track(); });
}

QList<QRadioButton*> TpstRadioGroup::Items() const {
  return findChildren<QRadioButton*>(Qt::FindDirectChildrenOnly);
}

int TpstRadioGroup::ItemIndex() const {
  const QList<QRadioButton*> items = Items();
  for (int i = 0; i < items.size(); ++i)
    if (items[i]->isChecked()) return i;
  return -1;
}

void TpstRadioGroup::SetItemIndex(int index) {
  const QList<QRadioButton*> items = Items();
  for (int i = 0; i < items.size(); ++i) {
    // An exclusive button that is checked cannot be unchecked.
    items[i]->setAutoExclusive(false);
    items[i]->setChecked(i == index);
  }
  for (QRadioButton* item : items) item->setAutoExclusive(true);
  Track();
}

void TpstRadioGroup::Restore(TRegistryStore& store) {
  TPersisted::Restore(store);
  for (QRadioButton* item : Items()) {
    disconnect(item, &QRadioButton::toggled, this, nullptr);
    connect(item, &QRadioButton::toggled, this, [this](bool checked) {
      if (checked) emit ItemIndexChanged(ItemIndex());
    });
  }
}

TpstCheckListBox::TpstCheckListBox(QWidget* parent) : TPersisted(parent) {
  connect(this, &TCheckListBox::ClickCheck, this, [this] { Track(); });
}

void TpstCheckListBox::SetCheckedList(const QString& comma_text) {
  SetCheckedText(comma_text);
  if (setting_) setting_->Value = comma_text;
}

TpstCheckBox::TpstCheckBox(QWidget* parent) : TPersisted(parent) {
  connect(this, &QCheckBox::toggled, this, [this] { Track(); });
}

TpstUpDown::TpstUpDown(QWidget* parent) : TPersisted(parent) {
  KeepFromWheel(*this);
  connect(this, &QSpinBox::valueChanged, this, [this] { Track(); });
}

}  // namespace skyreel
