#include "settings/persisted_controls.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QVBoxLayout>
#include <QWheelEvent>

#include "support/temp_folder.h"

namespace skyreel {
namespace {

/// A page with one persisted control of each kind, as a form file would make it.
struct TPage {
  TPage() {
    Edit.setText("designed");
    Combo.addItems({"a", "b", "c"});
    Combo.setCurrentIndex(-1);
    auto* layout = new QVBoxLayout(&Radio);
    for (int i = 0; i < 3; ++i) layout->addWidget(new QRadioButton);
    List.addItems({"D1", "0000 Met-7 IR", "a,b", "say \"x\""});
    Check.setChecked(true);
    UpDown.setRange(5, 3600);
    UpDown.setValue(200);
    const char* names[] = {"Edit", "Combo", "Radio", "List", "Check", "UpDown"};
    for (int i = 0; QWidget * control : Root.findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
      control->setObjectName(names[i++]);
    Edit.setProperty("NamedAs", "A Edit");
    List.setProperty("NamedAs", "");
    const auto count = [this] { ++Changes; };
    QObject::connect(&Edit, &QLineEdit::textChanged, count);
    QObject::connect(&Radio, &TpstRadioGroup::ItemIndexChanged, count);
    QObject::connect(&List, &TCheckListBox::ClickCheck, count);
  }
  /// What all controls show, in one text.
  std::string Shown() const {
    return Edit.text().toStdString() + "|" + std::to_string(Combo.currentIndex()) + "|" +
           std::to_string(Radio.ItemIndex()) + "|" + List.CheckedItems().join("/").toStdString() + "|" +
           (Check.isChecked() ? "on" : "off") + "|" + std::to_string(UpDown.value());
  }

  QWidget Root;
  TpstEdit Edit{&Root};
  TpstComboBox Combo{&Root};
  TpstRadioGroup Radio{&Root};
  TpstCheckListBox List{&Root};
  TpstCheckBox Check{&Root};
  TpstUpDown UpDown{&Root};
  int Changes = 0;
};

class PersistedControls : public testing::Test {
 protected:
  /// One run of the program: a page is restored, `use` works on it, everything is saved. Returns what the
  /// page showed at its start.
  std::string Run(const std::function<void(TPage&)>& use = [](TPage&) {}) {
    TRegistryStore store(File);
    TPage page;
    RestorePersistedControls(page.Root, store);
    EXPECT_EQ(page.Changes, 0) << "restoring calls no change handler";
    const std::string shown = page.Shown();
    use(page);
    return shown;
  }
  std::string Stored(const char* name) { return TRegistryStore(File).ReadString(name).toStdString(); }

  const test::TTempFolder Folder;
  const std::filesystem::path File = Folder / "a.conf";
};

TEST_F(PersistedControls, TheFirstStartStoresTheDesignAndTheNextShowsWhatTheUserDid) {
  EXPECT_EQ(Run(), "designed|-1|-1||on|200");
  EXPECT_EQ(Stored("A Edit") + Stored("Combo") + Stored("List") + Stored("Check"), "designed-1true");
  Run([](TPage& page) {
    page.Edit.setText(" a, \"b\"\\ ");
    page.Combo.setCurrentIndex(2);
    emit page.Combo.activated(2);
    page.Radio.findChildren<QRadioButton*>()[1]->click();
    for (const int i : {1, 2, 3}) page.List.item(i)->setCheckState(Qt::Checked);
    page.Check.click();
    page.UpDown.setValue(300);
    EXPECT_EQ(page.Changes, 5) << "the handlers are attached again";
  });
  Run([](TPage& page) {
    EXPECT_EQ(page.Shown(), " a, \"b\"\\ |2|1|0000 Met-7 IR/a,b/say \"x\"|off|300");
    page.Radio.SetItemIndex(3);
    page.Combo.setCurrentIndex(1);
  });
  EXPECT_EQ(Stored("Radio") + Stored("Combo"), "-12") << "nobody chose the index of the combo box";
  Run([](TPage& page) {
    page.Combo.setCurrentIndex(1);
    QFocusEvent leave(QEvent::FocusOut);
    QApplication::sendEvent(&page.Combo, &leave);
  });
  EXPECT_EQ(Stored("Combo"), "1");
}

TEST_F(PersistedControls, ACheckListKeepsNamesThatItDoesNotHaveUntilAClick) {
  Run([](TPage& page) {
    page.List.SetCheckedList("d1,Gone,\"0000 met-7 ir\"");
    EXPECT_EQ(page.List.CheckedItems().size(), 2);
  });
  Run([](TPage& page) {
    EXPECT_EQ(page.Shown(), "designed|-1|-1|D1/0000 Met-7 IR|on|200");
    EXPECT_EQ(page.List.CheckedList(), "d1,Gone,\"0000 met-7 ir\"");
    page.List.actions().at(1)->trigger();
    EXPECT_TRUE(page.List.CheckedItems().isEmpty());
    page.List.actions().at(0)->trigger();
  });
  EXPECT_EQ(Stored("List"), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\"");
}

TEST_F(PersistedControls, AValueBeyondTheControlSelectsNoneOrTheNearest) {
  Folder.Write("a.conf", "Combo=99\nRadio=-7\nCheck=1\nUpDown=100000\n");
  EXPECT_EQ(Run(), "designed|-1|-1||on|3600");
}

TEST_F(PersistedControls, TheWheelPassingOverAControlChangesNothing) {
  TPage page;
  page.Combo.setCurrentIndex(1);
  for (QWidget* control : {page.Root.findChild<QWidget*>("Combo"), page.Root.findChild<QWidget*>("UpDown")}) {
    QWheelEvent turn(QPointF(2, 2), QPointF(2, 2), QPoint(), QPoint(0, -120), Qt::NoButton, Qt::NoModifier,
                     Qt::NoScrollPhase, false);
    QApplication::sendEvent(control, &turn);
    EXPECT_FALSE(turn.isAccepted());
  }
  EXPECT_EQ(page.Shown(), "designed|1|-1||on|200");
}

}  // namespace
}  // namespace skyreel
