#include "app/status_log.h"

#include <gmock/gmock.h>

#include <QTest>
#include <QtWidgets>

#include "app/find_bar.h"

namespace skyreel {
namespace {

TEST(StatusLog, PutsAnOutcomeInThePlaceOfItsTransferAndGivesOutEachFinalLineOnce) {
  QTableView view;
  TStatusLog log(view);
  std::vector<std::string> final_lines;
  log.OnFinalLine = [&](const std::string& line) { final_lines.push_back(line); };
  log.Add("a\r\nb\x01");
  log.Begin("Get: c");
  log.Add(std::string(3'999, 'x') + "\xC3\xA9 and more");  // cut, but not inside a character
  log.End("c - OK");
  log.End("d - OK");  // not begun
  for (const char* line : {"Get: e", "Get: f"}) log.Begin(line);
  for (int i = 0; i < 2; ++i) log.Flush();
  EXPECT_THAT(log.Lines(), testing::ElementsAre("a  b ", std::string(3'999, 'x') + "...", "c - OK", "d - OK",
                                                "Get: e", "Get: f"));
  EXPECT_EQ(final_lines, log.Lines());
}

TEST(StatusLog, SignsProblemsAndFindsLines) {
  QWidget window;
  auto& view = *new QTableView(&window);
  TStatusLog log(view);
  TFindBar& bar = *new TFindBar(view);
  for (const char* line : {"Get: a", "Get: b"}) log.Begin(line), log.End(line, line == std::string("Get: b"));
  log.Add("other");
  const auto sign = [&](int row) { return view.model()->index(row, 0).data(Qt::DecorationRole).isNull(); };
  EXPECT_TRUE(sign(0) && !sign(1) && sign(2));
  EXPECT_EQ(view.model()->index(1, 0).data(Qt::AccessibleTextRole), "problem: Get: b");
  window.show();
  bar.Open();
  auto& text = *bar.findChild<QLineEdit*>();
  QTest::keyClicks(&text, "GET");
  std::string rows;
  for (const auto modifier : {Qt::NoModifier, Qt::NoModifier, Qt::ShiftModifier, Qt::ShiftModifier}) {
    QTest::keyClick(&text, Qt::Key_Return, modifier);
    rows += std::to_string(view.currentIndex().row()) + " ";
  }
  EXPECT_EQ(rows, "0 1 0 1 ");
  EXPECT_EQ(bar.findChild<QLabel*>()->text(), "from the end again");
  QTest::keyClick(&text, Qt::Key_Escape);
  EXPECT_TRUE(bar.isHidden());
}

TEST(StatusLog, SelectsTheNewestLineDropsTheOldestAndCopies) {
  QTableView view;
  view.setSelectionMode(QAbstractItemView::ExtendedSelection);
  TStatusLog log(view, 100);
  // A Shift held just now does not make it select more.
  QTest::keyPress(&view, Qt::Key_F35, Qt::ShiftModifier);
  for (int i = 0; i < 250; ++i) log.Add(std::to_string(i));
  QTest::keyRelease(&view, Qt::Key_F35);
  EXPECT_THAT(log.Lines().size(), testing::AllOf(testing::Ge(100U), testing::Le(110U)));
  EXPECT_EQ(log.Report().substr(0, log.Report().find("\r\n")),
            "(" + std::to_string(250 - log.Lines().size()) + " earlier lines are left out)");
  view.actions().at(0)->trigger();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "249");
}

}  // namespace
}  // namespace skyreel
