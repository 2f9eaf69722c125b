#include "app/pictures_view.h"

#include <QAction>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <utility>

#include "app/animation_export.h"
#include "app/background.h"
#include "app/worker_journal.h"
#include "base/scope.h"
#include "journal/journal.h"

namespace skyreel {

namespace {

constexpr std::int64_t kMostEntries = 1'000;
constexpr const char* kNoPictures =
    "No pictures have been stored yet. They appear here while a run fetches them.";
constexpr double kZoomStep = 1.25;
constexpr auto kNewestDelay = std::chrono::milliseconds(300);

std::string Chosen(const QComboBox& box) {
  return box.currentData().toString().toStdString();
}

/// Chooses the item of this value, or else the first.
void Choose(QComboBox& box, const std::string& value) {
  box.setCurrentIndex(std::max(0, box.findData(QString::fromStdString(value))));
}

}  // namespace

TPicturesView::TPicturesView(TEnvironment environment, QWidget* parent)
    : QWidget(parent),
      environment_(std::move(environment)),
      thumbnails_(TThumbnailFiles(environment_.ThumbnailFolder), TThumbnailSize::Normal),
      list_(nullptr, thumbnails_),
      source_(new QComboBox),
      product_(new QComboBox),
      strip_(new QListView),
      canvas_(new TPictureCanvas),
      bar_(new QToolBar),
      caption_(new QLabel),
      animation_(new TAnimationBar(
          {.MakeFileJob = [this] { return MakeFileJob(); },
           .Room = [this] { return canvas_->FrameRoom(); },
           .Show = [this](const TFrameFile& file, const QImage& picture) { ShowFrame(file, picture); },
           .Paused = [this](const TFrameFile& file) { ShowPaused(file); },
           .Current = [this] { return canvas_->Path(); }})),
      empty_(new QLabel(kNoPictures)),
      splitter_(new QSplitter) {
  setObjectName("PicturesView");
  source_->setObjectName("ComboPictureSource");
  source_->setAccessibleName("Source of the pictures");
  product_->setObjectName("ComboPictureProduct");
  product_->setAccessibleName("Product of the pictures");
  for (QComboBox* box : {source_, product_}) {
    box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    box->setMinimumContentsLength(14);
  }

  strip_->setObjectName("PictureStrip");
  strip_->setAccessibleName("Thumbnails, the oldest first");
  strip_->setModel(&list_);
  strip_->setViewMode(QListView::IconMode);
  strip_->setMovement(QListView::Static);
  strip_->setResizeMode(QListView::Adjust);
  strip_->setUniformItemSizes(true);
  strip_->setIconSize({TPictureList::kSide, TPictureList::kSide});
  strip_->setGridSize({TPictureList::kSide + 16, TPictureList::kSide + fontMetrics().height() + 10});
  strip_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  strip_->setMinimumWidth(TPictureList::kSide + 40);

  caption_->setObjectName("LabelPictureCaption");
  caption_->setTextFormat(Qt::PlainText);
  // One line: a caption of changing height would move the picture while it plays.
  caption_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  caption_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  empty_->setObjectName("LabelNoPictures");
  empty_->setTextFormat(Qt::PlainText);
  empty_->setWordWrap(true);
  empty_->setAlignment(Qt::AlignCenter);

  splitter_->setChildrenCollapsible(false);
  splitter_->addWidget(strip_);
  splitter_->addWidget(canvas_);
  splitter_->setStretchFactor(1, 1);
  splitter_->setSizes({TPictureList::kSide + 40, 600});
  bar_->setAccessibleName("Zoom");
  auto* top = new QHBoxLayout;
  top->addWidget(source_);
  top->addWidget(product_);
  top->addWidget(bar_);
  top->addWidget(caption_, 1);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addLayout(top);
  layout->addWidget(empty_, 1);
  layout->addWidget(splitter_, 1);
  layout->addWidget(animation_);
  setFocusProxy(strip_);
  newest_timer_.setSingleShot(true);
  newest_timer_.setInterval(kNewestDelay);
  AddActions();
  WireEvents();
  Take({});
  Reload();
}

void TPicturesView::AddActions() {
  const auto add = [this](const QString& text, const QString& tip, QList<QKeySequence> keys, auto act) {
    auto* action = new QAction(text, this);
    action->setShortcuts(keys);
    action->setToolTip(tip + " (" + keys.first().toString(QKeySequence::NativeText) + ")");
    // Not in the combo boxes, which have their own use for letters and arrows.
    action->setShortcutContext(Qt::WidgetShortcut);
    connect(action, &QAction::triggered, this, act);
    for (QWidget* widget : {static_cast<QWidget*>(strip_), static_cast<QWidget*>(canvas_)})
      widget->addAction(action);
    return action;
  };
  add("Earlier", "The picture before", {Qt::Key_Left}, [this] { Step(-1); });
  add("Later", "The next picture", {Qt::Key_Right}, [this] { Step(1); });
  add("Oldest", "The oldest picture", {Qt::Key_Home}, [this] { GoTo(0); });
  add("Play", "Play or pause", {Qt::Key_Space}, [this] { animation_->PlayOrPause(); });
  add("Newest", "The newest picture", {Qt::Key_End}, [this] { GoTo(list_.Count() - 1); });
  bar_->addAction(
      add("Fit", "Fit the picture to the view", {Qt::Key_F, Qt::Key_0}, [this] { canvas_->Fit(); }));
  bar_->addAction(add("1:1", "One pixel of the picture for each of the screen", {Qt::Key_1},
                      [this] { canvas_->ZoomTo(1); }));
  bar_->addAction(add("+", "Enlarge", {Qt::Key_Plus, Qt::Key_Equal}, [this] { canvas_->ZoomBy(kZoomStep); }));
  bar_->addAction(add("−", "Reduce", {Qt::Key_Minus}, [this] { canvas_->ZoomBy(1 / kZoomStep); }));
  bar_->addAction(
      add("Full screen", "The picture alone", {Qt::Key_F11}, [this] { SetFullScreen(full_ == nullptr); }));
}

void TPicturesView::WireEvents() {
  leave_full_.setShortcut(Qt::Key_Escape);
  leave_full_.setShortcutContext(Qt::WidgetShortcut);
  connect(&leave_full_, &QAction::triggered, this, [this] { SetFullScreen(false); });
  connect(source_, &QComboBox::activated, this, [this] {
    FillProducts();
    animation_->Forget();
    Reload();
  });
  connect(product_, &QComboBox::activated, this, [this] {
    animation_->Forget();
    Reload();
  });
  connect(strip_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this](const QModelIndex& now) {
            following_ = now.row() == list_.Count() - 1;
            if (!keeps_animation_) animation_->Forget();
            if (!animation_->IsPlaying()) ShowCurrent();
          });
  canvas_->OnLoaded = [this] {
    ShowCaption();
    StoreThumbnail();
  };
  canvas_->OnReplaced = [this] {
    // Its thumbnail is made anew.
    if (const int row = list_.RowOf(canvas_->Path()); row >= 0) list_.Add(TPictureEntry(list_.At(row)));
  };
  newest_timer_.callOnTimeout([this] {
    if (const int row = list_.RowOf(newest_); row >= 0 && following_ && !animation_->IsPlaying()) {
      GoTo(row);
      following_ = true;
    }
  });
}

