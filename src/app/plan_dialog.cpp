#include "app/plan_dialog.h"

#include <QAbstractTableModel>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QVBoxLayout>
#include <map>
#include <system_error>

#include "catalogue/terminal_text.h"
#include "catalogue/volume.h"

namespace skyreel {

namespace {

namespace fs = std::filesystem;

/// The files of a plan; a plan may have many thousands.
class TPlanModel : public QAbstractTableModel {
 public:
  TPlanModel(QObject* parent, const TDescription& source, const TPlan& plan) : QAbstractTableModel(parent) {
    for (const TPlannedFile& file : plan.Files) {
      const TCombination& combination = plan.Combinations[file.Combination];
      rows_.push_back({StateText(file.State), SlotText(file.Slot),
                       QString::fromStdString(LocalPath(source, combination, file.Slot))});
    }
  }

  int rowCount(const QModelIndex& parent) const override {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
  }
  int columnCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : 3; }
  QVariant data(const QModelIndex& index, int role) const override {
    if (role != Qt::DisplayRole) return {};
    const TRow& row = rows_[static_cast<std::size_t>(index.row())];
    return index.column() == 0   ? QString(row.State)
           : index.column() == 1 ? QString::fromStdString(row.Slot)
                                 : row.File;
  }
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal) return {};
    return section == 0 ? "State" : section == 1 ? "Slot" : "File";
  }

 private:
  struct TRow {
    const char* State;
    std::string Slot;
    QString File;
  };
  std::vector<TRow> rows_;
};

/// "3 wanted, 12 present".
std::string CountsText(const TPlan& plan) {
  std::map<TPlanState, int> counts;
  for (const TPlannedFile& file : plan.Files) ++counts[file.State];
  std::string text;
  for (const auto& [state, count] : counts)
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + StateText(state);
  return text.empty() ? "No file is planned yet" : text;
}

/// The room on the disk of a folder that may not exist yet; empty when it is not known.
std::string FreeText(fs::path folder) {
  std::error_code error;
  while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
  const fs::space_info space = fs::space(folder, error);
  return error ? "" : SizeText(static_cast<std::int64_t>(space.available)) + " are free on the disk.";
}

std::string SummaryOf(const TWantedSource& wanted, const TPlan& plan, const fs::path& output) {
  std::string text = CountsText(plan) + ".\n";
  text += "To fetch: " + VolumeOf(wanted.Source, plan, wanted.Days).Text() + ". " + FreeText(output);
  if (!wanted.Days) text += "\nOf several slots, the older ones are tried only if the newest is not there.";
  if (plan.Lists.empty()) return text;
  text += "\nThe server must be asked first; its list says which pictures it has:";
  constexpr std::size_t kMostLists = 3;
  for (std::size_t i = 0; i < std::min(kMostLists, plan.Lists.size()); ++i)
    text += "\n" + plan.Lists[i].Address;
  if (plan.Lists.size() > kMostLists)
    text += "\nand " + std::to_string(plan.Lists.size() - kMostLists) + " more";
  return text;
}

}  // namespace

TPlanDialog::TPlanDialog(QWidget* parent, const TWantedSource& wanted, const TPlan& plan,
                         const fs::path& output)
    : QDialog(parent) {
  setObjectName("PlanDialog");
  setWindowTitle("Preview - " + QString::fromStdString(wanted.Source.Title));
  auto* summary = new QLabel(QString::fromStdString(SummaryOf(wanted, plan, output)));
  summary->setObjectName("LabelPlan");
  summary->setTextFormat(Qt::PlainText);
  summary->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  summary->setWordWrap(true);
  auto* table = new QTableView;
  table->setAccessibleName("Files of the next run");
  table->setModel(new TPlanModel(table, wanted.Source, plan));
  table->setSelectionBehavior(QAbstractItemView::SelectRows);
  table->setTabKeyNavigation(false);
  table->setWordWrap(false);
  table->verticalHeader()->hide();
  table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
  table->resizeColumnsToContents();
  table->horizontalHeader()->setStretchLastSection(true);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(summary);
  layout->addWidget(table, 1);
  layout->addWidget(buttons);
  resize(720, 420);
  table->setFocus();
}

}  // namespace skyreel
