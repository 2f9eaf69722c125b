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

TEST_F(StatusLogTest, PutsAnOutcomeInThePlaceOfItsTransferAndOfNothingThatCameMeanwhile) {
  EXPECT_EQ(log_.Report(), "");
  log_.Add("first");
  log_.Begin("Get: a");
  for (const char* line : {"b", "c"}) log_.Add(line);
  EXPECT_EQ(Selected(), "Get: a");
  EXPECT_EQ(log_.Report(), "first\r\nb\r\nc\r\nGet: a\r\n");
  EXPECT_THAT(final_lines_, ElementsAre("first", "b", "c"));
  log_.End("a - OK");
  EXPECT_EQ(Selected(), "a - OK");
  log_.End("d - OK");  // not begun
  EXPECT_THAT(log_.Lines(), ElementsAre("first", "b", "c", "a - OK", "d - OK"));
  EXPECT_EQ(final_lines_, log_.Lines());
}

TEST_F(StatusLogTest, GivesOutOnceWhatWasBegunAndNeverEnded) {
  log_.Begin("Get: a");
  log_.Begin("Get: b");
  EXPECT_THAT(final_lines_, ElementsAre("Get: a"));
  for (int i = 0; i < 2; ++i) log_.Flush();
  log_.Add("c");
  EXPECT_THAT(log_.Lines(), ElementsAre("Get: a", "Get: b", "c"));
  EXPECT_EQ(final_lines_, log_.Lines());
}

TEST_F(StatusLogTest, SelectsTheNewestLineAlsoWhileKeysAreHeldThatWouldExtendASelection) {
  for (const auto modifier : {Qt::ControlModifier, Qt::ShiftModifier}) {
    QTest::keyPress(&view_, Qt::Key_F35, modifier);
    ASSERT_EQ(QGuiApplication::keyboardModifiers(), modifier);
    for (const char* line : {"c", "d"}) log_.Add(line);
    EXPECT_EQ(Selected(), "d");
    QTest::keyRelease(&view_, Qt::Key_F35);
  }
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
  EXPECT_EQ(final_lines_.size(), 250U);
}

TEST_F(StatusLogTest, CopiesTheSelectedLines) {
  for (const char* line : {"a", "b", "c"}) log_.Add(line);
  view_.selectAll();
  view_.actions().at(0)->trigger();
  EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), "a\nb\nc");
}

}  // namespace
}  // namespace skyreel
