#include "settings/persisted_controls.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QFocusEvent>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <functional>

#include "base/files.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

/// A page with one persisted control of each kind, as a form file would make it.
struct TPage {
  TPage() {
    Edit = Add<TpstEdit>("Edit");
    Edit->setText("designed");
    Combo = Add<TpstComboBox>("Combo");
    Combo->addItems({"a", "b", "c"});
    Combo->setCurrentIndex(-1);
    Radio = Add<TpstRadioGroup>("Radio");
    auto* layout = new QVBoxLayout(Radio);
    for (const char* text : {"one", "two", "three"}) layout->addWidget(new QRadioButton(text));
    List = Add<TpstCheckListBox>("List");
    List->addItems({"D1", "0000 Met-7 IR", "a,b", "say \"x\""});
    Check = Add<TpstCheckBox>("Check");
    Check->setChecked(true);
    UpDown = Add<TpstUpDown>("UpDown");
    UpDown->setRange(5, 3600);
    UpDown->setValue(200);
  }

  template <typename T>
  T* Add(const QString& name) {
    auto* control = new T(&Root);
    control->setObjectName(name);
    control->setProperty("NamedAs", "Setting " + name);
    return control;
  }

  QWidget Root;
  TpstEdit* Edit;
  TpstComboBox* Combo;
  TpstRadioGroup* Radio;
  TpstCheckListBox* List;
  TpstCheckBox* Check;
  TpstUpDown* UpDown;
};

class PersistedControls : public testing::Test {
 protected:
  /// One run of the program: a page is restored, `use` works on it, everything is saved.
  void Run(const std::function<void(TPage&)>& use) {
    TRegistryStore store(File);
    TPage page;
    RestorePersistedControls(page.Root, store);
    use(page);
  }
  std::string Text() const { return ReadWholeFile(File); }

  const test::TTempFolder Folder;
  const std::filesystem::path File = Folder / "a.conf";
};

TEST_F(PersistedControls, TheFirstStartShowsAndStoresTheDesign) {
  Run([](TPage& page) {
    EXPECT_EQ(page.Edit->text(), "designed");
    EXPECT_EQ(page.Combo->currentIndex(), -1);
    EXPECT_EQ(page.Radio->ItemIndex(), -1);
    EXPECT_EQ(page.List->CheckedList(), "");
    EXPECT_TRUE(page.Check->isChecked());
    EXPECT_EQ(page.UpDown->value(), 200);
  });
  TRegistryStore store(File);
  EXPECT_EQ(store.ReadString("Setting Edit"), "designed");
  EXPECT_EQ(store.ReadInteger("Setting Combo"), -1);
  EXPECT_EQ(store.ReadInteger("Setting Radio"), -1);
  EXPECT_EQ(store.ReadString("Setting List"), "");
  EXPECT_TRUE(store.ReadBoolean("Setting Check"));
  EXPECT_EQ(store.ReadInteger("Setting UpDown"), 200);
}

TEST_F(PersistedControls, WhatTheUserDidIsThereAtTheNextStart) {
  Run([](TPage& page) {
    page.Edit->setText(" a, \"b\"\\ ");
    page.Combo->setCurrentIndex(2);
    emit page.Combo->activated(2);
    page.Radio->findChildren<QRadioButton*>()[1]->click();
    for (const int i : {1, 2, 3}) page.List->item(i)->setCheckState(Qt::Checked);
    page.Check->click();
    page.UpDown->setValue(300);
  });
  Run([](TPage& page) {
    EXPECT_EQ(page.Edit->text(), " a, \"b\"\\ ");
    EXPECT_EQ(page.Combo->currentIndex(), 2);
    EXPECT_EQ(page.Radio->ItemIndex(), 1);
    EXPECT_EQ(page.List->CheckedItems(), QStringList({"0000 Met-7 IR", "a,b", "say \"x\""}));
    EXPECT_EQ(page.List->CheckedList(), "\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\"");
    EXPECT_FALSE(page.Check->isChecked());
    EXPECT_EQ(page.UpDown->value(), 300);
  });
}

TEST_F(PersistedControls, RestoringCallsNoChangeHandler) {
  Folder.Write("a.conf",
               "Setting%20Edit=x\nSetting%20Combo=1\nSetting%20Radio=2\nSetting%20List=D1\n"
               "Setting%20Check=false\nSetting%20UpDown=7\n");
  TRegistryStore store(File);
  TPage page;
  int calls = 0;
  const auto count = [&calls] { ++calls; };
  QObject::connect(page.Edit, &QLineEdit::textChanged, count);
  QObject::connect(page.Combo, &QComboBox::currentIndexChanged, count);
  QObject::connect(page.Radio, &TpstRadioGroup::ItemIndexChanged, count);
  QObject::connect(page.List, &TCheckListBox::ClickCheck, count);
  QObject::connect(page.Check, &QCheckBox::toggled, count);
  QObject::connect(page.UpDown, &QSpinBox::valueChanged, count);
  RestorePersistedControls(page.Root, store);
  EXPECT_EQ(page.Edit->text(), "x");
  EXPECT_EQ(page.Combo->currentIndex(), 1);
  EXPECT_EQ(page.Radio->ItemIndex(), 2);
  EXPECT_EQ(page.List->CheckedItems(), QStringList("D1"));
  EXPECT_FALSE(page.Check->isChecked());
  EXPECT_EQ(page.UpDown->value(), 7);
  EXPECT_EQ(calls, 0);

  page.Edit->setText("y");
  page.Combo->setCurrentIndex(0);
  page.Radio->SetItemIndex(0);
  page.List->item(1)->setCheckState(Qt::Checked);
  page.Check->setChecked(true);
  page.UpDown->setValue(8);
  EXPECT_EQ(calls, 6) << "the handlers are attached again";
}

