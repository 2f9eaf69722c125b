#include "app/main_form.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QScopedValueRollback>
#include <QSessionManager>
#include <QShortcut>
#include <QTimeEdit>
#include <algorithm>

#include "app/servers_dialog.h"
#include "app/signal_watcher.h"
#include "base/comma_text.h"
#include "base/files.h"
#include "settings/persisted_controls.h"
#include "sources/dundee_pdus.h"
#include "sources/eu_archive.h"
#include "sources/eu_data.h"
#include "sources/goes_gsfc.h"
#include "sources/met_charts.h"
#include "sources/msfc_data.h"
#include "transfer/transfer_progress.h"
#include "ui_archive_direct.h"
#include "ui_dundee.h"
#include "ui_eumetsat.h"
#include "ui_gms5.h"
#include "ui_goes.h"
#include "ui_gsfc.h"
#include "ui_main_form.h"
#include "ui_msfc.h"
#include "ui_nottingham.h"
#include "ui_pdus.h"
#include "ui_rss_archive.h"
#include "ui_ulm.h"
#include "ui_weather_data.h"

namespace skyreel {

namespace {

constexpr const char* kCaption = "Quenmoor's Skyreel - automated Web file retriever - V";
constexpr const char* kReportName = "SkyreelReport.txt";
constexpr const char* kLedgerName = "SkyreelTransfers.txt";
constexpr const char* kNoSector = "- none -";
constexpr const char* kTimeFormat = "HH:mm";

/// The items of "Warning bell".
constexpr int kBellAfterBatch = 1;
constexpr int kBellAfterRun = 2;

#ifdef _WIN32
constexpr bool kIsWindows = true;
#else
constexpr bool kIsWindows = false;
#endif

/// Hides a password from whoever looks at the settings file by chance; applied twice it gives the text back.
QString Scrambled(QString text) {
  for (QChar& c : text) c = QChar(c.unicode() ^ 0x5A);
  return text;
}

QStringList ToQStrings(const std::vector<std::string>& items) {
  QStringList list;
  for (const std::string& item : items) list << QString::fromStdString(item);
  return list;
}

std::vector<std::string> CheckedTexts(const TCheckListBox& list) {
  std::vector<std::string> texts;
  for (const QString& text : list.CheckedItems()) texts.push_back(text.toStdString());
  return texts;
}

/// Fills a combo box from a table; none is selected.
void SetItems(QComboBox& combo, const QStringList& items) {
  combo.clear();
  combo.addItems(items);
  combo.setCurrentIndex(-1);
}

void SelectIfNone(QComboBox& combo, int index) {
  if (combo.currentIndex() < 0) combo.setCurrentIndex(index);
}

std::chrono::minutes TimeOfDay(const QTimeEdit& picker) {
  return std::chrono::minutes(picker.time().hour() * 60 + picker.time().minute());
}

QString DefaultOutputPath(const char* folder) {
  const QString root = kIsWindows ? QString("C:\\") : QDir::homePath() + "/Skyreel/";
  return root + folder + QDir::separator();
}

}  // namespace

struct TFormMain::TPages {
  Ui::TWeatherDataPage WeatherData;
  Ui::TArchiveDirectPage ArchiveDirect;
  Ui::TDundeePage Dundee;
  Ui::TEumetsatPage Eumetsat;
  Ui::TGms5Page Gms5;
  Ui::TGoesPage Goes;
  Ui::TGsfcPage Gsfc;
  Ui::TMsfcPage Msfc;
  Ui::TNottinghamPage Nottingham;
  Ui::TPdusPage Pdus;
  Ui::TRssArchivePage RssArchive;
  Ui::TUlmPage Ulm;

