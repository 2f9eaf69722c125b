#include "app/coverage_view.h"

#include <QClipboard>
#include <QComboBox>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QSignalBlocker>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <numeric>
#include <system_error>

#include "app/background.h"
#include "app/signal_watcher.h"
#include "app/worker_journal.h"
#include "base/event.h"
#include "settings/persisted_controls.h"
#include "transfer/transfer_ledger.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

using TStates = std::vector<TCellState>;

const TStates kThere = {TCellState::Whole, TCellState::Cut};
const TStates kToFetch = {TCellState::Missing, TCellState::Cut, TCellState::Failed, TCellState::Unknown};

/// An icon of the legend. It is painted when it is shown, so it follows the palette.
class TLegendSign : public QWidget {
 public:
  TLegendSign(QWidget* parent, TCellState state) : QWidget(parent), state_(state) { setFixedSize(10, 12); }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
    PaintCell(painter, state_, rect(), palette());
  }

 private:
  const TCellState state_;
};

void FillCombo(QComboBox& combo, const std::vector<std::string>& texts, int current) {
  QStringList items, before;
  for (const std::string& text : texts) items += QString::fromStdString(text);
  for (int i = 0; i < combo.count(); ++i) before += combo.itemText(i);
  const QSignalBlocker no_choice(&combo);
  if (items != before) {
    // Otherwise an open list would close.
    combo.clear();
    combo.addItems(items);
  }
  combo.setCurrentIndex(current);
}

}  // namespace

TCoverageView::TCoverageView(TCoverageEnvironment environment, QWidget* parent)
    : QWidget(parent), environment_(std::move(environment)) {
  BuildControls();
  WireEvents();
  ShowCounts();
  ShowChoice();
}

void TCoverageView::BuildControls() {
  auto* const layout = new QVBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->setSpacing(4);
  auto* const top = new QHBoxLayout;
  layout->addLayout(top);
  const auto add_combo = [&](const char* name, const char* title) {
    auto* const combo = new QComboBox;
    combo->setObjectName(name);
    combo->setAccessibleName(title);
    combo->setToolTip(title);
    combo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    combo->setMinimumContentsLength(8);
    KeepFromWheel(*combo);
    top->addWidget(combo);
    return combo;
  };
  combo_source_ = add_combo("ComboBoxCoverageSource", "Source");
  combo_product_ = add_combo("ComboBoxCoverageProduct", "Product");
  combo_period_ = add_combo("ComboBoxCoveragePeriod", "Period");
  top->setStretch(0, 2);
  top->setStretch(1, 2);
  for (const auto& [text, days] : {std::pair("Last week", 7), {"Last month", 31}, {"Last year", 365}})
    combo_period_->addItem(text, days);
  table_ = new TCoverageTable(model_, this);
  table_->setObjectName("TableCoverage");
  fetch_ = AddAction("Fetch these", "ActionFetchThese", {}, &TCoverageView::FetchThese);
  play_ = AddAction("Play these", "ActionPlayThese", {}, &TCoverageView::PlayThese);
  folder_ = AddAction("Show in folder", "ActionShowInFolder", {}, &TCoverageView::ShowInFolder);
  copy_ = AddAction("Copy as text", "ActionCopyAsText", QKeySequence::Copy, &TCoverageView::CopyAsText);
  AddAction("Read again", "ActionReadAgain", QKeySequence::Refresh, &TCoverageView::Reload);
  for (QAction* action : {fetch_, play_, folder_, copy_}) {
    auto* const button = new QToolButton;
    button->setDefaultAction(action);
    button->setFocusPolicy(Qt::StrongFocus);
    top->addWidget(button);
  }
  layout->addWidget(table_, 1);
  auto* const legend = new QHBoxLayout;
  layout->addLayout(legend);
  for (std::size_t i = 0; i < kCellStates; ++i) {
    legend->addWidget(new TLegendSign(this, static_cast<TCellState>(i)));
    legend->addWidget(counts_[i] = new QLabel);
    legend->addSpacing(6);
  }
  legend->addStretch();
  line_ = new QLabel;
  line_->setObjectName("LabelCoverage");
  line_->setTextFormat(Qt::PlainText);
  // A long reason must not make the window wider.
  line_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  layout->addWidget(line_);
  setFocusProxy(table_);
  timer_reload_.setSingleShot(true);
  timer_reload_.setInterval(2'000);
}

QAction* TCoverageView::AddAction(const QString& text, const char* name, const QKeySequence& key,
                                  void (TCoverageView::*action)()) {
  auto* const added = new QAction(text, this);
  added->setObjectName(name);
  added->setShortcut(key);
  added->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(added, &QAction::triggered, this, action);
  table_->addAction(added);
  table_->setContextMenuPolicy(Qt::ActionsContextMenu);
  return added;
}

void TCoverageView::WireEvents() {
  connect(combo_source_, &QComboBox::activated, this, [this] {
    chosen_source_ = Source()->Id;
    product_.clear();
    Reload();
  });
  connect(combo_product_, &QComboBox::activated, this, [this] {
    product_ = combo_product_->currentText().toStdString();
    Reload();
  });
  connect(combo_period_, &QComboBox::activated, this, &TCoverageView::Reload);
  connect(&timer_reload_, &QTimer::timeout, this, &TCoverageView::Reload);
  table_->OnSelect = [this] { ShowChoice(); };
  table_->OnScroll = [this] { CheckNextDay(); };
  table_->OnShow = [this](const TCoverageCell& cell) {
    for (const TJournalEntry& picture : Chosen({cell}, kThere)) Fire(OnShowPicture, picture);
  };
}

void TCoverageView::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  SourcesChanged();
}

