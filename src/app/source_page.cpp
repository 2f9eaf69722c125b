#include "app/source_page.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QTimeEdit>
#include <map>

#include "app/bound_sources.h"
#include "app/plan_dialog.h"
#include "app/program_folder.h"
#include "catalogue/described_run.h"
#include "settings/persisted_controls.h"
#include "sources/fetch_again.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

TAgainFile AgainFileOf(const TJournalEntry& file) {
  return {file.Product, file.SlotTime, file.Address, file.Path};
}

/// The journal's paths are absolute and written in one way.
fs::path BelowOutput(const fs::path& file, const fs::path& output) {
  return file.lexically_relative(fs::absolute(output).lexically_normal());
}

TPictureKey PictureKeyOf(const TJournalEntry& file, const fs::path& output) {
  return {file.Product, file.SlotTime, file.Path.empty() ? "" : BelowOutput(file.Path, output)};
}

std::string WhyNotWantedAgain(const TDescription& source, const fs::path& output, const TJournalEntry& file) {
  if (source.IsFixedName()) return "";
  if (file.Path.empty() || file.SlotTime.IsZero()) return "the time of its picture is not known";
  const fs::path below = BelowOutput(file.Path, output);
  if (below.empty() || *below.begin() == "..") return "it is not below the output folder of its source";
  return "";
}

}  // namespace

namespace {

#ifdef _WIN32
constexpr bool kIsWindows = true;
#else
constexpr bool kIsWindows = false;
#endif

constexpr const char* kTimeFormat = "HH:mm";

/// The control of this kind with `part` in its name; nullptr if the page has no such control.
template <typename TControl>
TControl* Find(const QWidget& page, const char* part) {
  for (TControl* control : page.findChildren<TControl*>())
    if (control->objectName().contains(QLatin1String(part), Qt::CaseInsensitive)) return control;
  return nullptr;
}

/// A setting that lives as long as a control.
class TKept : public QObject {
 public:
  TKept(QWidget& control, TRegistryStore& store, const char* name, const char* default_value)
      : QObject(&control), Setting(store, name, default_value) {}

  TRegistryString Setting;
};

QString DefaultOutputPath(const char* folder) {
  const QString root = kIsWindows ? QString("C:\\") : QDir::homePath() + "/Skyreel/";
  return root + folder + QDir::separator();
}

QStringList ToQStrings(const std::vector<std::string>& items) {
  QStringList list;
  for (const std::string& item : items) list << QString::fromStdString(item);
  return list;
}

}  // namespace

TSourcePage::TSourcePage(TPageContext context) : context_(std::move(context)) {}

TSourcePage::~TSourcePage() {
  // Otherwise the end of the program would wait for the plan of a year.
  stop_.request_stop();
}

void TSourcePage::paintEvent(QPaintEvent* event) {
  QWidget::paintEvent(event);
  // The window shows itself first.
  if (!std::exchange(painted_, true))
    QMetaObject::invokeMethod(
        this, [this] { Fire(OnPainted); }, Qt::QueuedConnection);
  if (ShowsDescriptions() && !context_.Catalogue.Current())
    QMetaObject::invokeMethod(
        this, [this] { context_.Catalogue.ReadOnce(); }, Qt::QueuedConnection);
}

void TSourcePage::Measure() {
  measured_ = true;
  updateGeometry();
}

void TSourcePage::CatalogueRead() {
  if (bound_) bound_->CatalogueRead();
}

void TSourcePage::PrepareControls() {
  run_ = Find<QPushButton>(*this, "ButtonRun");
  output_path_ = Find<QLineEdit>(*this, "EditOutputPath");
  output_path_->setText(DefaultOutputPath(context_.Source.OutputFolder));
  run_->setEnabled(context_.Source.HasJob());
  if (context_.Source.HasJob()) {
    ShowRunState(TRunState::Run);
  } else {
    run_->setToolTip("The service of this tab has closed and has no known successor");
  }
  const TSource& source = context_.Source;
  if (source.Bound || !source.HasJob()) bound_ = std::make_unique<TBoundSources>(*this, context_);
  if (source.HasJob() && !source.Described) {
    connect(run_, &QPushButton::clicked, this, &TSourcePage::ButtonRunClick);
    AddPreviewButton();
  }
  if (auto* box = Find<QCheckBox>(*this, "UseWinInet")) {
    box->setVisible(kIsWindows);
    box->setEnabled(context_.HasWinInet);
  }
  connect(Find<QPushButton>(*this, "ButtonBrowse"), &QPushButton::clicked, this,
          &TSourcePage::ButtonBrowseClick);
  connect(output_path_, &QLineEdit::textChanged, this, &TSourcePage::EditOutputPathChange);
  output_path_->installEventFilter(this);
}