  /// The product lists of the PDUS page, in the order of PdusPages().
  std::array<TpstCheckListBox*, 6> PdusLists() const {
    return {Pdus.CheckListBoxPdusEurope, Pdus.CheckListBoxWantedPdusMet7, Pdus.CheckListBoxPdusGms,
            Pdus.CheckListBoxPdusGoesE,  Pdus.CheckListBoxPdusGoesW,      Pdus.CheckListBoxPdusIODC};
  }
};

TFormMain::TFormMain(TFormEnvironment environment)
    : environment_(std::move(environment)),
      ui_(std::make_unique<Ui::TFormMain>()),
      pages_(std::make_unique<TPages>()),
      own_clock_(std::make_unique<TSystemClock>([this] { LetEventsThrough(); })),
      NMFTP_([this] { LetEventsThrough(); }),
      NMHTTP_([this] { LetEventsThrough(); }),
      NMHTTPNotts_([this] { LetEventsThrough(); }),
      ledger_(environment_.ProgramFolder / kLedgerName) {
  FormCreate();
}

TFormMain::~TFormMain() {
  FormDestroy();
  log_.reset();
  // The controls save themselves as they go; what they call is still here.
  delete takeCentralWidget();
}

void TFormMain::FormCreate() {
  ui_->setupUi(this);
  setWindowIcon(QIcon(":/icons/skyreel.png"));
  panels_[0] = new QLabel;
  panels_[0]->setMinimumWidth(100);
  panels_[1] = new QLabel;
  panels_[1]->setMinimumWidth(50);
  // A long URL is cut, it does not widen the window.
  panels_[1]->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  ui_->StatusBar->addWidget(panels_[0]);
  ui_->StatusBar->addWidget(panels_[1], 1);
  ui_->LabelBytesRX->setMinimumWidth(fontMetrics().horizontalAdvance("2147483647 bytes"));
  ui_->UpDownTimeout->findChild<QLineEdit*>()->setObjectName("EditTimeout");
  ui_->UpDownBackDays->findChild<QLineEdit*>()->setObjectName("EditBackDays");
  log_ = std::make_unique<TStatusLog>(*ui_->ListBoxStatus);
  if (!environment_.Arguments.empty()) log_->OnFinalLine = environment_.Output;

  RegisterAppPath(environment_.AppPaths, environment_.Executable);
  orbiscope_path_ = ReadAppPath(environment_.AppPaths, "Orbiscope");

  if (auto library = LoadWinInet()) win_inet_ = std::make_unique<TWinInetTransfer>(std::move(library));
  BuildPages();
  FillItemLists();
  SetDefaultPaths();
  RestorePersistedControls(*this, environment_.Store);
  RestoreOwnSettings();
  // kept: a default password that was never stored is taken for a scrambled one.
  for (QLineEdit* edit : {pages_->RssArchive.EditRSSpassword, pages_->Pdus.EditDundeePdusPassword}) {
    edit->setText(Scrambled(edit->text()));
  }
  SelectMissingItems();
  BuildSourcesMenu();
  WireTransfers();
  WireEvents();
}

void TFormMain::BuildPages() {
  TPages& pages = *pages_;
  auto add = [this, index = std::size_t{0}](auto& page) mutable {
    auto* widget = new QWidget;
    page.setupUi(widget);
    ui_->PageControl->addTab(widget, SourcePages()[index].Caption);
    tabs_[index++] = widget;
  };
  add(pages.WeatherData), add(pages.ArchiveDirect), add(pages.Dundee), add(pages.Eumetsat), add(pages.Gms5);
  add(pages.Goes), add(pages.Gsfc), add(pages.Msfc), add(pages.Nottingham), add(pages.Pdus);
  add(pages.RssArchive), add(pages.Ulm);

  pages.Eumetsat.LabelEuArNote->setText(
      "F# = IR039 Met-8\n\nHTOT = IODC visible\nITOT = IODC thermal\nJTOT = IODC water-vapour\n\n"
      "Products\nM - air mass, O - fog, U - dust");
  pages.Dundee.LabelDuMet8channels->setToolTip(
      "1: visible 0.56 - 0.71\n2: visible 0.74 - 0.88\n3: near infra-red 1.50 - 1.78\n"
      "4: infra-red 3.48 - 4.36\n5: water vapour 5.35 - 7.15\n6: water vapour 6.85 - 7.85\n"
      "7: infra-red 8.30 - 9.10\n8: ozone 9.38 - 9.94\n9: infra-red 9.80 - 11.80\n"
      "10: infra-red 11.00 - 13.00\n11: carbon dioxide 12.40 - 14.40\n12: high-resolution visible 0.4 - 1.1");
  pages.Dundee.PageControlDundee->setTabVisible(
      pages.Dundee.PageControlDundee->indexOf(pages.Dundee.TabSheetDundeeMet7), false);
  for (QCheckBox* box : {pages.ArchiveDirect.CheckBoxEuDAUseWinInet, pages.Msfc.CheckBoxMSFCUseWinInet,
                         pages.RssArchive.CheckBoxRssUseWinInet}) {
    box->setVisible(kIsWindows);
    box->setEnabled(win_inet_ != nullptr);
  }
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    auto* run = tabs_[i]->findChild<QPushButton*>(SourcePages()[i].RunButton);
    const bool can_run = SourcePages()[i].Run != nullptr;
    run->setEnabled(can_run);
    run->setToolTip(can_run ? "Fetch the files chosen on this page (Ctrl+R)"
                            : "This version does not fetch from this source; its settings are kept");
  }
}

