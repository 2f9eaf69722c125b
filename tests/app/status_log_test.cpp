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
using testing::IsEmpty;

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

TEST_F(StatusLogTest, SelectsTheNewestLineAndReportsAllInOrder) {
  EXPECT_TRUE(log_.IsEmpty());
  EXPECT_EQ(log_.Report(), "");
  log_.Add("Get: a");
  log_.ReplaceLast("a - OK");
  EXPECT_EQ(Selected(), "a - OK");
  log_.Add("Get: b");
  EXPECT_EQ(Selected(), "Get: b");
  EXPECT_EQ(log_.Report(), "a - OK\r\nGet: b\r\n");
  EXPECT_EQ(view_.model()->rowCount(), 2);
}

TEST_F(StatusLogTest, SelectsTheNewestLineAloneWhileKeysAreHeld) {
  log_.Add("a");
  for (const auto modifier : {Qt::ControlModifier, Qt::ShiftModifier}) {
    QTest::keyPress(&view_, Qt::Key_F35, modifier);
    ASSERT_EQ(QGuiApplication::keyboardModifiers(), modifier);
    log_.Add("b");
    log_.Add("c");
    EXPECT_EQ(Selected(), "c");
    QTest::keyRelease(&view_, Qt::Key_F35);
  }
}

TEST_F(StatusLogTest, GivesOutEachLineOnceWhenItIsFinal) {
  log_.Add("Get: a");
  EXPECT_THAT(final_lines_, IsEmpty());
  log_.ReplaceLast("a - OK");
  log_.Add("Get: b");
  EXPECT_THAT(final_lines_, ElementsAre("a - OK"));
  log_.ReplaceLast("b - timed out");
  log_.Flush();
  log_.Flush();
  EXPECT_THAT(final_lines_, ElementsAre("a - OK", "b - timed out"));
}

TEST_F(StatusLogTest, ReplacingInAnEmptyLogAdds) {
  log_.ReplaceLast("first");
  EXPECT_THAT(log_.Lines(), ElementsAre("first"));
}

TEST_F(StatusLogTest, KeepsOneLineOneLine) {
  log_.Add("a\r\nb\tc\x01");
  log_.Add("caf\xC3\xA9");
  log_.Add(std::string(3'999, 'x') + "\xC3\xA9 and more");
  EXPECT_EQ(log_.Lines()[0], "a  b c ");
  EXPECT_EQ(log_.Lines()[1], "caf\xC3\xA9");
  // Cut, but not inside a character.
  EXPECT_EQ(log_.Lines()[2], std::string(3'999, 'x') + "...");
}

TEST_F(StatusLogTest, DropsTheOldestBeyondItsMaximumAndSaysSo) {
  for (int i = 0; i < 250; ++i) log_.Add(std::to_string(i));
  ASSERT_LE(log_.Lines().size(), 100U);
  EXPECT_EQ(log_.Lines().back(), "249");
  EXPECT_EQ(Selected(), "249");
  const std::size_t dropped = 250 - log_.Lines().size();
  EXPECT_EQ(log_.Report().substr(0, log_.Report().find("\r\n")),
            "(" + std::to_string(dropped) + " earlier lines are left out)");
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
