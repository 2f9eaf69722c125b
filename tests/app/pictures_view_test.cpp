#include "app/pictures_view.h"

#include <gmock/gmock.h>

#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "base/files.h"
#include "journal/database.h"
#include "journal/journal.h"
#include "support/helpers.h"

namespace skyreel {
namespace {

using namespace std::string_literals;
using TPath = std::filesystem::path;

const TPath kPictures = SKYREEL_TEST_PICTURES;

/// A view of three pictures of two sources, an hour apart, 37 x 23 pixels each.
class PicturesView : public testing::Test {
 protected:
  PicturesView() {
    const TSystemClock clock{{}};
    TJournal journal(journal_, clock);
    journal.BeginRun("test");
    for (const char* name : {"colour.png", "grey.png", "colour.gif"})
      journal.Add({.Source = name[0] == 'g' ? "grey" : "colour",
                   .Product = "product",
                   .SlotTime = Slot(hour_++),
                   .Path = Copy(name),
                   .Outcome = TJournalOutcome::New});
    journal.Add({.Source = "grey", .Path = folder_ / "data.nc", .Outcome = TJournalOutcome::New});
    journal.EndRun(0);
  }

  static TDateTime Slot(int hour) { return TDateTime::FromDate(2026, 11, 26, hour); }
  TPath Copy(const char* name) { return folder_.Write(name, ReadWholeFile(kPictures / name)); }
  TPictureEntry Entry(const char* name, int hour) {
    return {.Source = "new",
            .Title = "New source",
            .Product = "",
            .SlotTime = Slot(hour),
            .Path = Copy(name),
            .Credit = ""};
  }
  void Open() {
    view_ = std::make_unique<TPicturesView>(
        TPicturesView::TEnvironment{.Journal = journal_,
                                    .Describe =
                                        [](const std::string& source) {
                                          return TPicturesView::TSourceWords{source + " title", "Credit"};
                                        },
                                    .ThumbnailFolder = folder_ / "thumbnails"});
    view_->resize(900, 400);
    view_->show();
    canvas_ = static_cast<TPictureCanvas*>(view_->findChild<QWidget*>("PictureCanvas"));
    strip_ = view_->findChild<QListView*>("PictureStrip");
    caption_ = view_->findChild<QLabel*>("LabelPictureCaption");
  }
  /// Waits until the file is shown whole, and its caption is there.
  bool Shows(const char* name) {
    return QTest::qWaitFor([&] {
      return canvas_->Path() == folder_ / name && !canvas_->IsLoading() && !canvas_->Picture().Image.isNull();
    });
  }
  QString Message() { return canvas_->findChild<QLabel*>("LabelPictureMessage")->text(); }

