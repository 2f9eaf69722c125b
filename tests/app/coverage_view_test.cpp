#include "app/coverage_view.h"

#include <gmock/gmock.h>

#include <QTest>
#include <QtWidgets>

#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace testing;
using namespace std::chrono_literals;
using test::TTempFolder;

const TDateTime kNow = TDateTime::FromDate(2026, 11, 26, 23, 50);

/// A view of a built-in source with a file every four hours, of which some are there.
class CoverageView : public Test {
 protected:
  CoverageView() {
    for (const char* file : {"2600", "2604", "2516"}) Folder.Write(file, "x");
    View.OnShowPicture = [this](const TJournalEntry& picture) { Told.push_back("show" + Text({picture})); };
    View.OnFetch = [this](const std::vector<TJournalEntry>& chosen) {
      Told.push_back("fetch" + Text(chosen));
    };
    View.OnPlay = [this](const std::vector<TJournalEntry>& chosen) { Told.push_back("play" + Text(chosen)); };
    View.resize(900, 400);
    View.show();
    Wait();
  }
  /// The view is at rest when it has looked at the newest day.
  void Wait() const {
    ASSERT_TRUE(QTest::qWaitFor([this] { return Model().rowCount() == 7 && Model().Day(6).Checked; }));
  }
  TCoverageModel& Model() const { return static_cast<TCoverageModel&>(*Table().model()); }
  TCoverageTable& Table() const { return *View.findChild<TCoverageTable*>(); }
  void Press(const char* action) const { View.findChild<QAction*>(action)->trigger(); }
  static std::string Text(const std::vector<TJournalEntry>& chosen) {
    std::string text;
    for (const TJournalEntry& each : chosen) text += " " + each.Path.filename().string();
    return text + " of " + chosen.front().Source + " " + chosen.front().Product;
  }
  std::vector<TCoverageSource> Sources() const {
    if (Gone) return {};
    const auto expect = [](const std::string& product, TDateTime now, int days) {
      TExpectation expected;
      for (TDateTime slot = now.Midnight() - std::chrono::days(days - 1); slot <= now; slot = slot + 4h)
        expected.Files.push_back({slot, FormatDateTime("ddhh", slot) + (product == "ir" ? "" : product)});
      return expected;
    };
    const auto products = [] { return std::vector<std::string>{"ir", "vis"}; };
    return {{"Sat", "Sat", Folder.Path(), products, expect, nullptr},
            {"None", "None", Folder.Path(), [] { return std::vector<std::string>(); },
             [](const std::string&, TDateTime, int) { return TExpectation(); }, nullptr}};
  }

  TTempFolder Folder;
  std::vector<std::string> Told;
  bool Gone = false;
  TCoverageView View{{.JournalFile = Folder / "Journal.sqlite",
                      .LedgerFile = Folder.Write("Ledger", "- " + (Folder / "2604").string() + "\n"),
                      .UtcNow = [] { return kNow; },
                      .Sources = [this] { return Sources(); }}};
};

