#include "settings/persisted_controls.h"

#include <QWheelEvent>

namespace skyreel {

void RestorePersistedControls(QWidget& root, TRegistryStore& store) {
  for (QWidget* widget : root.findChildren<QWidget*>())
    if (auto* control = dynamic_cast<TPersistedControl*>(widget)) control->Restore(store);
}

TpstEdit::TpstEdit(QWidget* parent) : TPersisted(parent) {
  connect(this, &QLineEdit::textChanged, this, [this] { Track(); });
}

TpstComboBox::TpstComboBox(QWidget* parent) : TPersisted(parent) {
  setFocusPolicy(Qt::StrongFocus);
  connect(this, &QComboBox::activated, this, [this] { Track(); });
}

void TpstComboBox::wheelEvent(QWheelEvent* event) {
  // The wheel passing over a control changes no setting.
  hasFocus() ? QComboBox::wheelEvent(event) : event->ignore();
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
    // An exclusive button that is checked refuses to be unchecked.
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
  setFocusPolicy(Qt::StrongFocus);
  connect(this, &QSpinBox::valueChanged, this, [this] { Track(); });
}

void TpstUpDown::wheelEvent(QWheelEvent* event) {
  hasFocus() ? QSpinBox::wheelEvent(event) : event->ignore();
}

}  // namespace skyreel
