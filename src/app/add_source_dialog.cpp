#include "app/add_source_dialog.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "base/event.h"

namespace skyreel {

TAddSourceDialog::TAddSourceDialog(QWidget* parent)
    : QDialog(parent),
      place_(new QLineEdit),
      check_(new QPushButton("&Check")),
      keep_(new QPushButton("&Keep")),
      shown_(new QPlainTextEdit) {
  setObjectName("AddSourceDialog");
  setWindowTitle("Add source");
  place_->setObjectName("EditSourcePlace");
  auto* label = new QLabel("&File or https address of the description:");
  label->setBuddy(place_);
  auto* browse = new QPushButton("&Browse...");
  browse->setAccessibleName("Browse for the description");
  browse->setAutoDefault(false);
  check_->setObjectName("ButtonCheckSource");
  check_->setToolTip("Show what the source would do; nothing is kept yet");
  check_->setDefault(true);
  shown_->setObjectName("TextSource");
  shown_->setAccessibleName("What the source would do");
  shown_->setReadOnly(true);
  shown_->setTabChangesFocus(true);
  shown_->setLineWrapMode(QPlainTextEdit::NoWrap);
  keep_->setObjectName("ButtonKeepSource");
  keep_->setAutoDefault(false);
  keep_->setEnabled(false);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
  buttons->addButton(keep_, QDialogButtonBox::AcceptRole);

  auto* row = new QHBoxLayout;
  for (QWidget* control : std::initializer_list<QWidget*>{place_, browse, check_}) row->addWidget(control);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(label);
  layout->addLayout(row);
  layout->addWidget(shown_, 1);
  layout->addWidget(buttons);
  resize(680, 420);

  // What was checked must be what is kept.
  connect(place_, &QLineEdit::textChanged, this, [this] { keep_->setEnabled(false); });
  connect(browse, &QPushButton::clicked, this, &TAddSourceDialog::ButtonBrowseClick);
  connect(check_, &QPushButton::clicked, this, &TAddSourceDialog::ButtonCheckClick);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons, &QDialogButtonBox::accepted, this, [this] {
    accept();
    Fire(OnKeep, checked_);
  });
}

void TAddSourceDialog::ButtonBrowseClick() {
  auto* dialog = new QFileDialog(this, "Description of a source", {}, "Descriptions (*.toml)");
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFile);
  connect(dialog, &QFileDialog::fileSelected, place_, &QLineEdit::setText);
  dialog->open();
}

void TAddSourceDialog::ButtonCheckClick() {
  const QPointer<TAddSourceDialog> self = this;
  check_->setEnabled(false);
  place_->setReadOnly(true);
  OnCheck(place_->text().trimmed().toStdString(), [self](const TChecked& checked) {
    if (self) self->Show(checked);
  });
}

void TAddSourceDialog::Show(const TChecked& checked) {
  check_->setEnabled(true);
  place_->setReadOnly(false);
  checked_ = checked;
  shown_->setPlainText(QString::fromStdString(checked.Shown));
  keep_->setEnabled(!checked.Id.empty());
}

}  // namespace skyreel
