#include "app/main_form.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileInfo>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QSessionManager>
#include <QShortcut>
#include <QUrl>
#include <QWindow>
#include <algorithm>
#include <map>

#include "app/find_bar.h"
#include "app/first_steps.h"
#include "app/program_folder.h"
#include "app/signal_watcher.h"
#include "app/signs.h"
#include "base/files.h"
#include "settings/persisted_controls.h"
#include "ui_main_form.h"

namespace skyreel {

namespace {

constexpr const char* kCaption = "Quenmoor's Skyreel - automated Web file retriever - V";

/// The items of "Warning bell".
constexpr int kBellAfterBatch = 1;
constexpr int kBellAfterRun = 2;

}  // namespace

TFormMain::TFormMain(TFormEnvironment environment)
    : environment_(std::move(environment)),
      ui_(std::make_unique<Ui::TFormMain>()),
      servers_(environment_.Store),
      journal_(environment_.JournalFile, environment_.Clock, *this),
      catalogue_(environment_.SourceFolders),
      WindowGeometry_(environment_.Store, "WindowGeometry", ""),
      SplitterState_(environment_.Store, "SplitterState", ""),
      CaFile_(environment_.Store, "CaFile", ""),
      HostOverrides_(environment_.Store, "HostOverrides", "") {
  FormCreate();
}

TFormMain::~TFormMain() {
  FormDestroy();
}

void TFormMain::FormCreate() {
  ui_->setupUi(this);
  setWindowIcon(QIcon(":/icons/skyreel.png"));
  BuildStatusArea();

  RegisterAppPath(environment_.AppPaths, environment_.Executable);
  orbiscope_path_ = ReadAppPath(environment_.AppPaths, "Orbiscope");

  runner_ = std::make_unique<TJobRunner>(
      this, TJobRunner::TSetup{*this, servers_, environment_.ProgramFolder, environment_.Clock,
                               environment_.WatchdogPeriod, environment_.Document != nullptr,
                               [this] { return ReadShared(); }});
  runner_->SetHttps(CaFile_.Value.toStdString(), HostOverrides_.Value.toStdString());
  tabs_ = std::make_unique<TSourceTabs>(
      *ui_->SourcesArea, *ui_->PageControl, *ui_->MenuSources,
      TPageEnvironment{environment_.Store, environment_.ProgramFolder, runner_->WinInet() != nullptr,
                       journal_.Journal(), environment_.JournalFile, catalogue_,
                       [this] { return UtcNow(); }});
  OrderLog();
  AddLowerViews();
  OrderSharedControls();
  RestorePersistedControls(*this, environment_.Store);
  for (TSourcePage* page : tabs_->Pages()) page->SelectMissingItems();
  SelectIfNone(*ui_->ComboBoxNotify, 0);
  if (environment_.Headless) {
    // Painting takes threads and memory, and without them Qt waits for ever.
    setUpdatesEnabled(false);
  } else {
    restoreGeometry(QByteArray::fromBase64(WindowGeometry_.Value.toLatin1()));
    ui_->Splitter->restoreState(QByteArray::fromBase64(SplitterState_.Value.toLatin1()));
    lower_->ShowLast();
  }
  ShowFirstSteps();
  WireEvents();
}

void TFormMain::BuildStatusArea() {
  panels_ = {new QLabel, new QLabel};
  panels_[0]->setMinimumSize(100, fontMetrics().height());
  panels_[1]->setMinimumWidth(50);
  // A long URL is cut and does not widen the window.
  panels_[1]->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  ui_->StatusBar->addWidget(panels_[0]);
  ui_->StatusBar->addWidget(panels_[1], 1);
  ui_->LabelBytesRX->setMinimumWidth(fontMetrics().horizontalAdvance("2147483647 bytes"));
  ui_->UpDownTimeout->findChild<QLineEdit*>()->setObjectName("EditTimeout");
  ui_->UpDownBackDays->findChild<QLineEdit*>()->setObjectName("EditBackDays");
  log_ = std::make_unique<TStatusLog>(*ui_->ListBoxStatus);
  if (!environment_.Arguments.empty()) log_->OnFinalLine = environment_.Output;
}

void TFormMain::AddLowerViews() {
  auto* const bar = new TFindBar(*ui_->ListBoxStatus);
  ui_->LogLayout->addWidget(bar);
  lower_ = std::make_unique<TLowerViews>(*ui_->LowerTabs, environment_.Store, [bar] { bar->Open(); });
  const TFilesView::TSetup files{
      .Journal = environment_.JournalFile,
      .UtcNow = [this] { return UtcNow(); },
      .WhyNotAgain = [this](const TJournalEntry& file) { return WhyNotAgain(file); },
      .FetchAgain = [this](const std::vector<TJournalEntry>& chosen) { FetchAgain(chosen); }};
  const TCoverageEnvironment coverage{
      .JournalFile = environment_.JournalFile,
      .LedgerFile = environment_.ProgramFolder / kLedgerName,
      .UtcNow = [this] { return UtcNow(); },
      .Sources = [this] { return CoverageSources(); },
      .WhyNotFetch = [this](const TJournalEntry& file) { return WhyNotAgain(file); }};
  views_ = std::make_unique<TArchiveViews>(
      *lower_, TArchiveViews::TSetup{files, coverage, catalogue_, [this] { return Busy(); }});
  lower_->OnMade = [this] { OrderSharedControls(); };
}

QWidget* TFormMain::LastInFocusChain() const {
  QWidget* last = previousInFocusChain();
  // Qt ignores an order after a widget that takes no focus.
  while (last->focusPolicy() == Qt::NoFocus) last = last->previousInFocusChain();
  return last;
}

void TFormMain::OrderLog() {
  QWidget* const last = LastInFocusChain();
  // One by one: Qt does not take the inner widgets of a log along with its tab.
  setTabOrder(last, ui_->ListBoxStatus);
  setTabOrder(last, ui_->LowerTabs);
}

void TFormMain::OrderSharedControls() {
  QWidget* before = LastInFocusChain();
  for (QWidget* control : std::initializer_list<QWidget*>{
           ui_->UpDownTimeout, ui_->UpDownBackDays, ui_->ComboBoxNotify, ui_->CheckBoxUseProxy,
           ui_->EditProxy, ui_->EditProxyPort, ui_->ButtonClose}) {
    setTabOrder(before, control);
    before = control;
  }
}

void TFormMain::ShowFirstSteps() {
  auto* const steps = new TFirstSteps(*ui_->ListBoxStatus);
  TSourcePage& live = *tabs_->Pages().front();
  steps->OnFetch = [&live] { live.FetchFirstPicture(); };
  steps->OnOpenFolder = [this, &live] {
    // Before the first run the folder is not there yet.
    std::error_code ignored;
    std::filesystem::create_directories(live.OutputPath(), ignored);
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(live.OutputPath()))))
      AddStatusLine("No program opens the folder " + live.OutputPath());
  };
}

