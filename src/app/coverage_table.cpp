#include "app/coverage_table.h"

#include <QAbstractItemDelegate>
#include <QGuiApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <array>
#include <set>

#include "base/event.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace {

constexpr int kNarrowest = 5, kWidest = 22;

bool HasSeconds(TDateTime time) {
  return time != time.RoundedDown(std::chrono::minutes(1));
}

QString TimeText(TDateTime time) {
  return QString::fromStdString(FormatDateTime(HasSeconds(time) ? "hh:nn:ss" : "hh:nn", time));
}

QString CellText(const TCoverageCell& cell) {
  if (cell.Slot.IsZero()) return "";
  QString text = QString::fromStdString(FormatDateTime("yyyy-mm-dd ", cell.Slot)) + TimeText(cell.Slot) +
                 " UTC, " + CellStateText(cell.State);
  if (cell.Size >= 0) text += ", " + QString::fromStdString(SizeText(cell.Size));
  if (!cell.Reason.empty()) text += ": " + QString::fromStdString(cell.Reason);
  return text;
}

/// Draws the cells from pictures that it keeps.
class TCellDelegate : public QAbstractItemDelegate {
 public:
  TCellDelegate(QObject* parent, const TCoverageModel& model)
      : QAbstractItemDelegate(parent), model_(model) {}

  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    const TCoverageCell& cell = model_.At(index.row(), index.column());
    if (cell.Slot.IsZero()) return;
    KeepPictures(option, painter->device()->devicePixelRatioF());
    const bool selected = option.state & QStyle::State_Selected;
    // The view has filled a selected cell with the full highlight, on which the signs are hard to see.
    if (selected) painter->fillRect(option.rect, option.palette.base());
    painter->drawPixmap(option.rect.topLeft(), pictures_[static_cast<std::size_t>(cell.State)]);
    if (selected) {
      QColor pale = option.palette.color(QPalette::Highlight);
      pale.setAlpha(110);
      painter->fillRect(option.rect, pale);
    }
    if (option.state & QStyle::State_HasFocus) {
      painter->setPen(QPen(option.palette.color(QPalette::Text), 2));
      painter->drawRect(option.rect.adjusted(1, 1, -1, -1));
    }
  }
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override {
    return option.rect.size();
  }

 private:
  /// Makes the pictures anew for another size, screen or palette.
  void KeepPictures(const QStyleOptionViewItem& option, qreal scale) const {
    if (size_ == option.rect.size() && scale_ == scale && palette_ == option.palette.cacheKey()) return;
    size_ = option.rect.size();
    scale_ = scale;
    palette_ = option.palette.cacheKey();
    for (std::size_t i = 0; i < pictures_.size(); ++i) {
      QPixmap picture(size_ * scale);
      picture.setDevicePixelRatio(scale);
      picture.fill(Qt::transparent);
      QPainter painter(&picture);
      PaintCell(painter, static_cast<TCellState>(i), QRectF({}, size_), option.palette);
      painter.end();
      pictures_[i] = picture;
    }
  }

  const TCoverageModel& model_;
  mutable std::array<QPixmap, kCellStates> pictures_;
  mutable QSize size_;
  mutable qreal scale_ = 0;
  mutable qint64 palette_ = 0;
};

/// Shows the hours, each at its first slot, as far as there is room. Its sections are narrower than a text.
class THourHeader : public QHeaderView {
 public:
  THourHeader(QWidget* parent, const TCoverageModel& model)
      : QHeaderView(Qt::Horizontal, parent), model_(model) {
    setSectionResizeMode(QHeaderView::Fixed);
    setMinimumSectionSize(1);
  }
  QSize sizeHint() const override { return {0, fontMetrics().height() + 4}; }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(viewport());
    painter.fillRect(viewport()->rect(), palette().window());
    painter.setPen(palette().color(QPalette::WindowText));
    const auto& times = model_.Coverage().Times;
    const auto hour = [&times](int column) {
      return column < 0 ? -1
                        : static_cast<int>(times[static_cast<std::size_t>(column)] / std::chrono::hours(1));
    };
    int free_from = viewport()->rect().left();
    for (int column = 0; column < count(); ++column) {
      if (!times.empty() && hour(column) == hour(column - 1)) continue;
      const QString text = times.empty() ? QString::number(column + 1)
                                         : QString("%1").arg(hour(column), 2, 10, QLatin1Char('0'));
      const int left = sectionViewportPosition(column);
      // Whether one has room does not depend on how far the table is scrolled.
      if (left + offset() < free_from) continue;
      painter.drawText(QRect(left, 0, fontMetrics().horizontalAdvance(text) + 2, height()),
                       Qt::AlignLeft | Qt::AlignVCenter, text);
      free_from = left + offset() + fontMetrics().horizontalAdvance(text) + 6;
    }
  }

 private:
  const TCoverageModel& model_;
};

}  // namespace

