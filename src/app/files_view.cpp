#include "app/files_view.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QScrollBar>
#include <QTableView>
#include <QUrl>
#include <algorithm>
#include <unordered_set>
#include <utility>

#include "app/background.h"
#include "app/signal_watcher.h"
#include "app/signs.h"
#include "app/worker_journal.h"

namespace skyreel {

namespace {

/// The items of the box that chooses the time, and how many days they go back; 0: the latest run.
constexpr std::pair<const char*, int> kRanges[] = {
    {"Latest run", 0}, {"Last day", 1}, {"Last week", 7}, {"Last month", 31}};

/// The most files to fetch again at once: the run's plan looks at each.
constexpr std::size_t kMostAgain = 10'000;

const TListedFile& FileAt(const TFilesModel& model, int row) {
  return *model.Files()[static_cast<std::size_t>(row)];
}

}  // namespace

// --- The model -----------------------------------------------------------------------------------------

int TFilesModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(files_.size());
}

int TFilesModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : kFileColumns;
}

QVariant TFilesModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const TListedFile& file = FileAt(*this, index.row());
  const auto column = static_cast<TFileColumn>(index.column());
  const bool is_state = column == TFileColumn::State;
  switch (role) {
    case Qt::DisplayRole:
      return is_state ? QVariant() : file.Text(column);
    case Qt::AccessibleTextRole:
      return file.Text(column);
    case Qt::ToolTipRole:
      return column == TFileColumn::Name ? QString::fromStdString(file.Path.string()) : file.Text(column);
    case Qt::DecorationRole:
      return is_state ? SignIcon(SignOf(file.Outcome)) : QVariant();
    case Qt::TextAlignmentRole:
      return column == TFileColumn::Size ? int(Qt::AlignRight | Qt::AlignVCenter) : QVariant();
    default:
      return {};
  }
}

QVariant TFilesModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  constexpr const char* kTitles[kFileColumns] = {"State", "Image time", "Source",  "Product",
                                                 "Name",  "Size",       "Outcome", "Reason"};
  return kTitles[section];
}

void TFilesModel::SetFiles(TListedFiles files) {
  beginResetModel();
  files_ = std::move(files);
  endResetModel();
}

// --- The view ------------------------------------------------------------------------------------------

TFilesView::TFilesView(TSetup setup)
    : setup_(std::move(setup)),
      range_(new QComboBox),
      filter_(new QLineEdit),
      problems_(new QCheckBox("Only problems")),
      summary_(new QLabel),
      message_(new QLabel),
      table_(new QTableView) {
  setObjectName("FilesView");
  range_->setObjectName("ComboBoxFiles");
  range_->setAccessibleName("Files of");
  range_->setToolTip("Which files the table shows");
  for (const auto& [text, days] : kRanges) range_->addItem(text, days);
  filter_->setObjectName("EditFilesFilter");
  filter_->setAccessibleName("Filter");
  filter_->setPlaceholderText("Filter: words of any column");
  filter_->setClearButtonEnabled(true);
  problems_->setObjectName("CheckBoxFilesProblems");
  summary_->setObjectName("LabelFiles");
  message_->setObjectName("LabelFilesMessage");
  message_->setTextFormat(Qt::PlainText);
  message_->setWordWrap(true);
  message_->hide();
  BuildTable();
  AddActions();

  auto* const line = new QHBoxLayout;
  line->addWidget(range_);
  line->addWidget(filter_, 1);
  line->addWidget(problems_);
  line->addWidget(summary_);
  auto* const layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 2, 0, 0);
  layout->addLayout(line);
  layout->addWidget(message_);
  layout->addWidget(table_, 1);

  connect(range_, &QComboBox::activated, this, [this] { ReadAnew(); });
  connect(problems_, &QCheckBox::toggled, this, [this] { Refresh(); });
  timer_filter_.setSingleShot(true);
  timer_filter_.setInterval(100);
  connect(&timer_filter_, &QTimer::timeout, this, [this] { Refresh(); });
  connect(filter_, &QLineEdit::textChanged, this, [this] { timer_filter_.start(); });
  timer_refresh_.setInterval(1'000);
  connect(&timer_refresh_, &QTimer::timeout, this, [this] {
    if (isVisible()) Refresh();
  });
}