  const test::TTempFolder folder_;
  const TPath journal_ = folder_ / "journal.sqlite";
  int hour_ = 10;
  std::unique_ptr<TPicturesView> view_;
  TPictureCanvas* canvas_ = nullptr;
  QListView* strip_ = nullptr;
  QLabel* caption_ = nullptr;
};

TEST_F(PicturesView, TheEndOfARunDoesNotStopTheAnimation) {
  Open();
  ASSERT_TRUE(Shows("colour.gif"));
  auto& bar = static_cast<TAnimationBar&>(*view_->findChild<QWidget*>("AnimationBar"));
  bar.PlayOrPause();
  ASSERT_TRUE(QTest::qWaitFor([&] { return bar.IsPlaying(); }));
  QSignalSpy reset(strip_->model(), &QAbstractItemModel::modelReset);
  view_->Reload();
  ASSERT_TRUE(reset.wait());
  EXPECT_TRUE(bar.IsPlaying());
}

TEST_F(PicturesView, KeysStepZoomAndFillTheScreen) {
  Open();
  ASSERT_TRUE(Shows("colour.gif"));
  EXPECT_EQ(caption_->text(),
            "2026-11-26 12:00 UTC · colour title · product · Credit · colour.gif · 37 × 23 GIF");
  const auto press = [&](Qt::Key key) { QTest::keyClick(canvas_, key); };
  strip_->setFocus();
  QTest::keyClick(strip_, Qt::Key_Left);
  EXPECT_TRUE(Shows("grey.png"));
  for (const auto& [key, name] : {std::pair(Qt::Key_Home, "colour.png"),
                                  {Qt::Key_Left, "colour.png"},
                                  {Qt::Key_Right, "grey.png"},
                                  {Qt::Key_End, "colour.gif"}}) {
    press(key);
    EXPECT_TRUE(Shows(name)) << key;
  }
  // A small picture is not enlarged to fit.
  EXPECT_TRUE(canvas_->IsFitted() && canvas_->Scale() == 1);
  press(Qt::Key_Plus);
  press(Qt::Key_Plus);
  press(Qt::Key_Minus);
  EXPECT_EQ(canvas_->Scale(), 1.25);
  press(Qt::Key_1);
  EXPECT_TRUE(!canvas_->IsFitted() && canvas_->Scale() == 1);
  press(Qt::Key_F);
  EXPECT_TRUE(canvas_->IsFitted());
  press(Qt::Key_F11);
  EXPECT_EQ(canvas_->window()->objectName(), "FullScreenPicture");
  EXPECT_TRUE(QTest::qWaitFor([&] { return canvas_->hasFocus(); }));
  press(Qt::Key_Escape);
  EXPECT_EQ(canvas_->window(), view_.get());

  press(Qt::Key_F11);
  EXPECT_TRUE(canvas_->window()->close()) << "otherwise the program cannot end";
  EXPECT_EQ(canvas_->window(), view_.get());
  const auto uses_esc = [](const QAction* action) { return action->shortcut() == Qt::Key_Escape; };
  EXPECT_TRUE(std::ranges::none_of(canvas_->actions(), uses_esc)) << "it is the window's key";
}

TEST_F(PicturesView, ALockedJournalIsAskedAgain) {
  {
    TDatabase other(journal_);
    other.Execute("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    Open();
    view_->Reload();
    const auto* empty = view_->findChild<QLabel*>("LabelNoPictures");
    EXPECT_TRUE(QTest::qWaitFor([&] { return empty->text().contains("in use by another program"); }));
  }
  EXPECT_TRUE(Shows("colour.gif"));
}

TEST_F(PicturesView, TheNewestPictureAppearsUnlessTheUserLooksAtAnOlderOne) {
  Open();
  ASSERT_TRUE(Shows("colour.gif"));
  view_->ShowNewest(Entry("alpha.png", 13));
  EXPECT_TRUE(Shows("alpha.png"));
  QTest::keyClick(strip_, Qt::Key_Home);
  ASSERT_TRUE(Shows("colour.png"));
  view_->ShowNewest(Entry("inks.jpg", 14));
  EXPECT_TRUE(Shows("colour.png"));
  EXPECT_EQ(strip_->model()->rowCount(), 5);
  // Only what the user chose.
  auto* const source = view_->findChild<QComboBox*>("ComboPictureSource");
  EXPECT_EQ(source->count(), 4);
  source->setCurrentIndex(source->findText("grey title"));
  emit source->activated(source->currentIndex());
  EXPECT_TRUE(Shows("grey.png"));
  view_->ShowNewest(Entry("colour_interlaced.gif", 15));
  EXPECT_EQ(strip_->model()->rowCount(), 1);
}

TEST_F(PicturesView, SaysWhatHappenedToTheFile) {
  Copy("colour.png");
  folder_.Write("colour.gif", ReadWholeFile(kPictures / "colour.gif").substr(0, 1060));
  Open();
  ASSERT_TRUE(Shows("colour.gif"));
  EXPECT_TRUE(Message().startsWith("GIF: ")) << Message().toStdString();
  QTest::keyClick(strip_, Qt::Key_Home);
  ASSERT_TRUE(Shows("colour.png"));
  EXPECT_EQ(Message(), "");
  std::filesystem::remove(folder_ / "colour.png");
  EXPECT_TRUE(QTest::qWaitFor([&] { return Message() == "This file has been deleted or moved"; }));
  folder_.Write("colour.png", ReadWholeFile(kPictures / "alpha.png"));
  EXPECT_TRUE(QTest::qWaitFor([&] { return Message() == "The file was replaced; this is the new picture"; }));
}

}  // namespace
}  // namespace skyreel