void TCoverageView::SourcesChanged() {
  if (!isVisible()) return;
  FillSources();
  Reload();
}

void TCoverageView::FillSources() {
  sources_.clear();
  std::vector<std::string> titles;
  int current = 0;
  for (TCoverageSource& source : environment_.Sources()) {
    if (source.Id == chosen_source_) current = static_cast<int>(sources_.size());
    titles.push_back(source.Title);
    sources_.push_back(std::make_shared<TCoverageSource>(std::move(source)));
  }
  FillCombo(*combo_source_, titles, sources_.empty() ? -1 : current);
}

const TCoverageSource* TCoverageView::Source() const {
  const int row = combo_source_->currentIndex();
  return row < 0 ? nullptr : sources_[static_cast<std::size_t>(row)].get();
}

void TCoverageView::Reload() {
  timer_reload_.stop();
  if (!isVisible()) return ShowChoice();
  if (!Source()) {
    load_again_ = loading_;
    return Show({});
  }
  if (std::exchange(loading_, true)) {
    load_again_ = true;
    return;
  }
  ShowChoice();
  InBackground(
      this,
      [source = sources_[static_cast<std::size_t>(combo_source_->currentIndex())], environment = environment_,
       now = environment_.UtcNow(), product = product_,
       days = combo_period_->currentData().toInt()] { return Load(source, environment, now, product, days); },
      [this](TLoaded loaded) {
        loading_ = false;
        if (std::exchange(load_again_, false)) return Reload();
        Show(std::move(loaded));
      });
}

TCoverageView::TLoaded TCoverageView::Load(const std::shared_ptr<const TCoverageSource>& source,
                                           const TCoverageEnvironment& environment, TDateTime now,
                                           std::string product, int days) {
  TLoaded loaded{.Source = source, .Products = source->Products(), .Product = std::move(product)};
  if (std::ranges::find(loaded.Products, loaded.Product) == loaded.Products.end())
    loaded.Product = loaded.Products.empty() ? "" : loaded.Products.front();
  TCoverageRequest request{.Now = now, .Days = days, .Output = source->Output};
  request.Expected = source->Expect(loaded.Product, now, days);
  TWorkerJournal worker(environment.JournalFile);
  TJournal& journal = worker.Journal;
  journal.SetOnProblem([&](const std::string& text) { loaded.Problem = text; });
  if (journal.FileExists()) {
    request.Tries =
        journal.LastTries(source->Id, loaded.Product, now.Midnight() - std::chrono::days(days - 1));
  }
  journal.SetOnProblem({});
  for (const fs::path& path : TTransferLedger::ToRead(environment.LedgerFile).Noted())
    request.Noted.insert(path.string());
  loaded.Coverage = MakeCoverage(std::move(request));
  return loaded;
}

void TCoverageView::Show(TLoaded loaded) {
  const auto current = std::ranges::find(loaded.Products, loaded.Product);
  FillCombo(*combo_product_, loaded.Products, static_cast<int>(current - loaded.Products.begin()));
  // A source without a choice has one product without a name.
  combo_product_->setVisible(loaded.Products.size() > 1 || !loaded.Product.empty());
  product_ = shown_product_ = loaded.Product;
  shown_source_ = loaded.Source;
  ++version_;
  model_.Show(std::move(loaded.Coverage));
  ShowCounts();
  ShowChoice();
  if (!loaded.Problem.empty()) line_->setText(QString::fromStdString(loaded.Problem));
  CheckNextDay();
}

void TCoverageView::CheckNextDay() {
  if (checking_ || loading_ || model_.columnCount() == 0) return;
  const int last = table_->rowAt(table_->viewport()->height() - 1);
  const int end = last < 0 ? model_.rowCount() : last + 1;
  int row = std::max(table_->rowAt(0), 0);
  while (row < end && model_.Day(row).Checked) ++row;
  if (row >= end) return;
  checking_ = true;
  InBackground(
      this,
      [day = model_.Day(row), output = model_.Coverage().Output,
       source = shown_source_->Description]() mutable {
        CheckFiles(day, output, source.get());
        return day;
      },
      [this, row, version = version_](TCoverageDay day) {
        checking_ = false;
        if (version == version_) model_.Replace(row, std::move(day));
        ShowCounts();
        ShowChoice();
        CheckNextDay();
      });
}