void TFormMain::FillItemLists() {
  TPages& pages = *pages_;
  pages.WeatherData.CheckListBoxMSLPsources->SetItems(ToQStrings(MetChartItems()));
  pages.ArchiveDirect.CheckListBoxEuDASatellites->SetItems(ToQStrings(EuDataSatelliteItems()));
  pages.ArchiveDirect.CheckListBoxEuDAChannel->SetItems(ToQStrings(EuDataChannelItems()));
  pages.ArchiveDirect.CheckListBoxEuDAFormats->SetItems(ToQStrings(EuDataFormatItems()));
  for (QComboBox* combo :
       {pages.ArchiveDirect.ComboBoxEuDAmet5start, pages.ArchiveDirect.ComboBoxEuDAmet7start}) {
    SetItems(*combo, ToQStrings(EuDataSlotItems()));
  }
  for (QComboBox* combo :
       {pages.ArchiveDirect.ComboBoxEuDAmet5interval, pages.ArchiveDirect.ComboBoxEuDAmet7interval}) {
    SetItems(*combo, ToQStrings(EuDataIntervalItems()));
  }
  pages.Eumetsat.CheckListBoxEuArSectors->SetItems(ToQStrings(EuArchiveSectorItems()));
  pages.Eumetsat.CheckListBoxEuArProducts->SetItems(ToQStrings(EuArchiveProductItems()));
  pages.Goes.CheckListBoxGsfcSectors->SetItems(ToQStrings(GoesProductItems()));
  for (QComboBox* combo : {pages.Goes.ComboBoxGoesEsector, pages.Goes.ComboBoxGoesWsector}) {
    SetItems(*combo, QStringList(kNoSector) + ToQStrings(GoesSectorNames()));
    combo->setCurrentIndex(0);
  }
  pages.Msfc.CheckListBoxMSFCchannel->SetItems(ToQStrings(MsfcChannelItems()));
  pages.Msfc.CheckListBoxMSFCslot->SetItems(ToQStrings(MsfcSlotItems()));
  const auto pdus_lists = pages.PdusLists();
  for (std::size_t i = 0; i < pdus_lists.size(); ++i)
    pdus_lists[i]->SetItems(ToQStrings(PdusPages().at(i).Items));
}

void TFormMain::SetDefaultPaths() {
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    const TSourcePage& page = SourcePages()[i];
    tabs_[i]->findChild<QLineEdit*>(page.OutputPathEdit)->setText(DefaultOutputPath(page.OutputFolder));
  }
}

void TFormMain::RestoreOwnSettings() {
  TPages& pages = *pages_;
  const auto setting = [this](const QString& name, const QString& default_value) {
    return std::make_unique<TRegistryString>(environment_.Store, name, default_value);
  };
  WantedEuArSectors_ = setting("WantedEuArSectors", "D1,D2,D3");
  WantedEuArProducts_ = setting("WantedEuArProducts", "");
  WantedSectors_ = setting("WantedSectors", "D1,D2,D3");
  pages.Eumetsat.CheckListBoxEuArSectors->SetCheckedText(WantedEuArSectors_->Value);
  pages.Eumetsat.CheckListBoxEuArProducts->SetCheckedText(WantedEuArProducts_->Value);
  pages.Nottingham.CheckListBoxSectors->SetCheckedText(WantedSectors_->Value);

  const auto show_time = [](QTimeEdit& picker, TRegistryString& value, const char* default_value) {
    picker.setDisplayFormat(kTimeFormat);
    QTime time = QTime::fromString(value.Value.trimmed(), "H:m");
    if (!time.isValid()) time = QTime::fromString(default_value, kTimeFormat);
    picker.setTime(time);
  };
  GoesESlot_ = setting("GoesEslot", "17:32");
  GoesWSlot_ = setting("GoesWslot", "17:30");
  show_time(*pages.Goes.TimePickerGoesE, *GoesESlot_, "17:32");
  show_time(*pages.Goes.TimePickerGoesW, *GoesWSlot_, "17:30");

  std::vector<std::string> shown;
  for (const TSourcePage& page : SourcePages()) {
    if (page.ShownAtStart) shown.push_back(page.Caption);
  }
  VisibleTabs_ = setting("VisibleTabs", QString::fromStdString(ToCommaText(shown)));
  for (std::size_t i = 0; i < servers_.size(); ++i) servers_[i] = setting(kServerRootSettings[i].Name, "");

  WindowGeometry_ = setting("WindowGeometry", "");
  SplitterState_ = setting("SplitterState", "");
  if (!environment_.Headless) {
    restoreGeometry(QByteArray::fromBase64(WindowGeometry_->Value.toLatin1()));
    ui_->Splitter->restoreState(QByteArray::fromBase64(SplitterState_->Value.toLatin1()));
  }
}

void TFormMain::SelectMissingItems() {
  TPages& pages = *pages_;
  for (TpstRadioGroup* group :
       {pages.Dundee.RadioGroupDundeeMsgName, pages.Eumetsat.RadioGroupEumetsatMsgName}) {
    if (group->ItemIndex() < 0) group->SetItemIndex(0);
  }
  for (QComboBox* combo :
       {pages.Dundee.ComboBoxDundeeImageQuality, pages.RssArchive.ComboBoxRssLastVisible}) {
    SelectIfNone(*combo, combo->count() - 1);
  }
  for (QComboBox* combo :
       {pages.ArchiveDirect.ComboBoxEuDAmet5start, pages.ArchiveDirect.ComboBoxEuDAmet5interval,
        pages.ArchiveDirect.ComboBoxEuDAmet7start, pages.ArchiveDirect.ComboBoxEuDAmet7interval,
        pages.RssArchive.ComboBoxRssFirstVisible, ui_->ComboBoxNotify}) {
    SelectIfNone(*combo, 0);
  }
}