void TFormMain::WireEvents() {
  runner_->OnExpectFiles = [this](std::int64_t more) {
    if (progress_) progress_->Expect(more);
    ShowRunProgress();
  };
  runner_->OnEnd = [this](const std::vector<TRunRecord>& records) { JobEnded(records); };
  for (TSourcePage* page : tabs_->Pages()) {
    page->OnRun = [this, page](const TSourcePage::TJob& job) { RunSource(*page, job); };
    page->PlanRequest = [this, page] { return runner_->PlanRequest(page->Source(), UtcNow()); };
    page->OnMessage = [this](const std::string& subject, const std::string& text) {
      ShowMessage(subject, text);
    };
    page->OnAsk = [this](const std::string& subject, const std::string& text,
                         const std::function<void()>& yes,
                         const std::function<void()>& no) { Ask(subject, text, yes, no); };
    page->IsBusy = [this] { return Busy(); };
    page->IsUnattended = [this] { return batch_running_ || environment_.Headless; };
  }
  catalogue_.OnRead = [this] {
    for (TSourcePage* page : tabs_->Pages()) page->CatalogueRead();
    views_->CatalogueRead();
  };
  connect(ui_->ButtonClose, &QPushButton::clicked, this, &TFormMain::ButtonCloseClick);
  connect(ui_->MenuItemExit, &QAction::triggered, this, &TFormMain::ButtonCloseClick);
  connect(ui_->MenuItemRun, &QAction::triggered, this, &TFormMain::PressCurrentRun);
  connect(ui_->MenuItemRunOrbiscope, &QAction::triggered, this, &TFormMain::MenuItemRunOrbiscopeClick);
  connect(ui_->MenuItemServers, &QAction::triggered, this, &TFormMain::MenuItemServersClick);
  connect(ui_->MenuItemAbout, &QAction::triggered, this, &TFormMain::MenuItemAboutClick);
  connect(new QShortcut(Qt::Key_Escape, this), &QShortcut::activated, ui_->ButtonClose, &QPushButton::click);
  connect(new QShortcut(QKeySequence::Find, this), &QShortcut::activated, this, &TFormMain::FindKeyPressed);
  connect(new QShortcut(Qt::SHIFT | Qt::Key_F10, this), &QShortcut::activated, this,
          &TFormMain::OpenContextMenu);
  connect(new QShortcut(Qt::CTRL | Qt::Key_PageDown, this), &QShortcut::activated, this,
          [this] { tabs_->ShowNext(1); });
  connect(new QShortcut(Qt::CTRL | Qt::Key_PageUp, this), &QShortcut::activated, this,
          [this] { tabs_->ShowNext(-1); });
  connect(qGuiApp, &QGuiApplication::commitDataRequest, this, &TFormMain::ButtonCloseClick);

  TimerShow_.setSingleShot(true);
  TimerShow_.setInterval(environment_.BatchDelay);
  connect(&TimerShow_, &QTimer::timeout, this, &TFormMain::TimerShowTimer);
}