void TFilesView::BuildTable() {
  table_->setObjectName("TableFiles");
  table_->setAccessibleName("Files");
  table_->setModel(&model_);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setTabKeyNavigation(false);
  table_->setWordWrap(false);
  table_->setShowGrid(false);
  table_->setMinimumHeight(60);
  table_->setContextMenuPolicy(Qt::CustomContextMenu);
  table_->verticalHeader()->hide();
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table_->verticalHeader()->setMinimumSectionSize(1);
  table_->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
  QHeaderView& header = *table_->horizontalHeader();
  constexpr int kCharacters[kFileColumns] = {6, 17, 22, 14, 31, 8, 8, 20};
  for (int column = 0; column < kFileColumns; ++column)
    header.resizeSection(column, kCharacters[column] * fontMetrics().averageCharWidth() + 8);
  header.setStretchLastSection(true);
  header.setHighlightSections(false);
  header.setSectionsClickable(true);
  header.setSortIndicatorShown(true);
  header.setSortIndicatorClearable(true);
  header.setSortIndicator(-1, Qt::AscendingOrder);
  connect(&header, &QHeaderView::sortIndicatorChanged, this, [this] { Refresh(); });
  connect(table_, &QTableView::activated, this, [this] { OpenFile(); });
  connect(table_, &QTableView::customContextMenuRequested, this, &TFilesView::ShowMenu);
}

void TFilesView::AddActions() {
  const auto add = [this](const char* text, const QKeySequence& key, auto action) {
    auto* const added = new QAction(text, table_);
    added->setShortcut(key);
    added->setShortcutContext(Qt::WidgetShortcut);
    connect(added, &QAction::triggered, this, action);
    table_->addAction(added);
    return added;
  };
  open_ = add("&Open", {}, [this] { OpenFile(); });
  folder_ = add("Show in &folder", Qt::CTRL | Qt::Key_Return, [this] { OpenFolder(); });
  copy_path_ = add("&Copy path", QKeySequence::Copy,
                   [this] { CopyOfSelected([](const TJournalEntry& file) { return file.Path.string(); }); });
  copy_address_ = add("Copy &address", Qt::CTRL | Qt::SHIFT | Qt::Key_C,
                      [this] { CopyOfSelected([](const TJournalEntry& file) { return file.Address; }); });
  again_ = add("Fetch a&gain", Qt::Key_F5, [this] { FetchAgain(); });
}

void TFilesView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  // A month or a day may have gone by since.
  ReadAnew();
}

void TFilesView::SetTitles(TTitles titles) {
  titles_ = std::make_shared<TTitles>(std::move(titles));
  if (isVisible()) ReadAnew();
}

void TFilesView::SetRunning(bool running) {
  if (running) return timer_refresh_.start();
  timer_refresh_.stop();
  if (isVisible()) Refresh();
}

void TFilesView::Find() {
  filter_->setFocus();
  filter_->selectAll();
}

void TFilesView::ReadAnew() {
  forgets_ = true;
  Refresh();
}

void TFilesView::Refresh() {
  asks_next_ = reading_;
  if (reading_) return;
  reading_ = true;
  const int days = range_->currentData().toInt();
  const QHeaderView& header = *table_->horizontalHeader();
  const QStringList words = filter_->text().split(' ', Qt::SkipEmptyParts);
  TFileQuery query{.Journal = setup_.Journal,
                   .Titles = titles_,
                   .LatestRun = days == 0,
                   .Words = {words.begin(), words.end()},
                   .ProblemsAlone = problems_->isChecked(),
                   .SortColumn = header.sortIndicatorSection(),
                   .Descending = header.sortIndicatorOrder() == Qt::DescendingOrder};
  if (days > 0) query.Since = setup_.UtcNow() - std::chrono::days(days);
  if (!std::exchange(forgets_, false)) {
    query.Known = all_;
    query.KnownRun = run_;
    query.LastId = last_id_;
  }
  InBackground(
      this, [query = std::move(query)] { return ListFiles(query); },
      [this](TFileAnswer answer) {
        reading_ = false;
        if (answer.Busy) {
          QTimer::singleShot(kJournalRetry, this, [this] {
            if (isVisible()) Refresh();
          });
        }
        Show(std::move(answer));
        if (asks_next_) Refresh();
      });
}

void TFilesView::Show(TFileAnswer answer) {
  all_ = std::move(answer.All);
  run_ = answer.Run;
  last_id_ = answer.LastId;
  problem_ = answer.Problem;
  Tell(problem_);
  problems_count_ = static_cast<std::size_t>(
      std::ranges::count_if(all_, [](const auto& file) { return SignOf(file->Outcome) == TSign::Problem; }));
  if (answer.Shown != model_.Files()) {
    // Selection and place stay with their files.
    std::unordered_set<std::int64_t> selected;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
      selected.insert(FileAt(model_, index.row()).Id);
    const auto id_at = [this](int row) { return row < 0 ? 0 : FileAt(model_, row).Id; };
    const std::int64_t current = id_at(table_->currentIndex().row());
    // At the top, new files come into sight.
    const int top_row = table_->rowAt(0);
    const std::int64_t top = top_row <= 0 ? 0 : id_at(top_row);
    const int left = table_->horizontalScrollBar()->value();
    model_.SetFiles(std::move(answer.Shown));
    QItemSelection selection;
    int new_current = -1, new_top = -1, first_selected = -1;
    const int rows = top > 0 || current > 0 || !selected.empty() ? model_.rowCount() : 0;
    for (int row = 0; row < rows; ++row) {
      const std::int64_t id = id_at(row);
      if (id == current) new_current = row;
      if (id == top) new_top = row;
      // Neighbours make one range, since many ranges are slow.
      if (!selected.contains(id)) continue;
      if (first_selected < 0) first_selected = row;
      if (row + 1 < rows && selected.contains(id_at(row + 1))) continue;
      selection.select(model_.index(std::exchange(first_selected, -1), 0),
                       model_.index(row, kFileColumns - 1));
    }
    if (new_current >= 0)
      table_->selectionModel()->setCurrentIndex(model_.index(new_current, 0), QItemSelectionModel::NoUpdate);
    table_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (new_top >= 0) table_->scrollTo(model_.index(new_top, 0), QAbstractItemView::PositionAtTop);
    table_->horizontalScrollBar()->setValue(left);
  }
  ShowSummary();
}

