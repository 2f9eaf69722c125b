#include "app/plan_dialog.h"

#include <QAbstractTableModel>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QVBoxLayout>
#include <utility>

#include "app/background.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace {

/// The files of a plan; a plan may have many thousands.
class TPlanModel : public QAbstractTableModel {
 public:
  TPlanModel(QObject* parent, std::vector<TPreview::TRow> rows)
      : QAbstractTableModel(parent), rows_(std::move(rows)) {}

  int rowCount(const QModelIndex& parent) const override {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
  }
  int columnCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : 4; }
  QVariant data(const QModelIndex& index, int role) const override {
    if (role == Qt::TextAlignmentRole && index.column() == kSize)
      return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole) return {};
    const TPreview::TRow& row = rows_[static_cast<std::size_t>(index.row())];
    switch (index.column()) {
      case 0:
        return QString::fromStdString(row.State);
      case 1:
        return QString::fromStdString(row.Slot);
      case kSize:
        return row.Bytes ? QString::fromStdString(SizeText(*row.Bytes)) : QString();
      default:
        return QString::fromStdString(row.File);
    }
  }
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal) return {};
    constexpr const char* kTitles[] = {"State", "Slot", "Size", "File"};
    return kTitles[section];
  }

 private:
  static constexpr int kSize = 2;
  std::vector<TPreview::TRow> rows_;
};

}  // namespace

TPlanDialog::TPlanDialog(QWidget* parent, const QString& title, std::function<TPreview()> make)
    : QDialog(parent) {
  setObjectName("PlanDialog");
  setWindowTitle("Preview - " + title);
  auto* summary = new QLabel("Looking at the files on the disk…");
  summary->setObjectName("LabelPlan");
  summary->setTextFormat(Qt::PlainText);
  summary->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  summary->setWordWrap(true);
  auto* table = new QTableView;
  table->setAccessibleName("Files of the next run");
  table->setSelectionBehavior(QAbstractItemView::SelectRows);
  table->setTabKeyNavigation(false);
  table->setWordWrap(false);
  table->verticalHeader()->hide();
  table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
  table->horizontalHeader()->setStretchLastSection(true);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(summary);
  layout->addWidget(table, 1);
  layout->addWidget(buttons);
  resize(720, 420);
  table->setFocus();
  InBackground(this, std::move(make), [summary, table](TPreview preview) {
    summary->setText(QString::fromStdString(preview.Summary));
    table->setModel(new TPlanModel(table, std::move(preview.Rows)));
    table->resizeColumnsToContents();
  });
}

}  // namespace skyreel
