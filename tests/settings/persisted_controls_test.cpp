#include "settings/persisted_controls.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QWheelEvent>

#include "support/helpers.h"

namespace skyreel {
namespace {

/// A page with one persisted control of each kind, as a form file would make it.
struct TPage {
  TPage() {
    Edit.setText("designed");
    Combo.addItems({"a", "b", "c"});
    for (int i = 0; i < 3; ++i) new QRadioButton(&Radio);
    List.addItems({"D1", "0000 Met-7 IR", "a,b", "say \"x\""});
    Check.setChecked(true);
    UpDown.setValue(50);
    const char* names[] = {"Edit", "Combo", "Radio", "List", "Check", "UpDown"};
    for (int i = 0; QWidget * control : Root.findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
      control->setObjectName(names[i++]);
    Edit.setProperty("NamedAs", "A Edit");
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
  EXPECT_EQ(Run(), "designed|0|-1||on|50");
  EXPECT_EQ(Stored("A Edit") + Stored("Combo") + Stored("List") + Stored("Check"), "designed0true");
  Run([](TPage& page) {
    page.Edit.setText(" a, \"b\"\\ ");
    page.Combo.setCurrentIndex(2);
    emit page.Combo.activated(2);
    page.Combo.setCurrentIndex(0);
    page.Radio.findChildren<QRadioButton*>()[0]->click();
    for (const int i : {1, 2, 3}) page.List.item(i)->setCheckState(Qt::Checked);
    page.Check.click();
    page.UpDown.setValue(60);
    EXPECT_EQ(page.Changes, 5) << "the handlers are attached again";
    for (QWidget* control : std::initializer_list<QWidget*>{&page.Combo, &page.UpDown}) {
      QWheelEvent turn({2, 2}, {2, 2}, {}, {0, -120}, {}, {}, Qt::NoScrollPhase, false);
      QApplication::sendEvent(control, &turn);
      EXPECT_FALSE(turn.isAccepted()) << "a wheel that only passes over";
    }
  });
  Run([](TPage& page) {
    EXPECT_EQ(page.Shown(), " a, \"b\"\\ |2|0|0000 Met-7 IR/a,b/say \"x\"|off|60") << "nobody chose index 0";
    page.Radio.SetItemIndex(3);
    page.Combo.setCurrentIndex(1);
    QFocusEvent leave(QEvent::FocusOut);
    QApplication::sendEvent(&page.Combo, &leave);
  });
  EXPECT_EQ(Stored("Radio") + Stored("Combo"), "-11");
}

TEST_F(PersistedControls, ACheckListKeepsNamesThatItDoesNotHaveUntilAClick) {
  Run([](TPage& page) { page.List.SetCheckedList("d1,Gone,\"0000 met-7 ir\""); });
  Run([](TPage& page) {
    EXPECT_EQ(page.Shown(), "designed|0|-1|D1/0000 Met-7 IR|on|50");
    EXPECT_EQ(page.List.CheckedList(), "d1,Gone,\"0000 met-7 ir\"");
    page.List.actions().at(0)->trigger();
  });
  EXPECT_EQ(Stored("List"), "D1,\"0000 Met-7 IR\",\"a,b\",\"say \"\"x\"\"\"");
  Run([](TPage& page) { page.List.actions().at(1)->trigger(); });
  EXPECT_EQ(Stored("List"), "");
}

TEST_F(PersistedControls, AStoredValueBeyondTheControlSelectsNoneOrTheNearest) {
  Folder.Write("a.conf", "Combo=99\nRadio=-7\nCheck=1\nUpDown=100000\n");
  EXPECT_EQ(Run(), "designed|-1|-1||on|99");
}

}  // namespace
}  // namespace skyreel