void PaintCell(QPainter& painter, TCellState state, const QRectF& place, const QPalette& palette) {
  const QColor base = palette.color(QPalette::Base), text = palette.color(QPalette::Text);
  const bool dark = base.lightness() < text.lightness();
  const QColor green = dark ? QColor(0x4c, 0xb8, 0x6c) : QColor(0x2e, 0x8b, 0x4a);
  const QColor amber = dark ? QColor(0xf0, 0xb0, 0x40) : QColor(0xc7, 0x80, 0x00);
  const QColor red = dark ? QColor(0xff, 0x6b, 0x6b) : QColor(0xc8, 0x28, 0x2c);
  const QColor grey((text.red() + base.red()) / 2, (text.green() + base.green()) / 2,
                    (text.blue() + base.blue()) / 2);
  const QRectF box = place.adjusted(0.5, 0.5, -0.5, -0.5), inner = place.adjusted(1.5, 1.5, -1.5, -1.5);
  const QPointF middle = place.center();
  const auto fill = [&](const QPolygonF& shape, const QColor& colour) {
    QPainterPath path;
    path.addPolygon(shape);
    painter.fillPath(path, colour);
  };
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(Qt::NoBrush);
  switch (state) {
    case TCellState::Whole:
      painter.fillRect(box, green);
      break;
    case TCellState::Cut:  // half full
      fill(QPolygonF({box.topLeft(), box.bottomRight(), box.bottomLeft()}), amber);
      painter.setPen(amber);
      painter.drawRect(box);
      break;
    case TCellState::Missing:  // empty
      painter.setPen(QPen(red, 1));
      painter.drawRect(box.adjusted(0.5, 0.5, -0.5, -0.5));
      break;
    case TCellState::NotYet:
      painter.setPen(Qt::NoPen);
      painter.setBrush(grey);
      painter.drawEllipse(middle, 1.5, 1.5);
      break;
    case TCellState::Failed:
      painter.setPen(QPen(red, 1.6));
      painter.drawLine(inner.topLeft(), inner.bottomRight());
      painter.drawLine(inner.topRight(), inner.bottomLeft());
      break;
    case TCellState::NotOffered:
      painter.setPen(QPen(grey, 1));
      painter.drawLine(QPointF(middle.x() - 1.5, middle.y()), QPointF(middle.x() + 1.5, middle.y()));
      break;
    case TCellState::Unknown:  // striped
      painter.setPen(QPen(grey, 1));
      for (qreal y = box.top() + 1; y < box.bottom(); y += 3)
        painter.drawLine(QPointF(box.left(), y), QPointF(box.right(), y));
      break;
  }
}

// --- The model ---------------------------------------------------------------------------------------------

int TCoverageModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(coverage_.Days.size());
}

int TCoverageModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(coverage_.Columns());
}

QVariant TCoverageModel::data(const QModelIndex& index, int role) const {
  if (role != Qt::ToolTipRole && role != Qt::AccessibleTextRole) return {};
  return CellText(At(index.row(), index.column()));
}

QVariant TCoverageModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (role != Qt::DisplayRole) return {};
  if (orientation == Qt::Vertical)
    return QString::fromStdString(FormatDateTime("yyyy-mm-dd", Day(section).Day));
  if (coverage_.Times.empty()) return section + 1;
  return TimeText(TDateTime() + coverage_.Times[static_cast<std::size_t>(section)]);
}