void TPicturesView::Reload() {
  if (std::exchange(asking_, true)) {
    ask_again_ = true;
    return;
  }
  InBackground(
      this,
      [journal_file = environment_.Journal, source = Chosen(*source_), product = Chosen(*product_)] {
        TAnswer answer;
        TWorkerJournal worker(journal_file);
        TJournal& journal = worker.Journal;
        if (!journal.FileExists()) return answer;
        journal.SetOnProblem([&answer](const std::string& text) { answer.Problem = text; });
        answer.Products = journal.ArrivedProducts();
        const std::vector<TArrival> files = journal.Arrivals(source, product, kMostEntries);
        answer.Answered = journal.Answered();
        if (!answer.Answered) {
          answer.Busy = answer.Problem.empty();
          if (answer.Busy) answer.Problem = kJournalBusy;
          return answer;
        }
        for (const TArrival& file : files) {
          if (!MayBePicture(file.Path)) continue;
          answer.Entries.push_back({.Source = file.Source,
                                    .Title = file.Source,
                                    .Product = file.Product,
                                    .SlotTime = file.SlotTime,
                                    .Path = file.Path,
                                    .Credit = {}});
        }
        return answer;
      },
      [this](TAnswer answer) {
        asking_ = false;
        if (std::exchange(ask_again_, false)) return Reload();
        if (answer.Busy) QTimer::singleShot(kJournalRetry, this, [this] { Reload(); });
        empty_->setText(answer.Problem.empty() ? kNoPictures : QString::fromStdString(answer.Problem));
        // The pictures that are shown are still there.
        if (answer.Answered || list_.Count() == 0) Take(std::move(answer));
      });
}