TEST_F(PersistedControls, AChoiceThatNobodyMadeIsTakenWhenTheFocusLeaves) {
  Run([](TPage& page) { page.Combo->setCurrentIndex(1); });
  EXPECT_EQ(TRegistryStore(File).ReadInteger("Setting Combo"), -1);
  Run([](TPage& page) {
    page.Combo->setCurrentIndex(1);
    QFocusEvent leave(QEvent::FocusOut);
    QApplication::sendEvent(page.Combo, &leave);
  });
  EXPECT_EQ(TRegistryStore(File).ReadInteger("Setting Combo"), 1);
}

TEST_F(PersistedControls, ACheckListIgnoresNamesThatItNoLongerHas) {
  Run([](TPage& page) { page.List->SetCheckedList("d1,Gone,\"0000 met-7 ir\""); });
  Run([](TPage& page) {
    EXPECT_EQ(page.List->CheckedItems(), QStringList({"D1", "0000 Met-7 IR"}));
    EXPECT_EQ(page.List->CheckedList(), "d1,Gone,\"0000 met-7 ir\"");
    page.List->item(2)->setCheckState(Qt::Checked);
    EXPECT_EQ(page.List->CheckedList(), "D1,\"0000 Met-7 IR\",\"a,b\"") << "a click makes the list anew";
    page.List->SetCheckedList("");
    EXPECT_TRUE(page.List->CheckedItems().isEmpty());
  });
  EXPECT_EQ(TRegistryStore(File).ReadString("Setting List"), "");
}

TEST_F(PersistedControls, ValuesBeyondTheControlSelectNoneOrTheNearest) {
  Folder.Write("a.conf",
               "Setting%20Combo=99\nSetting%20Radio=-7\nSetting%20Check=1\nSetting%20UpDown=100000\n");
  Run([](TPage& page) {
    EXPECT_EQ(page.Combo->currentIndex(), -1);
    EXPECT_EQ(page.Radio->ItemIndex(), -1);
    EXPECT_EQ(page.UpDown->value(), 3600);
  });
}

TEST_F(PersistedControls, WithoutNamedAsTheObjectNameIsTheValueName) {
  {
    TRegistryStore store(File);
    TPage page;
    page.Edit->setProperty("NamedAs", QVariant());
    page.Check->setProperty("NamedAs", "");
    RestorePersistedControls(page.Root, store);
  }
  const TRegistryStore store(File);
  EXPECT_TRUE(store.HasValue("Edit"));
  EXPECT_TRUE(store.HasValue("Check"));
  EXPECT_FALSE(store.HasValue("Setting Edit"));
}

TEST_F(PersistedControls, ATextAlteredJustBeforeTheEndIsStoredSo) {
  const QString password = "pass, word\"\\;";
  const auto scramble = [](QLineEdit& edit) {
    QString text = edit.text();
    for (QChar& c : text) c = QChar(c.unicode() ^ 0x5A);
    edit.setText(text);
  };
  Run([&](TPage& page) {
    page.Edit->setText(password);
    scramble(*page.Edit);
  });
  EXPECT_EQ(Text().find("pass"), std::string::npos);
  Run([&](TPage& page) {
    scramble(*page.Edit);
    EXPECT_EQ(page.Edit->text(), password);
    scramble(*page.Edit);
  });
}

TEST_F(PersistedControls, AMissingNumberStopsTheStartAndLeavesTheFile) {
  const std::string text = "[General]\nSetting%20Edit=x\n";
  Folder.Write("a.conf", text);
  EXPECT_THROW(Run([](TPage&) {}), ERegistryError);
  EXPECT_EQ(Text(), text);
}

TEST_F(PersistedControls, TheContextMenuChecksAllItemsOrNone) {
  Run([](TPage& page) {
    page.List->actions().at(0)->trigger();
    EXPECT_EQ(page.List->CheckedItems().size(), 4);
    EXPECT_EQ(page.List->CheckedList(), page.List->CheckedText());
    page.List->actions().at(1)->trigger();
    EXPECT_EQ(page.List->CheckedList(), "");
  });
}

TEST_F(PersistedControls, TheWheelPassingOverAControlChangesNothing) {
  Run([](TPage& page) {
    page.Combo->setCurrentIndex(1);
    page.Root.show();
    for (QWidget* control : {static_cast<QWidget*>(page.Combo), static_cast<QWidget*>(page.UpDown)}) {
      QWheelEvent turn(QPointF(2, 2), QPointF(2, 2), QPoint(), QPoint(0, -120), Qt::NoButton, Qt::NoModifier,
                       Qt::NoScrollPhase, false);
      control->clearFocus();
      QApplication::sendEvent(control, &turn);
    }
    EXPECT_EQ(page.Combo->currentIndex(), 1);
    EXPECT_EQ(page.UpDown->value(), 200);
  });
}

}  // namespace
}  // namespace skyreel
