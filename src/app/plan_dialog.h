#pragma once

#include <QDialog>
#include <functional>

#include "app/preview.h"

namespace skyreel {

/// Shows what the next run of a source would do: its files as a table, and a summary.
class TPlanDialog : public QDialog {
 public:
  /// `make` runs on a worker thread: it may read the disk. It must not throw.
  TPlanDialog(QWidget* parent, const QString& title, std::function<TPreview()> make);
};

}  // namespace skyreel
