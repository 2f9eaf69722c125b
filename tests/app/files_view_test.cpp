#include "app/files_view.h"

#include <gmock/gmock.h>

#include <QTest>
#include <QtWidgets>

#include "journal/database.h"
#include "support/fakes.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace testing;
using enum TJournalOutcome;

class FilesViewTest : public testing::Test {
 protected:
  void Fill(TJournal& journal, const std::string& what, int count, TJournalOutcome outcome = New) {
    journal.BeginRun(what);
    for (int i = 0; i < count; ++i) {
      journal.Add({.Source = what,
                   .Product = "IR",
                   .SlotTime = Clock.Now,
                   .Address = "http://h/" + what + std::to_string(i),
                   .Path = "/none/" + what + std::to_string(i) + ".jpg",
                   .Bytes = count - i,
                   .Outcome = outcome,
                   .Reason = outcome == New ? "" : "timed out"});
    }
    journal.EndRun(0);
  }
  void Open() {
    View = std::make_unique<TFilesView>(TFilesView::TSetup{
        File, [this] { return Clock.Now; }, [this](const TJournalEntry&) { return WhyNot; },
        [this](const std::vector<TJournalEntry>& files) { Again = files.size(); }});
    View->resize(900, 300);
    View->show();
    View->activateWindow();
    Get<QTableView>("TableFiles").setFocus();
    EXPECT_TRUE(QTest::qWaitForWindowActive(View.get()));
  }
  template <typename T>
  T& Get(const char* name) {
    return *View->findChild<T*>(name);
  }
  /// Waits until the summary is this.
  void Expect(const char* summary) {
    auto& label = Get<QLabel>("LabelFiles");
    EXPECT_TRUE(QTest::qWaitFor([&] { return label.text() == summary; })) << label.text().toStdString();
  }
  std::string Cell(int row, TFileColumn column) {
    const QAbstractItemModel& model = *Get<QTableView>("TableFiles").model();
    return model.index(row, static_cast<int>(column)).data(Qt::AccessibleTextRole).toString().toStdString();
  }

  test::TTempFolder Folder;
  const std::filesystem::path File = Folder / "Journal.sqlite";
  test::TFakeClock Clock{TDateTime::FromDate(2026, 11, 26, 12, 0)};
  std::string WhyNot;
  std::size_t Again = 0;
  std::unique_ptr<TFilesView> View;
};

TEST_F(FilesViewTest, FiltersSortsAndKeepsTheSelectionWhileFilesCome) {
  TJournal journal(File, Clock);
  Fill(journal, "old", 2);
  Clock.Now = Clock.Now + std::chrono::days(2);
  Fill(journal, "good", 3);
  Open();
  Expect("3 files");
  EXPECT_EQ(Cell(0, TFileColumn::Name), "good2.jpg") << "the newest first";
  View->SetTitles({{"good", "Fine"}});
  EXPECT_TRUE(QTest::qWaitFor([&] { return Cell(0, TFileColumn::Source) == "Fine"; }));
  auto& table = Get<QTableView>("TableFiles");
  table.selectRow(2);
  QTest::keyClick(&table, Qt::Key_C, Qt::ControlModifier);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "/none/good0.jpg");
  QTest::keyClick(&table, Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "http://h/good0");
  Get<QComboBox>("ComboBoxFiles").setCurrentIndex(2);
  emit Get<QComboBox>("ComboBoxFiles").activated(2);
  Expect("5 files");
  table.horizontalHeader()->setSortIndicator(static_cast<int>(TFileColumn::Source), Qt::DescendingOrder);
  EXPECT_TRUE(QTest::qWaitFor([&] { return Cell(0, TFileColumn::Name) == "old1.jpg"; }));
  Fill(journal, "bad", 4, Failed);
  View->Refresh();
  Expect("9 files, 4 with problems");
  EXPECT_EQ(table.selectionModel()->selectedRows().size(), 1);
  EXPECT_EQ(table.currentIndex().siblingAtColumn(static_cast<int>(TFileColumn::Name)).data(), "good0.jpg");
  Get<QCheckBox>("CheckBoxFilesProblems").setChecked(true);
  Expect("4 of 9 files, 4 with problems");
  EXPECT_EQ(Cell(0, TFileColumn::State) + Cell(0, TFileColumn::Reason), "problemtimed out");
  QTest::keyClicks(&Get<QLineEdit>("EditFilesFilter"), "TIMED bad2");
  Expect("1 of 9 files, 4 with problems");
}

