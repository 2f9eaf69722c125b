#include "app/animation_dialog.h"

#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QStandardPaths>
#include <utility>

#include "app/background.h"
#include "base/files.h"
#include "base/text.h"

namespace skyreel {

TAnimationDialog::TAnimationDialog(QWidget* parent, std::vector<TFrameFile> files, TAnimationStyle style,
                                   const std::string& ffmpeg)
    : QDialog(parent),
      file_(new QLineEdit),
      browse_(new QPushButton("&Browse…")),
      size_(new QComboBox),
      caption_(new QCheckBox("Time and &credit in each picture")),
      bar_(new QProgressBar),
      message_(new QLabel),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel)) {
  setObjectName("AnimationDialog");
  setWindowTitle("Save animation");
  order_.Files = std::move(files);
  order_.Style = style;
  order_.Ffmpeg = ffmpeg;
  const auto time = [](const TFrameFile& file) {
    return QString::fromStdString(FormatDateTime("yyyy-mm-dd hh:nn' UTC'", file.SlotTime));
  };
  auto* what = new QLabel(QString::fromStdString(Count(std::ssize(order_.Files), "picture")) + " from " +
                          time(order_.Files.front()) + " to " + time(order_.Files.back()) + ", " +
                          QString::number(style.FramesPerSecond) + " a second");
  file_->setObjectName("EditAnimationFile");
  QString folder = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
  if (!QDir(folder).exists()) folder = QDir::homePath();
  const char* const extension = ffmpeg.empty() ? ".gif" : ".mp4";
  const std::string name = FormatDateTime("'animation-'yyyy-mm-dd-hhnn", order_.Files.back().SlotTime);
  file_->setText(QDir(folder).filePath(QString::fromStdString(name + extension)));
  size_->setObjectName("ComboAnimationSize");
  for (const int side : {480, 720, 1080, 1440, 2160})
    size_->addItem(QString("at most %1 × %1 pixels").arg(side), side);
  size_->addItem("as large as the pictures", TAnimationOrder::kMostSide);
  size_->setCurrentIndex(size_->findData(order_.LongestSide));
  caption_->setObjectName("CheckAnimationCaption");
  caption_->setChecked(order_.Caption);
  bar_->setObjectName("ProgressAnimation");
  bar_->setRange(0, static_cast<int>(order_.Files.size()));
  bar_->setFormat("%v of %m pictures");
  message_->setObjectName("LabelAnimationMessage");
  message_->setTextFormat(Qt::PlainText);
  message_->setWordWrap(true);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  if (ffmpeg.empty()) message_->setText(QString(kNoFfmpegText) + ".");
  timer_.setInterval(100);

  auto* line = new QHBoxLayout;
  line->addWidget(file_, 1);
  line->addWidget(browse_);
  auto* form = new QFormLayout(this);
  form->addRow(what);
  form->addRow("&File:", line);
  qobject_cast<QLabel*>(form->labelForField(line))->setBuddy(file_);
  form->addRow("&Size:", size_);
  form->addRow(caption_);
  form->addRow(bar_);
  form->addRow(message_);
  form->addRow(buttons_);
  resize(560, sizeHint().height());
  connect(browse_, &QPushButton::clicked, this, [this] { Browse(); });
  connect(buttons_, &QDialogButtonBox::accepted, this, [this] { Save(); });
  connect(buttons_, &QDialogButtonBox::rejected, this, [this] { reject(); });
  timer_.callOnTimeout([this] {
    if (!progress_) return;
    bar_->setValue(progress_->Frames);
    if (progress_->Frames == bar_->maximum()) message_->setText("Finishing the file…");
  });
  SetSaving(false);
}

TAnimationDialog::~TAnimationDialog() {
  if (progress_) progress_->Stop = true;
}

void TAnimationDialog::reject() {
  if (!progress_) return QDialog::reject();
  progress_->Stop = true;
  message_->setText("Stopping…");
}

void TAnimationDialog::Browse() {
  const QString formats = order_.Ffmpeg.empty() ? "GIF (*.gif)" : "MP4 (*.mp4);;WebM (*.webm);;GIF (*.gif)";
  QFileDialog dialog(this, "Save animation", file_->text(), formats);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  // Save asks before it replaces a file.
  dialog.setOption(QFileDialog::DontConfirmOverwrite);
  const auto take_suffix = [&dialog](const QString& filter) {
    dialog.setDefaultSuffix(filter.section("*.", 1).chopped(1));
  };
  connect(&dialog, &QFileDialog::filterSelected, take_suffix);
  take_suffix(dialog.selectedNameFilter());
  if (dialog.exec() == QDialog::Accepted) file_->setText(dialog.selectedFiles().value(0));
}

void TAnimationDialog::Save() {
  const QString name = file_->text().trimmed();
  if (name.isEmpty()) return message_->setText("Please name the file.");
  order_.Output = QDir::home().absoluteFilePath(name).toStdString();
  order_.LongestSide = size_->currentData().toInt();
  order_.Caption = caption_->isChecked();
  if (FileSizeOf(order_.Output) >= 0 &&
      QMessageBox::question(this, "Save animation", name + " is there already. Replace it?") !=
          QMessageBox::Yes)
    return;
  progress_ = std::make_shared<TAnimationProgress>();
  message_->clear();
  SetSaving(true);
  InBackground(
      this, &pool_, [order = order_, progress = progress_] { return SaveAnimation(order, progress); },
      [this](const TAnimationResult& result) { End(result); });
}

void TAnimationDialog::End(const TAnimationResult& result) {
  progress_.reset();
  SetSaving(false);
  if (result.Stopped) return message_->setText("Stopped. No file was written.");
  if (!result.Problem.empty()) return message_->setText(QString::fromStdString(result.Problem) + ".");
  message_->setText("Saved: " + QString::fromStdString(SavedText(result)) + ".");
  buttons_->button(QDialogButtonBox::Cancel)->setText("Close");
}

void TAnimationDialog::SetSaving(bool saving) {
  for (QWidget* widget : std::initializer_list<QWidget*>{file_, browse_, size_, caption_,
                                                         buttons_->button(QDialogButtonBox::Save)})
    widget->setEnabled(!saving);
  bar_->setVisible(saving);
  bar_->setValue(0);
  buttons_->button(QDialogButtonBox::Cancel)->setText("Cancel");
  if (saving)
    timer_.start();
  else
    timer_.stop();
}

}  // namespace skyreel