void TCoverageView::FileDone(const std::string& source, const std::string& product,
                             const TSlotOutcome& tried) {
  if (!shown_source_ || source != shown_source_->Id || product != shown_product_) return;
  ++version_;
  if (!model_.Add(tried)) {
    if (!timer_reload_.isActive()) timer_reload_.start();
    return;
  }
  ShowCounts();
  CheckNextDay();
}

void TCoverageView::RunChanged() {
  Reload();
  ShowChoice();
}

void TCoverageView::ShowCounts() {
  const std::array<int, kCellStates> counts = model_.Coverage().Counts();
  for (std::size_t i = 0; i < kCellStates; ++i) {
    counts_[i]->setText(QString("%1 %L2").arg(CellStateText(static_cast<TCellState>(i))).arg(counts[i]));
  }
}

void TCoverageView::ShowChoice() {
  const std::array<int, kCellStates> counts = table_->ChosenCounts();
  const auto chosen = [&counts](const TStates& states) {
    int sum = 0;
    for (const TCellState state : states) sum += counts.at(static_cast<std::size_t>(state));
    return sum;
  };
  const int all = std::accumulate(counts.begin(), counts.end(), 0);
  const std::string why_not = WhyNotFetch(chosen(kToFetch));
  fetch_->setEnabled(why_not.empty());
  fetch_->setToolTip(why_not.empty() ? fetch_->text() : QString::fromStdString("Not now: " + why_not));
  play_->setEnabled(OnPlay && chosen(kThere) > 0);
  folder_->setEnabled(Source() != nullptr);
  copy_->setEnabled(all > 0);
  QString text;
  if (!Source()) {
    text = "No source has run yet, and none is ticked.";
  } else if (loading_ && model_.rowCount() == 0) {
    text = "Looking at the files on the disk…";
  } else if (model_.columnCount() == 0) {
    text =
        "No slot is known yet. Choose what to fetch, or run this source: only the server may tell the slots.";
  } else if (table_->currentIndex().isValid()) {
    text = model_.data(table_->currentIndex(), Qt::AccessibleTextRole).toString();
    if (all > 1) text = QString("%L1 slots are selected; ").arg(all) + text;
  }
  line_->setText(text);
}

std::string TCoverageView::WhyNotFetch(int files) const {
  if (!OnFetch || files == 0) return "no chosen slot lacks a file that is due";
  if (!environment_.WhyNotFetch) return "";
  // The slots of one product differ in nothing that matters here.
  return environment_.WhyNotFetch(Chosen(table_->ChosenCells(), kToFetch).front());
}

std::vector<TJournalEntry> TCoverageView::Chosen(const std::vector<TCoverageCell>& cells,
                                                 const TStates& states) const {
  std::vector<TJournalEntry> chosen;
  for (const TCoverageCell& cell : cells) {
    if (std::ranges::find(states, cell.State) == states.end()) continue;
    TJournalEntry& entry = chosen.emplace_back();
    entry.Source = shown_source_->Id;
    entry.Product = shown_product_;
    entry.SlotTime = cell.Slot;
    entry.Address = cell.Address;
    if (!cell.Path.empty())
      entry.Path = fs::absolute(model_.Coverage().Output / cell.Path).lexically_normal();
  }
  return chosen;
}

void TCoverageView::FetchThese() {
  Fire(OnFetch, Chosen(table_->ChosenCells(), kToFetch));
}

void TCoverageView::PlayThese() {
  Fire(OnPlay, Chosen(table_->ChosenCells(), kThere));
}

void TCoverageView::ShowInFolder() {
  fs::path folder = model_.Coverage().Output;
  for (const TCoverageCell& cell : table_->ChosenCells())
    if (!cell.Path.empty()) folder = (model_.Coverage().Output / cell.Path).parent_path();
  std::error_code error;
  while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
  bool opened = false;
  const QUrl url = QUrl::fromLocalFile(QString::fromStdString(folder.string()));
  WithSignalsLetThrough([&] { opened = QDesktopServices::openUrl(url); });
  if (!opened) line_->setText("No program opens the folder " + url.toLocalFile());
}

void TCoverageView::CopyAsText() {
  QStringList lines;
  for (const int row : table_->ChosenRows()) lines += QString::fromStdString(DayText(model_.Day(row)));
  QGuiApplication::clipboard()->setText(lines.join('\n'));
}

}  // namespace skyreel