TEST_F(FilesViewTest, FetchesAgainOrSaysWhyNot) {
  TJournal journal(File, Clock);
  Fill(journal, "good", 3);
  Open();
  Expect("3 files");
  auto& table = Get<QTableView>("TableFiles");
  auto& message = Get<QLabel>("LabelFilesMessage");
  for (const char* why : {"no file is selected", "its service has closed"}) {
    QTest::keyClick(&table, Qt::Key_F5);
    EXPECT_THAT(message.text().toStdString(), HasSubstr(WhyNot.empty() ? why : WhyNot));
    table.selectAll();
    WhyNot = "its service has closed";
  }
  emit table.customContextMenuRequested({10, 10});
  QMenu& menu = *table.findChild<QMenu*>();
  EXPECT_FALSE(menu.actions().last()->isEnabled());
  EXPECT_THAT(menu.actions().last()->toolTip().toStdString(), HasSubstr(WhyNot));
  menu.close();
  View->activateWindow();
  EXPECT_TRUE(QTest::qWaitFor([&] { return table.actions().last()->isEnabled() && table.hasFocus(); }));
  WhyNot.clear();
  QTest::keyClick(&table, Qt::Key_F5);
  EXPECT_TRUE(QTest::qWaitFor([&] { return Again == 3; }));
  QTest::keyClick(&table, Qt::Key_Return);
  EXPECT_TRUE(QTest::qWaitFor([&] { return message.text().endsWith("is not there any more."); }));
}

TEST_F(FilesViewTest, SaysWhatIsWrongWithTheJournalAndGoesOn) {
  Open();
  Expect("0 files");
  EXPECT_FALSE(std::filesystem::exists(File)) << "looking makes no journal";
  TJournal(File, Clock).BeginRun("x");
  const auto expect = [this](const char* message) {
    auto& label = Get<QLabel>("LabelFilesMessage");
    View->Refresh();
    EXPECT_TRUE(QTest::qWaitFor([&] { return label.text().contains(message) && !label.isHidden(); }))
        << label.text().toStdString();
  };
  {
    TDatabase other(File);
    other.Execute("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    expect("in use by another program");
  }
  TDatabase(File).Execute("PRAGMA user_version = 99");
  expect("a newer version of Skyreel");
  Folder.Write("Journal.sqlite", std::string(5'000, 'x'));
  expect("cannot be used: ");
  TJournal journal(File, Clock);
  Fill(journal, "good", 3);
  View->Refresh();
  Expect("3 files");
  EXPECT_TRUE(Get<QLabel>("LabelFilesMessage").isHidden());
}

TEST_F(FilesViewTest, ShowsAHundredThousandFiles) {
  TJournal journal(File, Clock);
  Fill(journal, "many", 100'000);
  Open();
  QElapsedTimer time;
  time.start();
  EXPECT_TRUE(QTest::qWaitFor([&] { return Get<QLabel>("LabelFiles").text() == "100,000 files"; }, 60'000));
  auto& table = Get<QTableView>("TableFiles");
  time.restart();
  table.selectAll();
  table.scrollToBottom();
  EXPECT_LT(time.elapsed(), 2'000);
  Get<QLineEdit>("EditFilesFilter").setText("many9999");
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return Get<QLabel>("LabelFiles").text() == "11 of 100,000 files"; }, 60'000));
}

}  // namespace
}  // namespace skyreel
