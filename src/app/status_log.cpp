#include "app/status_log.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QFocusFrame>
#include <QHeaderView>
#include <QTableView>
#include <algorithm>

#include "app/signs.h"
#include "base/event.h"

namespace skyreel {

namespace {

constexpr std::size_t kLongestLine = 4'000;

/// The text as one line of the log.
std::string OneLine(const std::string& text) {
  std::string line = text.substr(0, kLongestLine);
  if (line.size() < text.size()) {
    // Not in the middle of a UTF-8 sequence.
    while (!line.empty() && (static_cast<unsigned char>(text[line.size()]) & 0xC0U) == 0x80U) line.pop_back();
    line += "...";
  }
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return line;
}

void CopySelected(const QTableView& view) {
  QModelIndexList selected = view.selectionModel()->selectedIndexes();
  std::ranges::sort(selected, {}, &QModelIndex::row);
  QStringList lines;
  for (const QModelIndex& index : selected) lines << index.data().toString();
  QGuiApplication::clipboard()->setText(lines.join('\n'));
}

}  // namespace

int TStatusLines::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant TStatusLines::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const auto row = static_cast<std::size_t>(index.row());
  const bool problem = problems_[row];
  switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
      return QString::fromStdString(lines_[row]);
    case Qt::DecorationRole:
      return problem ? SignIcon(TSign::Problem) : QVariant();
    case Qt::AccessibleTextRole:
      return (problem ? SignText(TSign::Problem) + ": " : "") + QString::fromStdString(lines_[row]);
    default:
      return {};
  }
}

void TStatusLines::Insert(std::size_t row, std::string line, bool problem) {
  beginInsertRows({}, static_cast<int>(row), static_cast<int>(row));
  lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(row), std::move(line));
  problems_.insert(problems_.begin() + static_cast<std::ptrdiff_t>(row), problem);
  endInsertRows();
}

void TStatusLines::ReplaceLast(std::string line, bool problem) {
  lines_.back() = std::move(line);
  problems_.back() = problem;
  const QModelIndex last = index(rowCount() - 1);
  emit dataChanged(last, last);
}

void TStatusLines::RemoveFirst(std::size_t count) {
  beginRemoveRows({}, 0, static_cast<int>(count) - 1);
  lines_.erase(lines_.begin(), lines_.begin() + static_cast<std::ptrdiff_t>(count));
  problems_.erase(problems_.begin(), problems_.begin() + static_cast<std::ptrdiff_t>(count));
  endRemoveRows();
}

TStatusLog::TStatusLog(QTableView& view, std::size_t kept) : view_(view), kept_(kept) {
  view_.setModel(&lines_);
  view_.horizontalHeader()->hide();
  view_.horizontalHeader()->setStretchLastSection(true);
  view_.verticalHeader()->hide();
  view_.verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  view_.verticalHeader()->setMinimumSectionSize(1);
  view_.verticalHeader()->setDefaultSectionSize(view_.fontMetrics().height() + 2);
  auto* copy = new QAction("&Copy", &view_);
  copy->setShortcut(QKeySequence::Copy);
  copy->setShortcutContext(Qt::WidgetShortcut);
  QObject::connect(copy, &QAction::triggered, &view_, [&view] { CopySelected(view); });
  view_.addAction(copy);
  // The newest line is selected with the focus or without.
  auto* frame = new QFocusFrame(&view_);
  QPalette colours = view_.palette();
  colours.setColor(QPalette::WindowText, colours.color(QPalette::Highlight));
  frame->setPalette(colours);
  QObject::connect(qApp, &QApplication::focusChanged, frame, [&view, frame](QWidget*, QWidget* now) {
    frame->setWidget(now == &view ? &view : nullptr);
  });
}

TStatusLog::~TStatusLog() {
  view_.setModel(nullptr);
}

void TStatusLog::Add(const std::string& text) {
  const std::string line = OneLine(text);
  Insert(Lines().size() - (begun_ ? 1 : 0), line);
  Fire(OnFinalLine, line);
}

void TStatusLog::Begin(const std::string& text) {
  Flush();
  Insert(Lines().size(), OneLine(text));
  begun_ = true;
}

void TStatusLog::End(const std::string& text, bool problem) {
  if (begun_) {
    lines_.ReplaceLast(OneLine(text), problem);
    return Flush();
  }
  Insert(Lines().size(), OneLine(text), problem);
  Fire(OnFinalLine, Lines().back());
}

void TStatusLog::Flush() {
  if (!begun_) return;
  begun_ = false;
  Fire(OnFinalLine, Lines().back());
}

void TStatusLog::Insert(std::size_t row, const std::string& line, bool problem) {
  lines_.Insert(row, line, problem);
  // Many at once, since it is slow to take lines from the front.
  if (Lines().size() > kept_ + kept_ / 10) {
    const std::size_t count = Lines().size() - kept_;
    lines_.RemoveFirst(count);
    dropped_ += count;
  }
  // Not through the view: it would extend the selection while the user holds Ctrl or Shift.
  const QModelIndex newest = lines_.index(lines_.rowCount() - 1);
  view_.selectionModel()->setCurrentIndex(newest, QItemSelectionModel::ClearAndSelect);
  view_.scrollTo(newest);
}

std::string TStatusLog::Report() const {
  std::string report;
  if (dropped_ > 0) report = "(" + std::to_string(dropped_) + " earlier lines are left out)\r\n";
  for (const std::string& line : lines_.Lines()) {
    report += line;
    report += "\r\n";
  }
  return report;
}

}  // namespace skyreel
