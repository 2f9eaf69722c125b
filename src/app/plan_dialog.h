#pragma once

#include <QDialog>
#include <filesystem>

#include "catalogue/described_run.h"

namespace skyreel {

/// Shows what the next run of a source would do: its files as a table, how many there are of each state, what
/// they may weigh, and the room on the disk. The dialog keeps nothing of its arguments.
class TPlanDialog : public QDialog {
 public:
  TPlanDialog(QWidget* parent, const TWantedSource& wanted, const TPlan& plan,
              const std::filesystem::path& output);
};

}  // namespace skyreel