void TFormMain::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (shown_) return;
  shown_ = true;
  FormShow();
}

void TFormMain::FormShow() {
  ui_->MenuItemRunOrbiscope->setEnabled(!orbiscope_path_.isEmpty() && QFileInfo(orbiscope_path_).isFile());
  ShowTitle(kApplicationTitle);
  if (!environment_.Arguments.empty()) TimerShow_.start();
}

void TFormMain::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::WindowStateChange) ShowTitle(windowIconText());
}

void TFormMain::closeEvent(QCloseEvent* event) {
  if (Busy()) {
    // A job is running below this frame and uses the window until its end.
    ButtonCloseClick();
    event->ignore();
    return;
  }
  event->accept();
  if (closed_) return;
  closed_ = true;
  TimerShow_.stop();
  FormCloseQuery();
}

void TFormMain::FormCloseQuery() {
  // A signal may come before the batch begins.
  if (!environment_.Arguments.empty() && !batch_ended_) BatchEnded();
  if (!environment_.Headless) {
    WindowGeometry_.Value = saveGeometry().toBase64();
    SplitterState_.Value = ui_->Splitter->saveState().toBase64();
  }
  // A batch changes the tab, but not the user's choice.
  if (environment_.Arguments.empty()) {
    tabs_->RememberCurrent();
    lower_->RememberCurrent();
  }
  if (log_->IsEmpty()) return;
  AddStatusLine(std::string("Skyreel - V") + SKYREEL_VERSION);
  log_->Flush();
  try {
    WriteFileWhole(environment_.ProgramFolder / kReportName, log_->Report());
  } catch (const std::exception& error) {
    const std::string text = std::string("The report cannot be written: ") + error.what();
    if (!environment_.Arguments.empty() || told_to_end_) {
      Fire(environment_.ErrorOutput, text);
      return;
    }
    // Without a parent it outlives the window.
    auto* box =
        new QMessageBox(QMessageBox::Warning, "Skyreel", QString::fromStdString(text), QMessageBox::Ok);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
  }
}

void TFormMain::FormDestroy() {
  log_.reset();
  // The controls save themselves now, while everything they call is still here.
  delete takeCentralWidget();
}