void TPicturesView::Take(TAnswer answer) {
  std::map<std::string, TSourceWords> words;
  for (TPictureEntry& entry : answer.Entries) {
    if (!environment_.Describe) break;
    const auto [found, added] = words.try_emplace(entry.Source);
    if (added) found->second = environment_.Describe(entry.Source);
    if (!found->second.Title.empty()) entry.Title = found->second.Title;
    entry.Credit = found->second.Credit;
  }
  products_.swap(answer.Products);
  if (wanted_) products_[wanted_->Source].insert(wanted_->Product);
  FillSources();
  const std::filesystem::path shown = canvas_->Path();
  const bool follow = following_;
  {
    // The reset takes the current picture away.
    const QSignalBlocker quiet(strip_->selectionModel());
    list_.SetEntries(std::move(answer.Entries));
  }
  strip_->reset();
  for (const TPictureEntry& entry : std::exchange(came_while_asking_, {}))
    if (IsChosen(entry)) list_.Add(entry);
  const int row = list_.RowOf(shown);
  const int target = row < 0 || follow ? list_.Count() - 1 : row;
  {
    // A run that ends must not stop the animation.
    const TScopedValue keeping(keeps_animation_, animation_->IsPlaying() || target == row);
    GoTo(target);
  }
  if (list_.Count() == 0) {
    animation_->Forget();
    ShowCurrent();
  }
  GoToWanted();
}

void TPicturesView::ShowPicture(const TPictureEntry& picture) {
  wanted_ = picture;
  play_to_.reset();
  animation_->Forget();
  products_[picture.Source].insert(picture.Product);
  FillSources();
  Choose(*source_, picture.Source);
  FillProducts();
  Choose(*product_, picture.Product);
  Reload();
}

void TPicturesView::PlayFrom(const TPictureEntry& picture, TDateTime to) {
  ShowPicture(picture);
  play_to_ = to;
}

void TPicturesView::GoToWanted() {
  const auto wanted = std::exchange(wanted_, std::nullopt);
  const auto to = std::exchange(play_to_, std::nullopt);
  if (!wanted) return;
  // The journal forgets files after a year, and never knew those of other computers.
  const int known = list_.RowOf(wanted->Path);
  GoTo(known >= 0 ? known : list_.Add(*wanted));
  if (to) animation_->PlayRange(wanted->SlotTime, *to);
}

void TPicturesView::FillSources() {
  const std::string chosen = Chosen(*source_);
  source_->clear();
  source_->addItem("All sources", "");
  for (const auto& [source, products] : products_) {
    const std::string title = environment_.Describe ? environment_.Describe(source).Title : "";
    source_->addItem(QString::fromStdString(title.empty() ? source : title), QString::fromStdString(source));
  }
  Choose(*source_, chosen);
  FillProducts();
}

void TPicturesView::FillProducts() {
  const std::string chosen = Chosen(*product_);
  product_->clear();
  product_->addItem("All products", "");
  if (const auto found = products_.find(Chosen(*source_)); found != products_.end()) {
    for (const std::string& product : found->second) {
      if (!product.empty())
        product_->addItem(QString::fromStdString(product), QString::fromStdString(product));
    }
  }
  product_->setEnabled(product_->count() > 1);
  Choose(*product_, chosen);
}

bool TPicturesView::IsChosen(const TPictureEntry& entry) const {
  const std::string source = Chosen(*source_), product = Chosen(*product_);
  return (source.empty() || source == entry.Source) && (product.empty() || product == entry.Product);
}

void TPicturesView::ShowNewest(const TPictureEntry& entry) {
  if (!MayBePicture(entry.Path)) return;
  if (asking_) came_while_asking_.push_back(entry);
  if (products_[entry.Source].insert(entry.Product).second) FillSources();
  if (!IsChosen(entry)) return;
  const bool follow = following_;
  const int row = list_.Add(entry);
  following_ = follow;
  empty_->hide();
  splitter_->show();
  animation_->show();
  if (entry.Path == canvas_->Path()) {
    if (!animation_->IsPlaying()) ShowCurrent();  // its file was replaced
  } else if (follow) {
    newest_ = entry.Path;
    if (strip_->currentIndex().isValid()) {
      if (!newest_timer_.isActive()) newest_timer_.start();
    } else {
      GoTo(row);
    }
  }
}

void TPicturesView::GoTo(int row) {
  const QModelIndex index = list_.index(std::clamp(row, 0, std::max(0, list_.Count() - 1)));
  if (!index.isValid()) return;
  strip_->setCurrentIndex(index);
  // The new items get their places only with the next layout.
  QTimer::singleShot(0, strip_, [strip = strip_] { strip->scrollTo(strip->currentIndex()); });
}

