#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>
#include <memory>

#include "settings/check_list_box.h"
#include "settings/registry_variable.h"

namespace skyreel {

/// A control that is a setting. Restore shows the stored value; later changes are kept in memory and saved
/// when the control is destroyed. The value name is the property NamedAs, or the object name when that is
/// empty.
class TPersistedControl {
 public:
  virtual ~TPersistedControl() = default;
  /// Reads the setting and shows it. The default is what the control shows now. Sends no change signal.
  /// Throws ERegistryError.
  virtual void Restore(TRegistryStore& store) = 0;
};

/// From now on the wheel changes the control only while it has the focus. Otherwise the page behind it
/// scrolls.
void KeepFromWheel(QWidget& control);

/// Restores every persisted control below `root`, in the order of their creation. The store must outlive
/// them. Throws ERegistryError at the first one that cannot be read; after that the store writes nothing.
void RestorePersistedControls(QWidget& root, TRegistryStore& store);

/// The common part of the persisted controls. TWidget is the ordinary control, TVariable the kind of setting.
/// A descendant chooses the bound property (BoundValue, Bind) and calls Track when it changes.
template <typename TWidget, typename TVariable>
class TPersisted : public TWidget, public TPersistedControl {
 public:
  explicit TPersisted(QWidget* parent) : TWidget(parent) {}
  /// The widget's own destructor may still send signals, but the setting is gone.
  ~TPersisted() override { this->disconnect(this); }

  void Restore(TRegistryStore& store) override {
    const QString named_as = this->property("NamedAs").toString();
    setting_ =
        std::make_unique<TVariable>(store, named_as.isEmpty() ? this->objectName() : named_as, BoundValue());
    const QSignalBlocker no_change_handlers(this);
    Bind(setting_->Value);
  }

 protected:
  using TValue = decltype(TVariable::Value);

  virtual TValue BoundValue() const = 0;
  virtual void Bind(const TValue& value) = 0;
  /// Copies the bound property's value to the setting.
  void Track() {
    if (setting_) setting_->Value = BoundValue();
  }
  void focusOutEvent(QFocusEvent* event) override {
    Track();
    TWidget::focusOutEvent(event);
  }

  std::unique_ptr<TVariable> setting_;
};

/// Bound to the text; follows every change. With the property Scrambled the stored text is not readable at a
/// glance.
class TpstEdit : public TPersisted<QLineEdit, TRegistryString> {
  Q_OBJECT

 public:
  explicit TpstEdit(QWidget* parent = nullptr);
  void Restore(TRegistryStore& store) override;

 protected:
  QString BoundValue() const override { return Scrambled(text()); }
  void Bind(const QString& value) override { setText(Scrambled(value)); }

 private:
  /// From the text to the stored value and back.
  QString Scrambled(QString text) const;
};

/// Bound to the selected index, -1 for none. Follows the user's choice, and takes the index again when it
/// loses the focus. A stored index beyond the list selects none.
class TpstComboBox : public TPersisted<QComboBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstComboBox(QWidget* parent = nullptr);

 protected:
  std::int32_t BoundValue() const override { return currentIndex(); }
  void Bind(const std::int32_t& value) override { setCurrentIndex(value < count() ? value : -1); }
};

/// A group box whose items are its radio buttons, in the order of their creation. Bound to the selected
/// index, -1 for none; follows every change.
class TpstRadioGroup : public TPersisted<QGroupBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstRadioGroup(QWidget* parent = nullptr);

  int ItemIndex() const;
  /// Selects the item of this index, or none when there is no such item.
  void SetItemIndex(int index);
  void Restore(TRegistryStore& store) override;

 signals:
  void ItemIndexChanged(int index);

 protected:
  std::int32_t BoundValue() const override { return ItemIndex(); }
  void Bind(const std::int32_t& value) override { SetItemIndex(value); }

 private:
  QList<QRadioButton*> Items() const;
};

/// Bound to the comma text of the checked items; follows every click.
class TpstCheckListBox : public TPersisted<TCheckListBox, TRegistryString> {
  Q_OBJECT
  Q_PROPERTY(QString CheckedList READ CheckedList WRITE SetCheckedList)

 public:
  explicit TpstCheckListBox(QWidget* parent = nullptr);

  /// The stored comma text; before Restore, that of the checked items.
  QString CheckedList() const { return setting_ ? setting_->Value : CheckedText(); }
  /// Stores the comma text and checks the items in it.
  void SetCheckedList(const QString& comma_text);

 protected:
  QString BoundValue() const override { return CheckedText(); }
  void Bind(const QString& value) override { SetCheckedText(value); }
};

/// Bound to the check mark; follows every change.
class TpstCheckBox : public TPersisted<QCheckBox, TRegistryBoolean> {
  Q_OBJECT

 public:
  explicit TpstCheckBox(QWidget* parent = nullptr);

 protected:
  bool BoundValue() const override { return isChecked(); }
  void Bind(const bool& value) override { setChecked(value); }
};

/// Bound to the position; follows every change. A stored position beyond the range becomes the nearest end.
class TpstUpDown : public TPersisted<QSpinBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstUpDown(QWidget* parent = nullptr);

 protected:
  std::int32_t BoundValue() const override { return value(); }
  void Bind(const std::int32_t& value) override { setValue(value); }
};

}  // namespace skyreel