// --- Jobs ----------------------------------------------------------------------------------------------

void TFormMain::RunSource(TSourcePage& page, const TSourcePage::TJob& job) {
  if (page.Source().NeedsVisibleTab && !tabs_->IsShown(page)) return;
  // During a job the press asks that job to stop, with a login or without.
  if (!Busy() && page.Source().NeedsLogin && CredentialsMissing(page)) return;
  const bool begins = !Busy();
  if (begins) {
    journal_.BeginRun(page.Source().Caption);
    progress_.emplace();
    ShowRunProgress();
    tabs_->ShowRunning(page, true);
    views_->RunBegan();
  }
  runner_->Run(page, job);
  if (begins) tabs_->ShowRunning(page, false);
}

bool TFormMain::CredentialsMissing(const TSourcePage& page) {
  for (QLineEdit* edit : {page.UserNameEdit(), page.PasswordEdit()}) {
    if (!edit->text().isEmpty()) continue;
    const char* const text = "A username and password are required for this site";
    ShowMessage(page.Source().Caption, text);
    NotRun(page.Source(), TRunEnd::NoLogin, text);
    edit->setFocus();
    return true;
  }
  return false;
}

void TFormMain::NotRun(const TSource& source, TRunEnd end, const std::string& reason) {
  if (!batch_running_) return;
  TRunRecord record;
  record.Source = source.Caption;
  record.End = end;
  record.Reason = reason;
  batch_.Runs.push_back(std::move(record));
}

void TFormMain::JobEnded(const std::vector<TRunRecord>& records) {
  if (batch_running_) batch_.Runs.insert(batch_.Runs.end(), records.begin(), records.end());
  journal_.EndRun(records, TBatchRecord{{}, records, {}}.ExitCode());
  stopped_ =
      std::ranges::any_of(records, [](const TRunRecord& record) { return record.End == TRunEnd::Stopped; });
  progress_.reset();
  ShowRunProgress();
  views_->RunEnded();
  if (runner_->CloseWhenDone()) QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
  log_->Flush();
  if (ui_->ComboBoxNotify->currentIndex() == kBellAfterRun) Bell();
}

std::vector<TCoverageSource> TFormMain::CoverageSources() const {
  std::vector<TCoverageSource> sources;
  for (const TSourcePage* page : tabs_->Pages())
    if (tabs_->IsShown(*page)) std::ranges::move(page->CoverageSources(), std::back_inserter(sources));
  return sources;
}

void TFormMain::ShowRunProgress() {
  ui_->ProgressBarRun->setValue(progress_ ? progress_->Percent() : 0);
  const auto now = std::chrono::steady_clock::now();
  ui_->LabelRun->setText(progress_ ? QString::fromStdString(progress_->Text(now)) : "");
}

std::string TFormMain::WhyNotAgain(const TJournalEntry& file) {
  if (Busy()) return "a run is going on";
  TSourcePage* const page = tabs_->PageThatRuns(file.Source);
  if (page == nullptr && catalogue_.Current() == nullptr)
    return "the descriptions of the sources are being read";
  if (page == nullptr) return "its source is gone, or its terms were not accepted";
  if (page->Source().NeedsVisibleTab && !tabs_->IsShown(*page)) return "the tab of its source is hidden";
  return page->WhyNotAgain(file);
}

void TFormMain::FetchAgain(const std::vector<TJournalEntry>& files) {
  std::map<TSourcePage*, std::vector<TJournalEntry>> by_page;
  for (const TJournalEntry& file : files)
    if (WhyNotAgain(file).empty()) by_page[tabs_->PageThatRuns(file.Source)].push_back(file);
  stopped_ = false;
  for (const auto& [page, its_files] : by_page) {
    if (stopped_ || Busy() || runner_->CloseWhenDone()) return;
    page->FetchAgain(its_files);
  }
}

TSharedSettings TFormMain::ReadShared() const {
  return {ui_->UpDownTimeout->value(), ui_->UpDownBackDays->value(), ui_->CheckBoxUseProxy->isChecked(),
          ui_->EditProxy->text().toStdString(), ui_->EditProxyPort->text().toStdString()};
}