Qt::ItemFlags TCoverageModel::flags(const QModelIndex& index) const {
  if (At(index.row(), index.column()).Slot.IsZero()) return Qt::NoItemFlags;
  return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

void TCoverageModel::Show(TCoverage coverage) {
  const bool same =
      !coverage.Days.empty() && coverage.Columns() == coverage_.Columns() &&
      coverage.Times == coverage_.Times &&
      std::ranges::equal(coverage.Days, coverage_.Days, {}, &TCoverageDay::Day, &TCoverageDay::Day);
  if (!same) beginResetModel();
  coverage_ = std::move(coverage);
  if (!same) return endResetModel();
  if (columnCount() > 0) emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
}

void TCoverageModel::Replace(int row, TCoverageDay day) {
  coverage_.Days[static_cast<std::size_t>(row)] = std::move(day);
  emit dataChanged(index(row, 0), index(row, columnCount() - 1));
}

bool TCoverageModel::Add(const TSlotOutcome& tried) {
  for (int row = 0; row < rowCount(); ++row) {
    if (Day(row).Day != tried.SlotTime.Midnight()) continue;
    TCoverageDay day = Day(row);
    const auto cell = std::ranges::find(day.Cells, tried.SlotTime, &TCoverageCell::Slot);
    if (cell == day.Cells.end()) return false;
    const bool was_there = cell->State == TCellState::Whole || cell->State == TCellState::Cut;
    if (!tried.Path.empty()) cell->Path = tried.Path.string();
    AddTry(*cell, tried, was_there || tried.Outcome <= TJournalOutcome::Present);
    day.Checked = false;
    Replace(row, std::move(day));
    return true;
  }
  return false;
}

// --- The table ---------------------------------------------------------------------------------------------

TCoverageTable::TCoverageTable(TCoverageModel& model, QWidget* parent) : QTableView(parent), model_(model) {
  setHorizontalHeader(new THourHeader(this, model));
  setItemDelegate(new TCellDelegate(this, model));
  setModel(&model);
  setAccessibleName("Coverage");
  setShowGrid(false);
  setTabKeyNavigation(false);
  setCornerButtonEnabled(false);
  setHorizontalScrollMode(ScrollPerPixel);
  verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  verticalHeader()->setMinimumSectionSize(1);
  verticalHeader()->setHighlightSections(false);
  FitCells();
  connect(this, &QAbstractItemView::clicked, this, [this](const QModelIndex& index) {
    const bool selects = QGuiApplication::keyboardModifiers() & (Qt::ShiftModifier | Qt::ControlModifier);
    if (!selects) Fire(OnShow, model_.At(index.row(), index.column()));
  });
  connect(&model, &QAbstractItemModel::modelReset, this, [this] { FitCells(); });
}

QModelIndexList TCoverageTable::Chosen() const {
  const QModelIndexList selected = selectionModel()->selectedIndexes();
  return selected.isEmpty() && currentIndex().isValid() ? QModelIndexList{currentIndex()} : selected;
}

std::vector<TCoverageCell> TCoverageTable::ChosenCells() const {
  std::vector<TCoverageCell> cells;
  for (const QModelIndex& index : Chosen()) {
    const TCoverageCell& cell = model_.At(index.row(), index.column());
    if (!cell.Slot.IsZero()) cells.push_back(cell);
  }
  std::ranges::sort(cells, {}, &TCoverageCell::Slot);
  return cells;
}

std::array<int, kCellStates> TCoverageTable::ChosenCounts() const {
  std::array<int, kCellStates> counts{};
  for (const QModelIndex& index : Chosen()) {
    const TCoverageCell& cell = model_.At(index.row(), index.column());
    if (!cell.Slot.IsZero()) ++counts.at(static_cast<std::size_t>(cell.State));
  }
  return counts;
}

std::vector<int> TCoverageTable::ChosenRows() const {
  std::set<int> rows;
  for (const QModelIndex& index : Chosen()) rows.insert(index.row());
  return {rows.begin(), rows.end()};
}

QModelIndex TCoverageTable::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) {
  if (action == MovePageUp) action = MoveUp;
  if (action == MovePageDown) action = MoveDown;
  return QTableView::moveCursor(action, modifiers);
}

void TCoverageTable::keyPressEvent(QKeyEvent* event) {
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (!enter || !currentIndex().isValid()) return QTableView::keyPressEvent(event);
  Fire(OnShow, model_.At(currentIndex().row(), currentIndex().column()));
}

void TCoverageTable::FitCells() {
  const int columns = std::max(model_.columnCount(), 1);
  horizontalHeader()->setDefaultSectionSize(std::clamp(viewport()->width() / columns, kNarrowest, kWidest));
  QFont small = font();
  small.setPointSizeF(small.pointSizeF() * 0.85);
  for (QHeaderView* header : {horizontalHeader(), verticalHeader()}) header->setFont(small);
  verticalHeader()->setDefaultSectionSize(QFontMetrics(small).height());
}

void TCoverageTable::resizeEvent(QResizeEvent* event) {
  QTableView::resizeEvent(event);
  FitCells();
  Fire(OnScroll);
}

void TCoverageTable::changeEvent(QEvent* event) {
  QTableView::changeEvent(event);
  if (event->type() == QEvent::FontChange) FitCells();
}

void TCoverageTable::scrollContentsBy(int dx, int dy) {
  QTableView::scrollContentsBy(dx, dy);
  // The labels are painted across the sections.
  if (dx != 0) horizontalHeader()->viewport()->update();
  if (dy != 0) Fire(OnScroll);
}

void TCoverageTable::selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) {
  QTableView::selectionChanged(selected, deselected);
  Fire(OnSelect);
}

void TCoverageTable::currentChanged(const QModelIndex& current, const QModelIndex& previous) {
  QTableView::currentChanged(current, previous);
  Fire(OnSelect);
}

}  // namespace skyreel