std::string TSourcePage::OutputPath() const {
  return FromHome(output_path_->text().toStdString(), QDir::homePath().toStdString());
}

void TSourcePage::ShowRunState(TRunState state) {
  const QString caption = context_.Source.Caption;
  switch (state) {
    case TRunState::Run:
      run_->setText("Run");
      run_->setToolTip("Fetch the files chosen on this page (Ctrl+R)");
      run_->setAccessibleName("Run " + caption);
      break;
    case TRunState::Stop:
      run_->setText("STOP");
      run_->setToolTip("Stop this run after the current file (Ctrl+R)");
      run_->setAccessibleName("Stop " + caption);
      break;
    case TRunState::Wait:
      run_->setText("Wait");
      run_->setToolTip("The run stops after the current file; press again to abort that file (Ctrl+R)");
      run_->setAccessibleName("Wait for the stop");
      break;
  }
}

QLineEdit* TSourcePage::UserNameEdit() const {
  return Find<QLineEdit>(*this, "Username");
}

QLineEdit* TSourcePage::PasswordEdit() const {
  return Find<QLineEdit>(*this, "Password");
}

std::shared_ptr<const TDescription> TSourcePage::Described(const std::string& id) {
  return bound_ ? bound_->Find(id) : nullptr;
}

bool TSourcePage::AcceptsTerms(const std::string& id) const {
  return bound_ && bound_->Accepts(id);
}

TFtpLogin TSourcePage::Login() const {
  TFtpLogin login;
  if (const QLineEdit* user = UserNameEdit()) login.UserID = user->text().toStdString();
  if (const QLineEdit* password = PasswordEdit()) login.Password = password->text().toStdString();
  return login;
}

bool TSourcePage::Runs(const std::string& source) {
  return source == context_.Source.Caption || Described(source) != nullptr;
}

std::string TSourcePage::WhyNotAgain(const TJournalEntry& file) {
  if (const auto source = Described(file.Source)) return WhyNotWantedAgain(*source, OutputPath(), file);
  return skyreel::WhyNotAgain(context_.Source, AgainFileOf(file));
}

void TSourcePage::FetchAgain(const std::vector<TJournalEntry>& files) {
  RunJob([this, files](TJobContext& context) {
    std::vector<TAgainFile> own;
    // They must outlive the waits of the run.
    std::map<std::string, std::shared_ptr<const TDescription>> sources;
    std::map<std::string, std::vector<TPictureKey>> wanted_keys;
    for (const TJournalEntry& file : files) {
      if (file.Source == context_.Source.Caption) {
        own.push_back(AgainFileOf(file));
      } else if (const auto source = Described(file.Source)) {
        sources[file.Source] = source;
        wanted_keys[file.Source].push_back(PictureKeyOf(file, OutputPath()));
      }
    }
    if (!own.empty()) skyreel::FetchAgain(context, context_.Source, Login(), own);
    std::vector<TWantedSource> wanted;
    for (auto& [id, list] : wanted_keys) {
      wanted.push_back(WantedAgain(*sources[id], std::move(list), context.Clock.UtcNow()));
      wanted.back().AcceptsTerms = AcceptsTerms(id);
    }
    if (wanted.empty()) return;
    TDescribedRun run{.Context = context,
                      .Journal = context_.Journal,
                      .Output = OutputPath(),
                      .KeepsFiles = context.Record.KeepsFiles};
    context.Records = RunDescribedSources(run, wanted);
  });
}

void TSourcePage::KeepChecked(TCheckListBox& list, const char* name, const char* default_items) const {
  auto* kept = new TKept(list, context_.Store, name, default_items);
  list.SetCheckedText(kept->Setting.Value);
  connect(&list, &TCheckListBox::ClickCheck, kept,
          [&list, kept] { kept->Setting.Value = list.CheckedText(); });
}

void TSourcePage::KeepTime(QTimeEdit& picker, const char* name, const char* default_time) const {
  auto* kept = new TKept(picker, context_.Store, name, default_time);
  const QTime time = QTime::fromString(kept->Setting.Value.trimmed(), "H:m");
  picker.setTime(time.isValid() ? time : QTime::fromString(default_time, kTimeFormat));
  KeepFromWheel(picker);
  connect(&picker, &QTimeEdit::timeChanged, kept,
          [kept](QTime chosen) { kept->Setting.Value = chosen.toString(kTimeFormat); });
}

