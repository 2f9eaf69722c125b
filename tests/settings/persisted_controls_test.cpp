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
    Edit->setText("designed");
    Combo->addItems({"a", "b", "c"});
    Combo->setCurrentIndex(-1);
    auto* layout = new QVBoxLayout(Radio);
    for (const char* text : {"one", "two", "three"}) layout->addWidget(new QRadioButton(text));
    List->addItems({"D1", "0000 Met-7 IR", "a,b", "say \"x\""});
    Check->setChecked(true);
    UpDown->setRange(5, 3600);
    UpDown->setValue(200);
  }
  template <typename T>
  T* Add(const QString& name) {
    auto* control = new T(&Root);
    control->setObjectName(name);
    control->setProperty("NamedAs", "A " + name);
    return control;
  }
  /// What all controls show, in one text.
  std::string Shown() const {
    return Edit->text().toStdString() + "|" + std::to_string(Combo->currentIndex()) + "|" +
           std::to_string(Radio->ItemIndex()) + "|" + List->CheckedItems().join("/").toStdString() + "|" +
           (Check->isChecked() ? "on" : "off") + "|" + std::to_string(UpDown->value());
  }

  QWidget Root;
  TpstEdit* Edit = Add<TpstEdit>("Edit");
  TpstComboBox* Combo = Add<TpstComboBox>("Combo");
  TpstRadioGroup* Radio = Add<TpstRadioGroup>("Radio");
  TpstCheckListBox* List = Add<TpstCheckListBox>("List");
  TpstCheckBox* Check = Add<TpstCheckBox>("Check");
  TpstUpDown* UpDown = Add<TpstUpDown>("UpDown");
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
  std::string Shown() {
    std::string shown;
    Run([&](TPage& page) { shown = page.Shown(); });
    return shown;
  }
  std::string Stored(const char* name) const { return TRegistryStore(File).ReadString(name).toStdString(); }

  const test::TTempFolder Folder;
  const std::filesystem::path File = Folder / "a.conf";
};

TEST_F(PersistedControls, TheFirstStartStoresTheDesignAndTheNextShowsWhatTheUserDid) {
  EXPECT_EQ(Shown(), "designed|-1|-1||on|200");
  EXPECT_EQ(Stored("A Edit") + Stored("A Combo") + Stored("A Radio") + Stored("A List") + Stored("A Check") +
                Stored("A UpDown"),
            "designed-1-1true200");
  Run([](TPage& page) {
    page.Edit->setText(" a, \"b\"\\ ");
    page.Combo->setCurrentIndex(2);
    emit page.Combo->activated(2);
    page.Radio->findChildren<QRadioButton*>()[1]->click();
    for (const int i : {1, 2, 3}) page.List->item(i)->setCheckState(Qt::Checked);
    page.Check->click();
    page.UpDown->setValue(300);
  });
  EXPECT_EQ(Shown(), " a, \"b\"\\ |2|1|0000 Met-7 IR/a,b/say \"x\"|off|300");
  EXPECT_EQ(Stored("A List"), "\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\"");
}

TEST_F(PersistedControls, RestoringCallsNoChangeHandler) {
  Folder.Write("a.conf",
               "A%20Edit=x\nA%20Combo=1\nA%20Radio=2\nA%20List=D1\nA%20Check=false\nA%20UpDown=7\n");
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
  EXPECT_EQ(page.Shown(), "x|1|2|D1|off|7");
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
  EXPECT_EQ(Stored("A Combo"), "-1");
  Run([](TPage& page) {
    page.Combo->setCurrentIndex(1);
    QFocusEvent leave(QEvent::FocusOut);
    QApplication::sendEvent(page.Combo, &leave);
  });
  EXPECT_EQ(Stored("A Combo"), "1");
}

TEST_F(PersistedControls, ACheckListIgnoresNamesThatItNoLongerHasAndMayBeCheckedAllAtOnce) {
  Run([](TPage& page) { page.List->SetCheckedList("d1,Gone,\"0000 met-7 ir\""); });
  Run([](TPage& page) {
    EXPECT_EQ(page.List->CheckedItems(), QStringList({"D1", "0000 Met-7 IR"}));
    EXPECT_EQ(page.List->CheckedList(), "d1,Gone,\"0000 met-7 ir\"");
    page.List->item(2)->setCheckState(Qt::Checked);
    EXPECT_EQ(page.List->CheckedList(), "D1,\"0000 Met-7 IR\",\"a,b\"") << "a click makes the list anew";
    page.List->actions().at(0)->trigger();
    EXPECT_EQ(page.List->CheckedItems().size(), 4);
    page.List->actions().at(1)->trigger();
    EXPECT_TRUE(page.List->CheckedItems().isEmpty());
  });
  EXPECT_EQ(Stored("A List"), "");
}

TEST_F(PersistedControls, AValueBeyondTheControlSelectsNoneOrTheNearestAndAMissingNumberStopsTheStart) {
  Folder.Write("a.conf", "A%20Combo=99\nA%20Radio=-7\nA%20Check=1\nA%20UpDown=100000\n");
  EXPECT_EQ(Shown(), "designed|-1|-1||on|3600");
  const std::string text = "[General]\nA%20Edit=x\n";
  Folder.Write("a.conf", text);
  EXPECT_THROW(Shown(), ERegistryError);
  EXPECT_EQ(ReadWholeFile(File), text);
}

TEST_F(PersistedControls, WithoutNamedAsTheObjectNameIsTheValueName) {
  {
    TRegistryStore store(File);
    TPage page;
    page.Edit->setProperty("NamedAs", QVariant());
    page.Check->setProperty("NamedAs", "");
    RestorePersistedControls(page.Root, store);
    page.Edit->setText("altered just before the end");
  }
  EXPECT_EQ(Stored("Edit") + Stored("Check"), "altered just before the endtrue");
  EXPECT_FALSE(TRegistryStore(File).HasValue("A Edit"));
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
    EXPECT_EQ(page.Shown(), "designed|1|-1||on|200");
  });
}

}  // namespace
}  // namespace skyreel