TEST_F(CoverageView, TellsAScreenReaderAndObeysTheKeys) {
  const auto* const table = QAccessible::queryAccessibleInterface(&Table())->tableInterface();
  ASSERT_EQ(std::pair(table->rowCount(), table->columnCount()), std::pair(7, 6));
  EXPECT_EQ(table->rowDescription(1), "2026-11-25");
  EXPECT_EQ(table->columnDescription(1), "04:00");
  EXPECT_EQ(table->cellAt(0, 0)->text(QAccessible::Name), "2026-11-26 00:00 UTC, whole, 1 B");
  EXPECT_EQ(table->cellAt(0, 1)->text(QAccessible::Name),
            "2026-11-26 04:00 UTC, cut, 1 B: its transfer broke off, or is still running");

  Table().setCurrentIndex(Model().index(0, 3));
  const std::tuple<int, Qt::KeyboardModifier, std::pair<int, int>> keys[] = {
      {Qt::Key_PageDown, Qt::NoModifier, {1, 3}},
      {Qt::Key_Right, Qt::NoModifier, {1, 4}},
      {Qt::Key_PageUp, Qt::ShiftModifier, {0, 4}},
      {Qt::Key_Left, Qt::ShiftModifier, {0, 3}}};
  for (const auto& [key, modifier, place] : keys) {
    QTest::keyClick(&Table(), static_cast<Qt::Key>(key), modifier);
    EXPECT_EQ(std::pair(Table().currentIndex().row(), Table().currentIndex().column()), place);
  }
  for (const char* action : {"ActionFetchThese", "ActionPlayThese", "ActionCopyAsText"}) Press(action);
  EXPECT_EQ(QGuiApplication::clipboard()->text(),
            "2026-11-26: 1 of 6, missing 0800 1200 1600 2000, cut 0400\n"
            "2026-11-25: 1 of 6, missing 0000 0400 0800 1200 2000");
  QTest::keyClick(&Table(), Qt::Key_Return);  // there is no picture
  Table().setCurrentIndex(Model().index(0, 1));
  QTest::keyClick(&Table(), Qt::Key_Enter);
  QTest::mouseClick(Table().viewport(), Qt::LeftButton, {}, Table().visualRect(Model().index(0, 0)).center());
  EXPECT_THAT(Told, ElementsAre("fetch 2512 2612 2616 of Sat ir", "play 2516 of Sat ir",
                                "show 2604 of Sat ir", "show 2600 of Sat ir"));
}

TEST_F(CoverageView, FollowsARunAndTheChoices) {
  const auto state = [this](int row, int column) { return Model().At(row, column).State; };
  View.FileDone("Sat", "ir", {kNow.Midnight() + 8h, TJournalOutcome::New, "", Folder.Write("2608", "x")});
  View.FileDone("Sat", "ir", {kNow.Midnight(), TJournalOutcome::Failed, "broke off"});
  View.FileDone("Sat", "vis", {kNow.Midnight() + 12h, TJournalOutcome::New});
  EXPECT_EQ(state(0, 2), TCellState::Whole);
  EXPECT_EQ(state(0, 0), TCellState::Cut);
  EXPECT_EQ(state(0, 3), TCellState::Missing);
  std::filesystem::remove(Folder / "2608");
  View.Reload();
  ASSERT_TRUE(QTest::qWaitFor([&] { return state(0, 2) == TCellState::Missing; }));

  // The answer to the first of two choices comes too late.
  auto& product = *View.findChild<QComboBox*>("ComboBoxCoverageProduct");
  auto& source = *View.findChild<QComboBox*>("ComboBoxCoverageSource");
  product.setCurrentIndex(1);
  emit product.activated(1);
  source.setCurrentIndex(1);
  emit source.activated(1);
  ASSERT_TRUE(QTest::qWaitFor([&] { return Model().columnCount() == 0; }));
  EXPECT_THAT(View.findChild<QLabel*>("LabelCoverage")->text().toStdString(), HasSubstr("only the server"));
  EXPECT_EQ(product.count(), 0);
}

TEST_F(CoverageView, ActsOnTheSourceThatItShows) {
  Table().setCurrentIndex(Model().index(0, 2));
  auto& source = *View.findChild<QComboBox*>("ComboBoxCoverageSource");
  source.setCurrentIndex(1);
  emit source.activated(1);
  Press("ActionFetchThese");  // while the other source loads
  EXPECT_THAT(Told, ElementsAre("fetch 2608 of Sat ir"));
  Gone = true;
  View.SourcesChanged();
  ASSERT_TRUE(QTest::qWaitFor([&] { return QThreadPool::globalInstance()->waitForDone(0); }));
  QCoreApplication::processEvents();
  EXPECT_EQ(Model().rowCount(), 0);
}

}  // namespace
}  // namespace skyreel
