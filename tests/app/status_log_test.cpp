#include "app/status_log.h"

#include <gmock/gmock.h>

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QTableView>
#include <QTest>

namespace skyreel {
namespace {

using testing::ElementsAre;

class StatusLogTest : public testing::Test {
 protected:
  StatusLogTest() {
    view_.setSelectionMode(QAbstractItemView::ExtendedSelection);
    log_.OnFinalLine = [this](const std::string& line) { final_lines_.push_back(line); };
  }
  std::string Selected() const {
    const QModelIndexList selected = view_.selectionModel()->selectedIndexes();
    return selected.size() == 1 ? selected[0].data().toString().toStdString() : "";
  }

  QTableView view_;
  TStatusLog log_{view_, 100};
  std::vector<std::string> final_lines_;
};

TEST_F(StatusLogTest, SelectsTheNewestLineAndGivesOutEachOnceWhenItIsFinal) {
  EXPECT_EQ(log_.Report(), "");
  log_.ReplaceLast("Get: a");  // in an empty log it adds
  EXPECT_THAT(final_lines_, ElementsAre());
  log_.ReplaceLast("a - OK");
  EXPECT_EQ(Selected(), "a - OK");
  log_.Add("Get: b");
  EXPECT_EQ(Selected(), "Get: b");
  EXPECT_THAT(final_lines_, ElementsAre("a - OK"));
  EXPECT_EQ(log_.Report(), "a - OK\r\nGet: b\r\n");
  log_.ReplaceLast("b - timed out");
  log_.Add("Get: c");
  for (int i = 0; i < 2; ++i) log_.Flush();
  EXPECT_THAT(final_lines_, ElementsAre("a - OK", "b - timed out", "Get: c"));
  // Also while keys are held, which would extend a selection.
  for (const auto modifier : {Qt::ControlModifier, Qt::ShiftModifier}) {
    QTest::keyPress(&view_, Qt::Key_F35, modifier);
    ASSERT_EQ(QGuiApplication::keyboardModifiers(), modifier);
    for (const char* line : {"c", "d"}) log_.Add(line);
    EXPECT_EQ(Selected(), "d");
    QTest::keyRelease(&view_, Qt::Key_F35);
  }
}

TEST_F(StatusLogTest, NothingFromAsideIsReplacedByTheOutcomeOfTheFileInWork) {
  log_.AddAside("first");
  log_.Add("Get: a");
  for (const char* line : {"b", "c"}) log_.AddAside(line);
  EXPECT_EQ(Selected(), "Get: a");
  log_.ReplaceLast("a - OK");
  log_.AddAside("d");
  EXPECT_EQ(Selected(), "d");
  EXPECT_THAT(log_.Lines(), ElementsAre("first", "b", "c", "a - OK", "d"));
  EXPECT_EQ(final_lines_, log_.Lines());
}

TEST_F(StatusLogTest, KeepsOneLineOneLine) {
  for (const std::string& line : {std::string("a\r\nb\tc\x01"), std::string("caf\xC3\xA9"),
                                  std::string(3'999, 'x') + "\xC3\xA9 and more"})
    log_.Add(line);
  // Cut, but not inside a character.
  EXPECT_THAT(log_.Lines(), ElementsAre("a  b c ", "caf\xC3\xA9", std::string(3'999, 'x') + "..."));
}

TEST_F(StatusLogTest, DropsTheOldestBeyondItsMaximumAndSaysSo) {
  for (int i = 0; i < 250; ++i) log_.Add(std::to_string(i));
  ASSERT_LE(log_.Lines().size(), 100U);
  EXPECT_EQ(log_.Lines().back(), "249");
  EXPECT_EQ(Selected(), "249");
  EXPECT_EQ(log_.Report().substr(0, log_.Report().find("\r\n")),
            "(" + std::to_string(250 - log_.Lines().size()) + " earlier lines are left out)");
  EXPECT_EQ(final_lines_.size(), 249U);
}

TEST_F(StatusLogTest, CopiesTheSelectedLines) {
  for (const char* line : {"a", "b", "c"}) log_.Add(line);
  view_.selectAll();
  view_.actions().at(0)->trigger();
  EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), "a\nb\nc");
}

}  // namespace
}  // namespace skyreel
