#include "app/servers_dialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <optional>

#include "base/event.h"
#include "base/text.h"

namespace skyreel {

namespace {

bool IsHostCharacter(char c) {
  return IsLetterOrDigit(c) || c == '.' || c == '-' || c == '_';
}

bool IsPort(std::string_view text) {
  const std::optional<unsigned> port = ParseNumber<unsigned>(text);
  return port && *port >= 1 && *port <= 65535;
}

}  // namespace

std::string ServerRootProblem(const std::string& text, bool ftp) {
  if (text.empty()) return {};
  const char* form = ftp ? "Write it as host or host:port." : "Write it as http://host or http://host:port.";
  if (HasControlCharacter(text)) return std::string("It holds a control character. ") + form;
  std::string_view rest = text;
  if (StartsWithText(rest, "https://")) return std::string("Secure servers (https) cannot be asked. ") + form;
  if (!ftp) {
    if (!StartsWithText(rest, "http://")) return std::string("It does not begin with http://. ") + form;
    rest.remove_prefix(7);
  }
  const std::size_t colon = rest.find(':');
  const std::string_view host = rest.substr(0, colon);
  if (host.empty()) return std::string("It names no host. ") + form;
  if (!std::ranges::all_of(host, IsHostCharacter)) {
    return std::string("A host name has letters, digits, dots and hyphens only. ") + form;
  }
  if (colon != std::string_view::npos && !IsPort(rest.substr(colon + 1))) {
    return std::string("The port is no number from 1 to 65535. ") + form;
  }
  return {};
}

TServersDialog::TServersDialog(QWidget* parent, const TRoots& roots) : QDialog(parent) {
  setObjectName("ServersDialog");
  setWindowTitle("Servers");
  auto* form = new QFormLayout;
  for (std::size_t i = 0; i < edits_.size(); ++i) {
    const TServerRootSetting& setting = kServerRootSettings[i];
    auto* edit = new QLineEdit(roots[i]);
    edit->setObjectName(setting.Name);
    edit->setPlaceholderText(setting.Default);
    edit->setClearButtonEnabled(true);
    edit->setMinimumWidth(edit->fontMetrics().averageCharWidth() * 44);
    form->addRow(QString(setting.Caption) + ":", edit);
    edits_[i] = edit;
  }
  auto* hint = new QLabel(
      "An empty field means the built-in server, shown in grey. Changes take effect at the next run.");
  hint->setWordWrap(true);
  problem_ = new QLabel;
  problem_->setObjectName("LabelProblem");
  problem_->setWordWrap(true);
  QFont bold = problem_->font();
  bold.setBold(true);
  problem_->setFont(bold);
  problem_->hide();

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* all_default = buttons->addButton("Use &built-in servers", QDialogButtonBox::ResetRole);
  connect(all_default, &QPushButton::clicked, this, [this] {
    for (QLineEdit* edit : edits_) edit->clear();
  });

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(hint);
  layout->addLayout(form);
  layout->addWidget(problem_);
  layout->addWidget(buttons);
}

void TServersDialog::accept() {
  TRoots roots;
  for (std::size_t i = 0; i < edits_.size(); ++i) {
    const TServerRootSetting& setting = kServerRootSettings[i];
    // A root copied from a browser ends in a slash.
    std::string text(Trim(edits_[i]->text().toStdString()));
    while (text.ends_with('/') && text.size() > 7) text.pop_back();
    const std::string problem = ServerRootProblem(text, setting.Ftp);
    if (!problem.empty()) {
      problem_->setText(QString::fromStdString(std::string(setting.Caption) + ": " + problem));
      problem_->show();
      edits_[i]->setFocus();
      edits_[i]->selectAll();
      return;
    }
    roots[i] = QString::fromStdString(text);
  }
  Fire(OnAccepted, roots);
  QDialog::accept();
}

}  // namespace skyreel