void TSourcePage::AddPreviewButton() {
  // Alt+R leads to the password where there is one.
  auto* button = new QPushButton(PasswordEdit() ? "Preview..." : "P&review...", this);
  button->setObjectName(run_->objectName().replace("ButtonRun", "ButtonPreview"));
  button->setToolTip("Show which files a run would ask for");
  button->setAccessibleName(QString("Preview ") + context_.Source.Caption);
  for (QBoxLayout* layout : findChildren<QBoxLayout*>())
    if (const int at = layout->indexOf(run_); at >= 0) layout->insertWidget(at + 1, button);
  setTabOrder(run_, button);
  connect(button, &QPushButton::clicked, this, &TSourcePage::ButtonPreviewClick);
}

void TSourcePage::ButtonRunClick() {
  if (context_.Source.Bound) return bound_->Run([this](const TJob& job) { RunJob(job); });
  RunJob(MakeJob());
}

void TSourcePage::ButtonPreviewClick() {
  const std::filesystem::path output = OutputPath();
  if (output.empty()) return Fire(OnMessage, context_.Source.Caption, "No output folder is chosen.");
  std::stop_source stop;
  std::function<TPreview()> make;
  if (context_.Source.Bound) {
    make = bound_->PreviewMaker(PlanRequest());
  } else {
    make = [request = PlanRequest(), job = MakeJob(), output, token = stop.get_token()] {
      return PreviewOf(PlanOfJob(request, job, token), output);
    };
  }
  auto* dialog = new TPlanDialog(this, context_.Source.Caption, std::move(make));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  // On a slow disk the worker would go on for long, and the program would wait for it at its end.
  connect(dialog, &QObject::destroyed, [stop]() mutable { stop.request_stop(); });
  dialog->open();
}

std::vector<TCoverageSource> TSourcePage::CoverageSources() const {
  if (!context_.Source.HasJob() || OutputPath().empty()) return {};
  if (bound_) return bound_->CoverageSources();
  return {CoverageOf(context_.Source.Caption, PlanRequest(), MakeJob(), OutputPath(), stop_.get_token())};
}

void TSourcePage::ButtonBrowseClick() {
  const std::string path = OutputPath();
  QFileInfo start(path.empty() ? QDir::homePath() : QString::fromStdString(path));
  while (!start.isDir() && !start.isRoot()) start = QFileInfo(start.absolutePath());
  auto* dialog =
      new QFileDialog(this, "Output folder - " + QString(context_.Source.Caption), start.filePath());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  connect(dialog, &QFileDialog::fileSelected, output_path_, [this](const QString& folder) {
    // Not setText: undo can take this back.
    output_path_->selectAll();
    output_path_->insert(QDir::toNativeSeparators(folder));
  });
  dialog->open();
}

void TSourcePage::EditOutputPathChange() {
  const QString text = output_path_->text();
  // An empty edit stays empty: a lone separator would be the root folder.
  if (text.isEmpty() || text.endsWith(QDir::separator())) return;
  const int cursor = output_path_->cursorPosition();
  // Not setText: it would clear the undo history. Undo takes this back together with the user's change.
  output_path_->setCursorPosition(static_cast<int>(text.size()));
  output_path_->insert(QDir::separator());
  output_path_->setCursorPosition(cursor);
}

bool TSourcePage::eventFilter(QObject* watched, QEvent* event) {
  if (watched != output_path_ || event->type() != QEvent::KeyPress) return false;
  // Undo could not get past the removal of a separator that comes back at once.
  const auto* press = static_cast<QKeyEvent*>(event);
  const auto length = output_path_->text().size();
  const int cursor = output_path_->cursorPosition();
  if (length < 2 || output_path_->hasSelectedText() || press->modifiers() != Qt::NoModifier) return false;
  if (press->key() == Qt::Key_Backspace && cursor == length) {
    output_path_->cursorBackward(false);
    return true;
  }
  return press->key() == Qt::Key_Delete && cursor == length - 1;
}

void SetItems(TCheckListBox& list, const std::vector<std::string>& items) {
  list.SetItems(ToQStrings(items));
}

void AddItems(QComboBox& combo, const std::vector<std::string>& items) {
  const int index = combo.currentIndex();
  combo.addItems(ToQStrings(items));
  combo.setCurrentIndex(index);
}

void SelectIfNone(QComboBox& combo, int index) {
  if (combo.currentIndex() < 0) combo.setCurrentIndex(index);
}

std::vector<std::string> CheckedTexts(const TCheckListBox& list) {
  std::vector<std::string> texts;
  for (const QString& text : list.CheckedItems()) texts.push_back(text.toStdString());
  return texts;
}

}  // namespace skyreel