void TFormMain::BuildSourcesMenu() {
  const std::vector<std::string> shown = FromCommaText(VisibleTabs_->Value.toStdString());
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    const char* caption = SourcePages()[i].Caption;
    QAction* action = ui_->MenuSources->addAction(caption);
    action->setCheckable(true);
    action->setChecked(std::ranges::find(shown, caption) != shown.end());
    tab_actions_[i] = action;
    ui_->PageControl->setTabVisible(static_cast<int>(i), action->isChecked());
  }
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    if (!tab_actions_[i]->isChecked()) continue;
    ui_->PageControl->setCurrentIndex(static_cast<int>(i));
    break;
  }
}

void TFormMain::WireTransfers() {
  const auto show_progress = [this](TPowersock& sender) {
    ShowTransferProgress(*this, sender.ReceivedByteCount, sender.TransferSize);
  };
  BindFtpEvents(NMFTP_, *this, ftp_listing_);
  NMHTTP_.OnPacketRecvd = show_progress;
  NMHTTPNotts_.OnPacketRecvd = show_progress;
  NMHTTPNotts_.InputFileMode = true;
  ledger_.OnProblem = [this](TTransferLedger&, const std::string& text) { AddStatusLine(text); };
}

void TFormMain::WireEvents() {
  TPages& pages = *pages_;
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    const TSourcePage& page = SourcePages()[i];
    const auto source = static_cast<TSource>(i);
    if (page.Run != nullptr) {
      connect(tabs_[i]->findChild<QPushButton*>(page.RunButton), &QPushButton::clicked, this, page.Run);
    }
    connect(tabs_[i]->findChild<QPushButton*>(page.BrowseButton), &QPushButton::clicked, this,
            [this, source] { ButtonBrowseClick(source); });
    auto* path = tabs_[i]->findChild<QLineEdit*>(page.OutputPathEdit);
    connect(path, &QLineEdit::textChanged, this, [this, path] { EditOutputPathChange(*path); });
    connect(tab_actions_[i], &QAction::toggled, this, [this, source](bool on) { ShowTab(source, on); });
  }
  const auto keep_checked = [this](TCheckListBox* list, TRegistryString* setting) {
    connect(list, &TCheckListBox::ClickCheck, this,
            [list, setting] { setting->Value = list->CheckedText(); });
  };
  keep_checked(pages.Eumetsat.CheckListBoxEuArSectors, WantedEuArSectors_.get());
  keep_checked(pages.Eumetsat.CheckListBoxEuArProducts, WantedEuArProducts_.get());
  keep_checked(pages.Nottingham.CheckListBoxSectors, WantedSectors_.get());
  const auto keep_time = [this](QTimeEdit* picker, TRegistryString* setting) {
    KeepFromWheel(*picker);
    connect(picker, &QTimeEdit::timeChanged, this,
            [setting](QTime time) { setting->Value = time.toString(kTimeFormat); });
  };
  keep_time(pages.Goes.TimePickerGoesE, GoesESlot_.get());
  keep_time(pages.Goes.TimePickerGoesW, GoesWSlot_.get());
  connect(pages.Pdus.ButtonAnalysePDUS, &QPushButton::clicked, this, &TFormMain::ButtonAnalysePDUSClick);

  connect(ui_->ButtonClose, &QPushButton::clicked, this, &TFormMain::ButtonCloseClick);
  connect(ui_->MenuItemExit, &QAction::triggered, this, &TFormMain::ButtonCloseClick);
  connect(ui_->MenuItemRunOrbiscope, &QAction::triggered, this, &TFormMain::MenuItemRunOrbiscopeClick);
  connect(ui_->MenuItemServers, &QAction::triggered, this, &TFormMain::MenuItemServersClick);
  connect(ui_->MenuItemAbout, &QAction::triggered, this, &TFormMain::MenuItemAboutClick);
  connect(new QShortcut(Qt::Key_Escape, this), &QShortcut::activated, ui_->ButtonClose, &QPushButton::click);
  auto* run = new QShortcut(Qt::CTRL | Qt::Key_R, this);
  run->setAutoRepeat(false);  // a second press is the wish to stop
  connect(run, &QShortcut::activated, this, &TFormMain::PressCurrentRun);
  connect(new QShortcut(Qt::CTRL | Qt::Key_PageDown, this), &QShortcut::activated, this,
          [this] { ShowNextTab(1); });
  connect(new QShortcut(Qt::CTRL | Qt::Key_PageUp, this), &QShortcut::activated, this,
          [this] { ShowNextTab(-1); });
  connect(qGuiApp, &QGuiApplication::commitDataRequest, this, &TFormMain::ButtonCloseClick);

  TimerShow_.setSingleShot(true);
  TimerShow_.setInterval(environment_.BatchDelay);
  connect(&TimerShow_, &QTimer::timeout, this, &TFormMain::TimerShowTimer);
  TimerWatchdog_.setObjectName("TimerWatchdog");
  TimerWatchdog_.setSingleShot(true);
  TimerWatchdog_.setInterval(environment_.WatchdogPeriod);
  connect(&TimerWatchdog_, &QTimer::timeout, this, &TFormMain::TimerWatchdogTimer);
  connect(&TimerSilence_, &QTimer::timeout, this, &TFormMain::TimerWatchdogTimer);
}