// --- What a job shows ----------------------------------------------------------------------------------

void TFormMain::AddStatusLine(const std::string& text) {
  log_->Add(text);
}
void TFormMain::BeginFile(const std::string& line) {
  log_->Begin(line);
}
void TFormMain::EndFile(const TFileResult& result, const std::string& line) {
  journal_.Record(result);
  if (progress_) {
    progress_->Count(result.Bytes);
    ShowRunProgress();
  }
  views_->FileEnded(result);
  if (!line.empty()) log_->End(line, SignOf(result.State) == TSign::Problem);
}

void TFormMain::SetPanel(int panel, const std::string& text) {
  panels_.at(static_cast<std::size_t>(panel))->setText(QString::fromStdString(text));
}

void TFormMain::SetProgress(int percent) {
  ui_->ProgressBar->setValue(std::clamp(percent, 0, 100));
}
void TFormMain::SetBytes(const std::string& label, const std::string& title) {
  runner_->EndSilence();
  ui_->LabelBytesRX->setText(QString::fromStdString(label));
  ShowTitle(QString::fromStdString(title));
}

void TFormMain::ShowTitle(const QString& application_title) {
  setWindowIconText(application_title);
  // Task lists show the window's title, few the icon's.
  setWindowTitle(isMinimized() ? application_title : QString(kCaption) + SKYREEL_VERSION);
}

void TFormMain::SetBusyCursor(bool busy) {
  if (busy) {
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  } else {
    QGuiApplication::restoreOverrideCursor();
  }
}

void TFormMain::ShowMessage(const std::string& subject, const std::string& text) {
  if (batch_running_ || environment_.Headless) {
    AddStatusLine(subject + ": " + text);
    return;
  }
  auto* box = new QMessageBox(QMessageBox::Information, QString::fromStdString(subject),
                              QString::fromStdString(text), QMessageBox::Ok, this);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->open();
}

void TFormMain::Ask(const std::string& subject, const std::string& text, const std::function<void()>& yes,
                    const std::function<void()>& no) {
  auto* box = new QMessageBox(QMessageBox::Question, QString::fromStdString(subject),
                              QString::fromStdString(text), QMessageBox::Yes | QMessageBox::No, this);
  box->setTextFormat(Qt::PlainText);
  box->setDefaultButton(QMessageBox::No);
  box->setAttribute(Qt::WA_DeleteOnClose);
  // Queued: a run may follow, and the box must be gone before it.
  connect(
      box, &QMessageBox::finished, this,
      [yes, no](int answer) { Fire(answer == QMessageBox::Yes ? yes : no); }, Qt::QueuedConnection);
  box->open();
}

void TFormMain::Bell() {
  if (environment_.Bell) {
    environment_.Bell();
  } else {
    QApplication::beep();
  }
}

// --- Batch ---------------------------------------------------------------------------------------------

void TFormMain::TimerShowTimer() {
  if (Busy()) {
    // The user was faster, and a press now would stop the job.
    TimerShow_.start();
    return;
  }
  batch_running_ = true;
  batch_.Started = UtcNow();
  for (const std::string& argument : environment_.Arguments) {
    if (IsSwitch(argument)) continue;
    batch_.UnknownArguments.push_back(argument);
    Fire(environment_.ErrorOutput, "\"" + argument + "\" matches no switch; see Skyreel --help");
  }
  RunBatch(environment_.Arguments, runner_->WinInet() != nullptr, *this);
  // Nobody can press Close: a batch without -CLOSE would stay for ever.
  if (environment_.Headless && !ClosePending()) close();
}

void TFormMain::MinimiseApplication() {
  showMinimized();
}

void TFormMain::Dial() {
  constexpr std::uint32_t kForceUnattended = 2;
  runner_->WinInet()->Api().InternetAutodial(kForceUnattended, nullptr);
}

void TFormMain::HangUp() {
  runner_->WinInet()->Api().InternetAutodialHangup(0);
}