void TPicturesView::ShowCurrent() {
  const int row = strip_->currentIndex().row();
  for (QWidget* widget : {static_cast<QWidget*>(splitter_), static_cast<QWidget*>(animation_)})
    widget->setVisible(list_.Count() > 0);
  empty_->setVisible(list_.Count() == 0);
  if (row < 0) {
    canvas_->Clear();
  } else {
    const TThumbnail* const thumbnail = list_.ThumbnailAt(row);
    canvas_->Show(list_.At(row).Path, thumbnail != nullptr ? thumbnail->Image : QImage());
  }
  ShowCaption();
}

void TPicturesView::ShowCaption() {
  const int row = strip_->currentIndex().row();
  if (row < 0) return caption_->clear();
  const TPictureEntry& entry = list_.At(row);
  QStringList parts;
  const auto add = [&parts](const std::string& text) {
    if (!text.empty()) parts << QString::fromStdString(text);
  };
  if (!entry.SlotTime.IsZero()) add(FormatDateTime("yyyy-mm-dd hh:nn' UTC'", entry.SlotTime));
  add(entry.Title);
  add(entry.Product);
  add(entry.Credit);
  add(entry.Path.filename().string());
  const TPicture& picture = canvas_->Picture();
  if (!picture.FullSize.isEmpty() && !picture.Kind.empty())
    parts << QString("%1 × %2").arg(picture.FullSize.width()).arg(picture.FullSize.height()) + " " +
                 QString::fromStdString(picture.Kind);
  SetCaption(parts);
}

void TPicturesView::SetCaption(const QStringList& parts) {
  caption_->setText(parts.join(" · "));
  caption_->setToolTip(caption_->text());
  canvas_->setAccessibleDescription(caption_->text());
}

TAnimationBar::TJob TPicturesView::MakeFileJob() const {
  const int row = strip_->currentIndex().row();
  if (row < 0) return [] { return std::vector<TFrameFile>(); };
  return [journal_file = environment_.Journal, entry = list_.At(row)] {
    constexpr std::int64_t kMostFrames = 100'000;
    TWorkerJournal worker(journal_file);
    std::vector<TArrival> files = worker.Journal.Arrivals(entry.Source, entry.Product, kMostFrames);
    std::erase_if(files, [&](const TArrival& file) { return file.Product != entry.Product; });
    return FramesOf(files, entry.Credit);
  };
}

void TPicturesView::ShowFrame(const TFrameFile& file, const QImage& picture) {
  canvas_->ShowFrame(file.Path, picture);
  QStringList parts = {QString::fromStdString(FormatDateTime("yyyy-mm-dd hh:nn' UTC'", file.SlotTime))};
  if (!file.Credit.empty()) parts << QString::fromStdString(file.Credit);
  SetCaption(parts << QString::fromStdString(file.Path.filename().string()));
}

void TPicturesView::ShowPaused(const TFrameFile& file) {
  const TScopedValue keeping(keeps_animation_, true);
  const int row = list_.RowOf(file.Path);
  if (row < 0) return canvas_->Show(file.Path, {});
  const bool current = strip_->currentIndex().row() == row;
  GoTo(row);
  if (current) ShowCurrent();
}

void TPicturesView::StoreThumbnail() {
  const int row = list_.RowOf(canvas_->Path());
  const TThumbnail* const thumbnail = row < 0 ? nullptr : list_.ThumbnailAt(row);
  const TPicture& picture = canvas_->Picture();
  const bool whole = picture.Problem.empty() && picture.Region == QRect(QPoint(), picture.FullSize);
  if (thumbnail == nullptr || !thumbnail->Image.isNull() || !whole || picture.Image.isNull()) return;
  thumbnails_.Store(canvas_->Path(), picture.Image);
}

void TPicturesView::SetFullScreen(bool full) {
  if (full == (full_ != nullptr)) return;
  if (full) {
    full_ = new QWidget(this, Qt::Window);
    full_->setObjectName("FullScreenPicture");
    full_->setWindowTitle("Skyreel - picture");
    full_->installEventFilter(this);
    auto* layout = new QVBoxLayout(full_);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(canvas_);
    canvas_->addAction(&leave_full_);
    full_->showFullScreen();
  } else {
    // In the window, Esc is the key of the button Close.
    canvas_->removeAction(&leave_full_);
    splitter_->addWidget(canvas_);
    splitter_->setStretchFactor(1, 1);
    std::exchange(full_, nullptr)->deleteLater();
    GoTo(strip_->currentIndex().row());
  }
  canvas_->show();
  canvas_->setFocus();
}

bool TPicturesView::eventFilter(QObject* watched, QEvent* event) {
  // The desktop may close the window, too. The event stays accepted, or the program could not end.
  if (watched == full_ && event->type() == QEvent::Close) SetFullScreen(false);
  return QWidget::eventFilter(watched, event);
}

}  // namespace skyreel
