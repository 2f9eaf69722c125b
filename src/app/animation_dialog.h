#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QThreadPool>
#include <QTimer>
#include <memory>
#include <vector>

#include "app/animation_export.h"

namespace skyreel {

/// Asks how to save an animation, and saves it.
class TAnimationDialog : public QDialog {
 public:
  /// `files` holds at least one file, in the order of time. `ffmpeg`: see TAnimationOrder.
  TAnimationDialog(QWidget* parent, std::vector<TFrameFile> files, TAnimationStyle style,
                   const std::string& ffmpeg = FindFfmpeg());
  ~TAnimationDialog() override;

  /// Stops the saving, or closes the dialog.
  void reject() override;

 private:
  void Browse();
  void Save();
  void End(const TAnimationResult& result);
  void SetSaving(bool saving);

  TAnimationOrder order_;
  std::shared_ptr<TAnimationProgress> progress_;  ///< null while nothing is saved
  QThreadPool pool_;                              ///< saving takes minutes, and others need the common one
  QTimer timer_;

  QLineEdit* const file_;
  QPushButton* const browse_;
  QComboBox* const size_;
  QCheckBox* const caption_;
  QProgressBar* const bar_;
  QLabel* const message_;
  QDialogButtonBox* const buttons_;
};

}  // namespace skyreel