void TFormMain::PressRun(const TSource& source, bool named) {
  TSourcePage& page = tabs_->PageOf(source);
  const std::string caption = source.Caption;
  if (tabs_->IsShown(page)) {
    tabs_->MakeCurrent(page);
  } else if (source.NeedsVisibleTab) {
    if (named) {
      const std::string hidden = "The tab \"" + caption + "\" is hidden, so " + source.Switches.front() +
                                 " does nothing; View, Sources shows it";
      Fire(environment_.ErrorOutput, hidden);
      NotRun(source, TRunEnd::NotStarted, hidden);
    }
    return;
  }
  if (source.HasJob()) {
    page.RunButton().click();
  } else if (named) {
    const std::string reason = "its service has closed and has no known successor";
    AddStatusLine(caption + ": " + reason);
    NotRun(source, TRunEnd::NotStarted, reason);
  }
}

void TFormMain::BatchEnded() {
  batch_running_ = false;
  batch_ended_ = true;
  if (!batch_.Runs.empty()) AddStatusLine(batch_.Line());
  log_->Flush();
  Fire(environment_.Document, batch_.Json(UtcNow()));
}

TDateTime TFormMain::UtcNow() const {
  return environment_.Clock != nullptr ? environment_.Clock->UtcNow() : TSystemClock({}).UtcNow();
}

void TFormMain::RingAfterBatch() {
  if (ui_->ComboBoxNotify->currentIndex() == kBellAfterBatch) Bell();
}

void TFormMain::CloseProgram() {
  close();
}

// --- Small handlers ------------------------------------------------------------------------------------

void TFormMain::ButtonCloseClick() {
  if (!Busy()) {
    close();
    return;
  }
  runner_->StopAndClose();
  ui_->ButtonClose->setText("Wait");
}

void TFormMain::CloseSoon() {
  told_to_end_ = true;
  batch_.Signal = !environment_.Arguments.empty();
  // A message box may still be open.
  if (closed_) return QApplication::closeAllWindows();
  ButtonCloseClick();
  // Most waits time out by themselves a little earlier.
  if (Busy()) runner_->GiveUpAfterSilence(std::chrono::seconds(ui_->UpDownTimeout->value() + 1));
}

void TFormMain::PressCurrentRun() {
  if (TSourcePage* page = tabs_->CurrentPage()) page->RunButton().click();
}

void TFormMain::FindKeyPressed() {
  const bool below = ui_->LowerTabs->isAncestorOf(focusWidget());
  TSourcePage* const page = tabs_->CurrentPage();
  if (below || page == nullptr || !page->Search()) lower_->Find();
}

void TFormMain::OpenContextMenu() {
  // As the menu key does: at the cursor of the widget that has the focus.
  QContextMenuEvent event(QContextMenuEvent::Keyboard, {}, {});
  QCoreApplication::sendEvent(windowHandle(), &event);
}

void TFormMain::MenuItemRunOrbiscopeClick() {
  bool started = false;
  WithSignalsLetThrough([&] { started = QProcess::startDetached(orbiscope_path_, {}); });
  if (!started) ShowMessage("Orbiscope", "It cannot be started: " + orbiscope_path_.toStdString());
}

void TFormMain::MenuItemServersClick() {
  auto* dialog = new TServersDialog(this, servers_);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->open();
}

void TFormMain::MenuItemAboutClick() {
  auto* box = new QMessageBox(this);
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowTitle("About Skyreel");
  box->setIconPixmap(windowIcon().pixmap(64, 64));
  box->setText(QString("<h3>Skyreel %1</h3>").arg(SKYREEL_VERSION));
  box->setInformativeText(
      "Fetches weather-satellite images, charts and data files and files them by date.<br>"
      "From Quenmoor.<br><br>Report and lists of wanted names:<br>" +
      QString::fromStdString(environment_.ProgramFolder.string()).toHtmlEscaped() + "<br>Settings:<br>" +
      QString::fromStdString(environment_.Store.File().string()).toHtmlEscaped());
  box->setStandardButtons(QMessageBox::Ok);
  box->open();
}

}  // namespace skyreel