void TFormMain::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  if (shown_) return;
  shown_ = true;
  FormShow();
}

void TFormMain::FormShow() {
  pages_->Pdus.ButtonAnalysePDUS->hide();
  ui_->MenuItemRunOrbiscope->setEnabled(!orbiscope_path_.isEmpty() && QFileInfo(orbiscope_path_).isFile());
  setWindowTitle(QString(kCaption) + SKYREEL_VERSION);
  setWindowIconText(kApplicationTitle);
  if (!environment_.Arguments.empty()) TimerShow_.start();
}

void TFormMain::closeEvent(QCloseEvent* event) {
  if (busy_) {
    // A job is running below this frame; what it uses stays until it has ended.
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
  if (!environment_.Headless) {
    WindowGeometry_->Value = saveGeometry().toBase64();
    SplitterState_->Value = ui_->Splitter->saveState().toBase64();
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
    // Without a parent it stays when the window goes.
    auto* box =
        new QMessageBox(QMessageBox::Warning, "Skyreel", QString::fromStdString(text), QMessageBox::Ok);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
  }
}

void TFormMain::FormDestroy() {
  for (QLineEdit* edit : {pages_->RssArchive.EditRSSpassword, pages_->Pdus.EditDundeePdusPassword}) {
    edit->setText(Scrambled(edit->text()));
  }
}

// --- The job bracket -----------------------------------------------------------------------------------

bool TFormMain::BeginRun(QPushButton& button, TSavedCursor& saved_cursor) {
  if (busy_) {
    stop_requested_ = true;
    button.setText("Wait");
    waiting_buttons_.push_back(&button);
    return true;
  }
  button.setText("STOP");
  stop_requested_ = false;
  close_when_done_ = false;
  saved_cursor = cursor_depth_;
  SetBusyCursor(true);
  SetProgress(0);
  // "Complete" was said of the run before.
  SetPanel(0, "");
  busy_ = true;
  return false;
}

void TFormMain::EndRun(QPushButton& button, TSavedCursor saved_cursor) {
  if (close_when_done_) QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
  busy_ = false;
  StopWatchdog();
  SetProgress(0);
  SetBytes("", kApplicationTitle);
  SetPanel(0, "Complete");
  SetPanel(1, "");
  while (cursor_depth_ > saved_cursor) SetBusyCursor(false);
  button.setText("Run");
  for (QPushButton* waiting : waiting_buttons_) waiting->setText("Run");
  waiting_buttons_.clear();
  log_->Flush();
  if (ui_->ComboBoxNotify->currentIndex() == kBellAfterRun) Bell();
}

void TFormMain::RunSource(TSource source, const std::function<void(TJobContext&)>& job,
                          const std::optional<std::array<QLineEdit*, 2>>& credentials) {
  const TSourcePage& page = SourcePage(source);
  if (page.NeedsVisibleTab && !IsTabShown(source)) return;
  // While a job runs the press is a request to stop, whatever the credentials are by now.
  if (!busy_ && credentials) {
    const auto [user, password] = *credentials;
    if (CredentialsMissing(page.Caption, user->text().toStdString(), password->text().toStdString())) {
      (user->text().isEmpty() ? user : password)->setFocus();
      return;
    }
  }
  auto& button = *Page(source).findChild<QPushButton*>(page.RunButton);
  TSavedCursor saved_cursor = 0;
  if (BeginRun(button, saved_cursor)) return;
  try {
    if (OutputPath(source).empty()) throw std::runtime_error("no output folder is chosen");
    TJobContext context = JobContext();
    context.Source = page.Caption;
    job(context);
  } catch (const std::exception& error) {
    AddStatusLine(std::string(page.Caption) + ": " + error.what());
  }
  EndRun(button, saved_cursor);
}

bool TFormMain::CredentialsMissing(const std::string& site, const std::string& user,
                                   const std::string& password) {
  if (!user.empty() && !password.empty()) return false;
  ShowMessage(site, "A username and password are required for this site");
  return true;
}

TJobContext TFormMain::JobContext() {
  TSharedSettings shared;
  shared.TimeoutSeconds = ui_->UpDownTimeout->value();
  shared.BackDays = ui_->UpDownBackDays->value();
  shared.UseProxy = ui_->CheckBoxUseProxy->isChecked();
  shared.ProxyServer = ui_->EditProxy->text().toStdString();
  shared.ProxyPort = ui_->EditProxyPort->text().toStdString();
  TClock& clock = environment_.Clock != nullptr ? *environment_.Clock : *own_clock_;
  return {{*this, *this, clock, NMFTP_, NMHTTP_, NMHTTPNotts_, ledger_, shared, win_inet_.get()},
          ReadServers(),
          environment_.ProgramFolder};
}

TServerRoots TFormMain::ReadServers() {
  TServerRoots roots;
  for (std::size_t i = 0; i < servers_.size(); ++i) {
    const TServerRootSetting& setting = kServerRootSettings[i];
    std::string root = servers_[i]->Value.toStdString();
    // The dialog lets no such value through; a hand in the settings file may.
    const std::string problem = ServerRootProblem(root, setting.Ftp);
    if (!problem.empty()) {
      AddStatusLine(std::string(setting.Caption) + ": the server in the settings is not used. " + problem);
      root.clear();
    }
    roots.*setting.Field = root.empty() ? setting.Default : root;
  }
  return roots;
}

void TFormMain::LetEventsThrough() {
  // An event's handler may wait itself; the wait that called it goes on letting events through.
  if (in_event_hook_) return;
  const QScopedValueRollback<bool> inside(in_event_hook_, true);
  QCoreApplication::processEvents();
}

// --- The sources ---------------------------------------------------------------------------------------

void TFormMain::ButtonRunBracknellClick() {
  RunSource(TSource::WeatherData, [this](TJobContext& context) {
    const Ui::TWeatherDataPage& page = pages_->WeatherData;
    TMetChartsSettings settings;
    settings.OutputPath = OutputPath(TSource::WeatherData);
    settings.Sources = CheckedTexts(*page.CheckListBoxMSLPsources);
    settings.BracknellUrl = page.EditBracknellURL->text().toStdString();
    TMetChartsJob(context, settings).Run();
  });
}

void TFormMain::ButtonRunEuDAClick() {
  const Ui::TArchiveDirectPage& page = pages_->ArchiveDirect;
  RunSource(TSource::ArchiveDirect,
            [&](TJobContext& context) {
              TEuDataSettings settings;
              settings.OutputPath = OutputPath(TSource::ArchiveDirect);
              settings.UserName = page.EditEuDAUsername->text().toStdString();
              settings.Password = page.EditEuDAPassword->text().toStdString();
              settings.Passive = page.CheckBoxEuDAPassive->isChecked();
              settings.UseWinInet = win_inet_ != nullptr && page.CheckBoxEuDAUseWinInet->isChecked();
              settings.Uncompress = page.CheckBoxEuDAuncompress->isChecked();
              for (std::size_t i = 0; i < settings.Satellites.size(); ++i) {
                settings.Satellites[i] =
                    page.CheckListBoxEuDASatellites->item(static_cast<int>(i))->checkState() == Qt::Checked;
              }
              settings.Channels = CheckedTexts(*page.CheckListBoxEuDAChannel);
              settings.Formats = CheckedTexts(*page.CheckListBoxEuDAFormats);
              settings.StartSlot = {page.ComboBoxEuDAmet5start->currentIndex(),
                                    page.ComboBoxEuDAmet7start->currentIndex()};
              settings.Interval = {page.ComboBoxEuDAmet5interval->currentIndex(),
                                   page.ComboBoxEuDAmet7interval->currentIndex()};
              TEuDataJob(context, settings).Run();
            },
            {{page.EditEuDAUsername, page.EditEuDAPassword}});
}

void TFormMain::ButtonRunEuArchiveClick() {
  RunSource(TSource::Eumetsat, [this](TJobContext& context) {
    const Ui::TEumetsatPage& page = pages_->Eumetsat;
    TEuArchiveSettings settings;
    settings.OutputPath = OutputPath(TSource::Eumetsat);
    settings.NewNaming = page.CheckBoxEumetsatNewNaming->isChecked();
    settings.MsgName = page.RadioGroupEumetsatMsgName->ItemIndex();
    settings.Items = CheckedTexts(*page.CheckListBoxEuArSectors);
    for (std::string& item : CheckedTexts(*page.CheckListBoxEuArProducts)) {
      settings.Items.push_back(std::move(item));
    }
    TEuArchiveJob(context, settings).Run();
  });
}

void TFormMain::ButtonRunGOESClick() {
  RunSource(TSource::Goes, [this](TJobContext& context) {
    const Ui::TGoesPage& page = pages_->Goes;
    const auto sector = [](const QComboBox& combo) {
      return combo.currentIndex() > 0 ? combo.currentText().toStdString() : std::string();
    };
    TGoesSettings settings;
    settings.OutputPath = OutputPath(TSource::Goes);
    settings.Sectors = CheckedTexts(*page.CheckListBoxGsfcSectors);
    settings.Interval = page.RadioGroupGsfcInterval->ItemIndex();
    settings.ESector = sector(*page.ComboBoxGoesEsector);
    settings.WSector = sector(*page.ComboBoxGoesWsector);
    settings.ETime = TimeOfDay(*page.TimePickerGoesE);
    settings.WTime = TimeOfDay(*page.TimePickerGoesW);
    settings.DateInFolder = page.CheckBoxGOESDateInFolder->isChecked();
    settings.Lzw = page.CheckBoxGoesLzw->isChecked();
    TGoesJob(context, settings).Run();
  });
}

void TFormMain::ButtonRunMSFCClick() {
  RunSource(TSource::Msfc, [this](TJobContext& context) {
    const Ui::TMsfcPage& page = pages_->Msfc;
    TMsfcSettings settings;
    settings.OutputPath = OutputPath(TSource::Msfc);
    settings.Passive = page.CheckBoxMSFCpassive->isChecked();
    settings.UseWinInet = win_inet_ != nullptr && page.CheckBoxMSFCUseWinInet->isChecked();
    settings.Uncompress = page.CheckBoxMSFCuncompress->isChecked();
    settings.Channels = CheckedTexts(*page.CheckListBoxMSFCchannel);
    settings.Slots = CheckedTexts(*page.CheckListBoxMSFCslot);
    TMsfcJob(context, settings).Run();
  });
}

void TFormMain::ButtonRunDundeePdusClick() {
  const Ui::TPdusPage& page = pages_->Pdus;
  RunSource(TSource::Pdus,
            [&](TJobContext& context) {
              TPdusSettings settings;
              settings.OutputPath = OutputPath(TSource::Pdus);
              settings.UserName = page.EditDundeePdusUsername->text().toStdString();
              settings.Password = page.EditDundeePdusPassword->text().toStdString();
              for (const TpstCheckListBox* list : pages_->PdusLists()) {
                for (std::string& item : CheckedTexts(*list)) settings.Wanted.push_back(std::move(item));
              }
              TPdusJob(context, settings).Run();
            },
            {{page.EditDundeePdusUsername, page.EditDundeePdusPassword}});
}

void TFormMain::ButtonAnalysePDUSClick() {
  try {
    AnalysePdus(environment_.ProgramFolder, std::filesystem::current_path());
  } catch (const std::exception& error) {
    ShowMessage("Analyse PDUS", error.what());
  }
}

// --- What a job shows ----------------------------------------------------------------------------------

void TFormMain::AddStatusLine(const std::string& text) {
  log_->Add(text);
}
void TFormMain::BeginFile(const std::string& line) {
  log_->Begin(line);
}
void TFormMain::EndFile(const TFileResult&, const std::string& line) {
  if (!line.empty()) log_->End(line);
}

void TFormMain::SetPanel(int panel, const std::string& text) {
  panels_.at(static_cast<std::size_t>(panel))->setText(QString::fromStdString(text));
}

void TFormMain::SetProgress(int percent) {
  ui_->ProgressBar->setValue(std::clamp(percent, 0, 100));
}
void TFormMain::SetBytes(const std::string& label, const std::string& title) {
  if (TimerSilence_.isActive()) TimerSilence_.start();
  ui_->LabelBytesRX->setText(QString::fromStdString(label));
  setWindowIconText(QString::fromStdString(title));
}

void TFormMain::SetBusyCursor(bool busy) {
  if (busy) {
    QGuiApplication::setOverrideCursor(Qt::WaitCursor);
    ++cursor_depth_;
  } else if (cursor_depth_ > 0) {
    QGuiApplication::restoreOverrideCursor();
    --cursor_depth_;
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

void TFormMain::Bell() {
  environment_.Bell ? environment_.Bell() : QApplication::beep();
}

// --- Batch and watchdog --------------------------------------------------------------------------------

void TFormMain::TimerShowTimer() {
  if (busy_) {
    // The user was faster; a press now would stop the job.
    TimerShow_.start();
    return;
  }
  batch_running_ = true;
  RunBatch(environment_.Arguments, BatchGroups(), win_inet_ != nullptr, *this);
  batch_running_ = false;
  log_->Flush();
  // Where nobody can press Close, a batch that does not name -CLOSE would stay for ever.
  if (environment_.Headless && !ClosePending()) close();
}

void TFormMain::MinimiseApplication() {
  showMinimized();
}

void TFormMain::Dial() {
  constexpr std::uint32_t kForceUnattended = 2;
  win_inet_->Api().InternetAutodial(kForceUnattended, nullptr);
}

void TFormMain::HangUp() {
  win_inet_->Api().InternetAutodialHangup(0);
}

void TFormMain::PressRun(std::size_t group, bool named) {
  const TSource source = BatchSources().at(group);
  const TSourcePage& page = SourcePage(source);
  if (IsTabShown(source)) {
    ui_->PageControl->setCurrentWidget(&Page(source));
  } else if (page.NeedsVisibleTab) {
    if (named) {
      Fire(environment_.ErrorOutput, std::string("The tab \"") + page.Caption + "\" is hidden, so " +
                                         SwitchesOf(page).front() + " does nothing; View, Sources shows it");
    }
    return;
  }
  if (page.Run == nullptr) {
    if (named) AddStatusLine(std::string(page.Caption) + ": this version does not fetch from this source");
    return;
  }
  Page(source).findChild<QPushButton*>(page.RunButton)->click();
}

void TFormMain::RingAfterBatch() {
  if (ui_->ComboBoxNotify->currentIndex() == kBellAfterBatch) Bell();
}

void TFormMain::CloseProgram() {
  close();
}

void TFormMain::RestartWatchdog() {
  TimerWatchdog_.start();
}
void TFormMain::StopWatchdog() {
  TimerWatchdog_.stop();
}

void TFormMain::TimerWatchdogTimer() {
  TimerWatchdog_.stop();
  NMFTP_.Abort();
  NMHTTP_.Abort();
  NMHTTPNotts_.Abort();
}

// --- Small handlers ------------------------------------------------------------------------------------

void TFormMain::ButtonCloseClick() {
  if (!busy_) {
    close();
    return;
  }
  stop_requested_ = true;
  close_when_done_ = true;
  ui_->ButtonClose->setText("Wait");
}

void TFormMain::CloseSoon() {
  told_to_end_ = true;
  // What the close left to be read must not keep the program.
  if (closed_) return QApplication::closeAllWindows();
  ButtonCloseClick();
  // A little more than the time-outs of the waits that end by themselves.
  if (busy_) TimerSilence_.start(std::chrono::seconds(ui_->UpDownTimeout->value() + 1));
}

void TFormMain::PressCurrentRun() {
  const int index = ui_->PageControl->currentIndex();
  // With all tabs hidden one of them is still the current one.
  if (!ui_->PageControl->isTabVisible(index)) return;
  tabs_[static_cast<std::size_t>(index)]
      ->findChild<QPushButton*>(SourcePages()[static_cast<std::size_t>(index)].RunButton)
      ->click();
}

void TFormMain::ShowNextTab(int step) {
  const int count = ui_->PageControl->count();
  int index = ui_->PageControl->currentIndex();
  for (int i = 0; i < count; ++i) {
    index = (index + step + count) % count;
    if (ui_->PageControl->isTabVisible(index)) return ui_->PageControl->setCurrentIndex(index);
  }
}

void TFormMain::ButtonBrowseClick(TSource source) {
  auto* edit = Page(source).findChild<QLineEdit*>(SourcePage(source).OutputPathEdit);
  auto* dialog =
      new QFileDialog(this, "Output folder - " + QString(SourcePage(source).Caption), edit->text());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  connect(dialog, &QFileDialog::fileSelected, edit,
          [edit](const QString& folder) { edit->setText(QDir::toNativeSeparators(folder)); });
  dialog->open();
}

void TFormMain::EditOutputPathChange(QLineEdit& edit) {
  const QString text = edit.text();
  // An empty edit stays empty: a lone separator would be the root folder.
  if (text.isEmpty() || text.endsWith(QDir::separator())) return;
  const int cursor = edit.cursorPosition();
  edit.setText(text + QDir::separator());
  edit.setCursorPosition(cursor);
}

void TFormMain::MenuItemRunOrbiscopeClick() {
  bool started = false;
  WithSignalsLetThrough([&] { started = QProcess::startDetached(orbiscope_path_, {}); });
  if (!started) {
    ShowMessage("Orbiscope", "It cannot be started: " + orbiscope_path_.toStdString());
  }
}

void TFormMain::MenuItemServersClick() {
  TServersDialog::TRoots roots;
  std::ranges::transform(servers_, roots.begin(), [](const auto& server) { return server->Value; });
  auto* dialog = new TServersDialog(this, roots);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->OnAccepted = [this](const TServersDialog::TRoots& chosen) {
    for (std::size_t i = 0; i < chosen.size(); ++i) servers_[i]->Value = chosen[i];
  };
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

void TFormMain::ShowTab(TSource source, bool shown) {
  ui_->PageControl->setTabVisible(static_cast<int>(source), shown);
  if (shown) ui_->PageControl->setCurrentWidget(&Page(source));
  std::vector<std::string> captions;
  for (std::size_t i = 0; i < tabs_.size(); ++i) {
    if (tab_actions_[i]->isChecked()) captions.push_back(SourcePages()[i].Caption);
  }
  VisibleTabs_->Value = QString::fromStdString(ToCommaText(captions));
}

bool TFormMain::IsTabShown(TSource source) const {
  return ui_->PageControl->isTabVisible(static_cast<int>(source));
}

std::string TFormMain::OutputPath(TSource source) const {
  return Page(source).findChild<QLineEdit*>(SourcePage(source).OutputPathEdit)->text().toStdString();
}

}  // namespace skyreel
