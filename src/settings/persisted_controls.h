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

/// A control that is a setting: it shows the stored value from Restore on, follows what the user does in
/// memory, and saves when it is destroyed. The value name is its property NamedAs, or its object name when
/// that is empty.
class TPersistedControl {
 public:
  virtual ~TPersistedControl() = default;
  /// Reads the setting, with what the control shows now as the default, and shows it. No change signal of the
  /// control is sent. Throws ERegistryError.
  virtual void Restore(TRegistryStore& store) = 0;
};

/// The wheel passing over the control without the focus changes nothing from now on; what is behind it
/// scrolls.
void KeepFromWheel(QWidget& control);

/// Restores every persisted control below `root`, in the order of their creation. The store has to outlive
/// them. Throws ERegistryError at the first that cannot be read; the store writes nothing any more then.
void RestorePersistedControls(QWidget& root, TRegistryStore& store);

/// What the persisted controls share. TWidget is the ordinary control, TVariable the kind of setting; a
/// descendant says which property is bound (BoundValue, Bind) and calls Track when it changes.
template <typename TWidget, typename TVariable>
class TPersisted : public TWidget, public TPersistedControl {
 public:
  explicit TPersisted(QWidget* parent) : TWidget(parent) {}
  /// What the widget's own destructor still sends must not reach a setting that is gone.
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
  /// Takes the bound property's value into the setting.
  void Track() {
    if (setting_) setting_->Value = BoundValue();
  }
  void focusOutEvent(QFocusEvent* event) override {
    Track();
    TWidget::focusOutEvent(event);
  }

  std::unique_ptr<TVariable> setting_;
};

/// Bound to the text; follows every change of it. With its property Scrambled the settings file hides the
/// text from whoever looks at it by chance.
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

/// Bound to the selected index, -1 for none; follows the user's choice, and any when it loses the focus. An
/// index that the list does not have selects none.
class TpstComboBox : public TPersisted<QComboBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstComboBox(QWidget* parent = nullptr);

 protected:
  std::int32_t BoundValue() const override { return currentIndex(); }
  void Bind(const std::int32_t& value) override { setCurrentIndex(value < count() ? value : -1); }
};

/// A group box whose radio buttons, in the order of their creation, are the items. Bound to the index of the
/// selected one, -1 for none; follows every change of it.
class TpstRadioGroup : public TPersisted<QGroupBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstRadioGroup(QWidget* parent = nullptr);

  int ItemIndex() const;
  /// Selects one item, or none when there is no such item.
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

/// Bound to the comma text of the checked items; follows every click on a check mark.
class TpstCheckListBox : public TPersisted<TCheckListBox, TRegistryString> {
  Q_OBJECT
  Q_PROPERTY(QString CheckedList READ CheckedList WRITE SetCheckedList)

 public:
  explicit TpstCheckListBox(QWidget* parent = nullptr);

  /// The stored comma text (what is checked, before Restore).
  QString CheckedList() const { return setting_ ? setting_->Value : CheckedText(); }
  /// Stores the comma text and checks the items that it names.
  void SetCheckedList(const QString& comma_text);

 protected:
  QString BoundValue() const override { return CheckedText(); }
  void Bind(const QString& value) override { SetCheckedText(value); }
};

/// Bound to whether it is checked; follows every change of it.
class TpstCheckBox : public TPersisted<QCheckBox, TRegistryBoolean> {
  Q_OBJECT

 public:
  explicit TpstCheckBox(QWidget* parent = nullptr);

 protected:
  bool BoundValue() const override { return isChecked(); }
  void Bind(const bool& value) override { setChecked(value); }
};

/// Bound to the position; follows every change of it. A stored position beyond the range is held at its end.
class TpstUpDown : public TPersisted<QSpinBox, TRegistryInteger> {
  Q_OBJECT

 public:
  explicit TpstUpDown(QWidget* parent = nullptr);

 protected:
  std::int32_t BoundValue() const override { return value(); }
  void Bind(const std::int32_t& value) override { setValue(value); }
};

}  // namespace skyreel