void TFilesView::ShowSummary() {
  const QLocale numbers(QLocale::English);
  QString text = numbers.toString(qlonglong(all_.size())) + " files";
  if (model_.Files().size() != all_.size())
    text = numbers.toString(qlonglong(model_.Files().size())) + " of " + text;
  if (std::cmp_equal(all_.size(), kMostFiles)) text = "the newest " + text;
  if (problems_count_ > 0) text += ", " + numbers.toString(qlonglong(problems_count_)) + " with problems";
  summary_->setText(text);
}

void TFilesView::Tell(const std::string& text) {
  message_->setText(QString::fromStdString(text));
  message_->setVisible(!text.empty());
}

// --- What the user does with files ---------------------------------------------------------------------

std::vector<TJournalEntry> TFilesView::Selected() const {
  std::vector<TJournalEntry> files;
  for (const QModelIndex& index : table_->selectionModel()->selectedRows())
    files.push_back(FileAt(model_, index.row()));
  return files;
}

void TFilesView::CopyOfSelected(const std::function<std::string(const TJournalEntry&)>& text) const {
  QStringList lines;
  for (const TJournalEntry& file : Selected())
    if (const std::string line = text(file); !line.empty()) lines << QString::fromStdString(line);
  QGuiApplication::clipboard()->setText(lines.join('\n'));
}

void TFilesView::OpenFile() {
  const QModelIndex current = table_->currentIndex();
  if (current.isValid()) Open(FileAt(model_, current.row()).Path);
}

void TFilesView::OpenFolder() {
  const QModelIndex current = table_->currentIndex();
  if (current.isValid()) Open(FileAt(model_, current.row()).Path.parent_path());
}

void TFilesView::Open(const std::filesystem::path& path) {
  if (path.empty()) return Tell("This file has no place on the disk.");
  // The disk may be slow.
  const auto exists = [path] {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
  };
  InBackground(this, exists, [this, path](bool there) {
    if (!there) return Tell(path.string() + " is not there any more.");
    bool opened = false;
    const QUrl url = QUrl::fromLocalFile(QString::fromStdString(path.string()));
    WithSignalsLetThrough([&] { opened = QDesktopServices::openUrl(url); });
    Tell(opened ? problem_ : "No program opens " + path.string());
  });
}

std::string TFilesView::WhyNotAgain(const std::vector<TJournalEntry>& files) const {
  if (files.empty()) return "no file is selected";
  if (files.size() > kMostAgain) return "more than " + std::to_string(kMostAgain) + " files are selected";
  for (const TJournalEntry& file : files) {
    const std::string why = setup_.WhyNotAgain(file);
    if (!why.empty()) return file.Path.filename().string() + ": " + why;
  }
  return "";
}

void TFilesView::ShowMenu(const QPoint& at) {
  const std::string why = WhyNotAgain(Selected());
  again_->setEnabled(why.empty());
  again_->setToolTip(why.empty()
                         ? "Fetch the selected files anew; each old file stays until the new one is whole"
                         : QString::fromStdString("Not possible: " + why));
  auto* const menu = new QMenu(table_);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  menu->setToolTipsVisible(true);
  for (QAction* action : {open_, folder_, copy_path_, copy_address_, again_}) menu->addAction(action);
  menu->setDefaultAction(open_);
  // Its key says why, too, so it must not stay off.
  connect(
      menu, &QMenu::aboutToHide, again_, [this] { again_->setEnabled(true); }, Qt::QueuedConnection);
  menu->popup(table_->viewport()->mapToGlobal(at));
}

void TFilesView::FetchAgain() {
  const std::vector<TJournalEntry> files = Selected();
  const std::string why = WhyNotAgain(files);
  if (!why.empty()) return Tell("Not fetched again: " + why + ".");
  // The run waits, and the menu must be gone before it.
  QMetaObject::invokeMethod(
      this, [this, files] { setup_.FetchAgain(files); }, Qt::QueuedConnection);
}

}  // namespace skyreel
