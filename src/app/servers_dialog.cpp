#include "app/servers_dialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <optional>

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

/// The root that the user means by this text.
std::string RootAsMeant(const QString& typed, bool ftp) {
  std::string text(Trim(typed.toStdString()));
  const std::string_view scheme = ftp ? "" : "http://";
  if (!text.empty() && text.find("://") == std::string::npos) text.insert(0, scheme);
  // A root copied from a browser ends in a slash.
  while (text.ends_with('/') && text.size() > scheme.size()) text.pop_back();
  return text;
}

}  // namespace

std::string ServerRootProblem(const std::string& text, bool ftp) {
  if (text.empty()) return {};
  const char* form = ftp ? "Write it as host or host:port."
                         : "Write it as http://host or https://host, if need be with :port.";
  if (HasControlCharacter(text)) return std::string("It holds a control character. ") + form;
  std::string_view rest = text;
  if (!ftp) {
    if (!StartsWithText(rest, "http://") && !StartsWithText(rest, "https://"))
      return std::string("It does not begin with http:// or https://. ") + form;
    rest.remove_prefix(rest.find("//") + 2);
  }
  const std::size_t colon = rest.find(':');
  const std::string_view host = rest.substr(0, colon);
  if (host.empty()) return std::string("It names no host. ") + form;
  if (!std::ranges::all_of(host, IsHostCharacter)) {
    return std::string("A host name has letters, digits, dots and hyphens only. ") + form;
  }
  if (colon != std::string_view::npos && !IsPort(rest.substr(colon + 1))) {
    return std::string("The port is not a number from 1 to 65535. ") + form;
  }
  return {};
}

TServerSettings::TServerSettings(TRegistryStore& store) {
  for (const TSource& source : Sources()) {
    for (const TServerSetting& server : source.Servers)
      choices_.push_back({server, std::make_unique<TRegistryString>(store, server.Name, "")});
  }
}

TServerRoots TServerSettings::Roots(const TSource& source,
                                    const std::function<void(const std::string& line)>& tell) const {
  TServerRoots roots;
  for (const TServerSetting& server : source.Servers) {
    const auto choice = std::ranges::find(choices_, std::string_view(server.Name),
                                          [](const TChoice& c) { return std::string_view(c.Server.Name); });
    const std::string root = choice->Root->Value.toStdString();
    if (root.empty()) continue;
    // The dialog takes no wrong server, but somebody may have edited the settings file.
    const std::string problem = ServerRootProblem(root, server.Ftp);
    if (problem.empty()) {
      roots.Set(server, root);
    } else {
      tell(std::string(server.Caption) + ": the server in the settings is not used. " + problem);
    }
  }
  return roots;
}

TServersDialog::TServersDialog(QWidget* parent, TServerSettings& settings)
    : QDialog(parent), settings_(settings) {
  setObjectName("ServersDialog");
  setWindowTitle("Servers");
  auto* form = new QFormLayout;
  for (const auto& [server, root] : settings_.Choices()) {
    auto* edit = new QLineEdit(root->Value);
    edit->setObjectName(server.Name);
    edit->setPlaceholderText(server.Default);
    edit->setClearButtonEnabled(true);
    edit->setMinimumWidth(edit->fontMetrics().averageCharWidth() * 44);
    form->addRow(QString(server.Caption) + ":", edit);
    connect(edit, &QLineEdit::textChanged, this, [this, i = edits_.size()] {
      if (edits_[i] == wrong_ && ProblemOf(i).empty()) problem_->hide();
    });
    edits_.push_back(edit);
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
  buttons->button(QDialogButtonBox::Ok)->setDefault(true);
  auto* all_default = buttons->addButton("Use &built-in servers", QDialogButtonBox::ResetRole);
  connect(all_default, &QPushButton::clicked, this, &TServersDialog::AskForBuiltIn);

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(hint);
  layout->addLayout(form);
  layout->addWidget(problem_);
  layout->addWidget(buttons);
}

std::string TServersDialog::ProblemOf(std::size_t i) const {
  const bool ftp = settings_.Choices()[i].Server.Ftp;
  return ServerRootProblem(RootAsMeant(edits_[i]->text(), ftp), ftp);
}

void TServersDialog::AskForBuiltIn() {
  auto* box =
      new QMessageBox(QMessageBox::Question, windowTitle(), "Use the built-in server for every source?",
                      QMessageBox::Yes | QMessageBox::No, this);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setInformativeText("This clears all fields. OK then stores the change.");
  box->setDefaultButton(QMessageBox::No);
  connect(box, &QDialog::accepted, this, [this] {
    for (QLineEdit* edit : edits_) edit->clear();
  });
  box->open();
}

void TServersDialog::accept() {
  std::vector<std::string> roots;
  for (std::size_t i = 0; i < edits_.size(); ++i) {
    const TServerSetting& server = settings_.Choices()[i].Server;
    const std::string problem = ProblemOf(i);
    if (!problem.empty()) {
      problem_->setText(QString::fromStdString(std::string(server.Caption) + ": " + problem));
      problem_->show();
      wrong_ = edits_[i];
      wrong_->setFocus();
      wrong_->selectAll();
      return;
    }
    roots.push_back(RootAsMeant(edits_[i]->text(), server.Ftp));
  }
  for (std::size_t i = 0; i < roots.size(); ++i)
    settings_.Choices()[i].Root->Value = QString::fromStdString(roots[i]);
  QDialog::accept();
}

}  // namespace skyreel
