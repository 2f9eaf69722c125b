#include "app/main_form.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QGroupBox>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QTabWidget>
#include <QTimeEdit>
#include <QTimer>
#include <future>
#include <set>

#include "app/servers_dialog.h"
#include "app/signal_watcher.h"
#include "base/files.h"
#include "base/text.h"
#include "settings/persisted_controls.h"
#include "support/failure.h"
#include "support/fakes.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using namespace testing;

constexpr const char* kFirstChart = "/data/swp_0000_anal.gif";
constexpr const char* kVersionLine = "Skyreel - V" SKYREEL_VERSION;

/// The real form on a temporary settings store that asks for the eight charts of New Zealand, which Server
/// has. Its output folders lead into the temporary folder.
class MainFormTest : public testing::Test {
 protected:
  MainFormTest() {
    qputenv("HOME", Folder.Path().c_str());
    Folder.Write("Skyreel.conf", FirstProfile());
    for (const char* name : {"ServerNewZealand", "ServerEuArchiveNew"})
      Store(name, "http://" + Server.Address());
    for (const char* name :
         {"OutputPathBracknell", "OutputPathEuArchive", "OutputPathEuDA", "OutputPathMSFC"})
      Store(name, (Folder / "out/").string());
    Store("MSLPsources", "\"New Zealand\"");
    for (const auto& [time, day] :
         {std::pair("0000", "10"), {"0600", "10"}, {"1200", "09"}, {"1800", "09"}}) {
      for (const std::string area : {"swp", "tnz"}) {
        Server.Answer(
            "/data/" + area + "_" + time + "_anal.gif", std::string(2'000, 'x'),
            {std::string("Last-Modified: Thu, ") + day + " Nov 2005 " + std::string(time, 2) + ":30:00 GMT"});
      }
    }
  }
  ~MainFormTest() override {
    Shut();
    for (QWidget* widget : QApplication::topLevelWidgets()) delete widget;
  }

  void Open(std::vector<std::string> arguments = {}, std::chrono::milliseconds watchdog = 20min) {
    store_ = std::make_unique<TRegistryStore>(StoreFile);
    form_ = std::make_unique<TFormMain>(
        TFormEnvironment{.Store = *store_,
                         .Executable = "/opt/skyreel/Skyreel",
                         .AppPaths = Folder / "App Paths.conf",
                         .ProgramFolder = ProgramFolder,
                         .Arguments = std::move(arguments),
                         .Headless = Headless,
                         .Clock = &Clock,
                         .Bell = [this] { ++Bells; },
                         .Output = [this](const std::string& line) { Output.push_back(line); },
                         .ErrorOutput = [this](const std::string& line) { Errors.push_back(line); },
                         .BatchDelay = 0ms,
                         .WatchdogPeriod = watchdog});
    form_->show();
  }
  void Shut() {
    form_.reset();
    store_.reset();
  }

  template <typename T = QWidget>
  T& Get(const char* name) const {
    T* found = form_->findChild<T*>(name);
    if (found == nullptr) throw std::runtime_error(std::string("no control ") + name);
    return *found;
  }
  std::string Text(const char* button) const { return Get<QAbstractButton>(button).text().toStdString(); }
  void Press(const char* button) const { Get<QAbstractButton>(button).click(); }
  /// Ctrl and a key.
  void PressControl(int key) const {
    for (QShortcut* shortcut : form_->findChildren<QShortcut*>()) {
      if (shortcut->key() == QKeySequence(Qt::CTRL | key)) emit shortcut->activated();
    }
  }
  std::vector<TSourcePage*> Pages() const {
    std::vector<TSourcePage*> pages;
    const auto& tabs = Get<QTabWidget>("PageControl");
    for (int i = 0; i < tabs.count(); ++i) pages.push_back(static_cast<TSourcePage*>(tabs.widget(i)));
    return pages;
  }
  void Check(const char* list, const char* items) const { Get<TCheckListBox>(list).SetCheckedText(items); }
  void Trigger(const char* action) const { Get<QAction>(action).trigger(); }
  const std::vector<std::string>& Lines() const { return form_->Log().Lines(); }
  std::vector<std::string> Panels() const {
    std::vector<std::string> texts;
    for (const QLabel* label : Get("StatusBar").findChildren<QLabel*>())
      texts.push_back(label->text().toStdString());
    return texts;
  }

  /// Lets events through until the window has closed; gives up after a long time.
  void UntilClosed() const {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (form_->isVisible()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
      QApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
    }
  }
  /// Once the server is asked for `path`, calls `action` on the form's thread, inside the job's wait; only
  /// then the server answers, with a 404.
  void Meanwhile(const std::string& path, std::function<void()> action) {
    Server.Handle(path, [action](const std::string&, const std::string&) {
      std::promise<void> done;
      const auto run = [&] {
        action();
        done.set_value();
      };
      QMetaObject::invokeMethod(qApp, run, Qt::QueuedConnection);
      done.get_future().wait_for(20s);
      return test::HttpReply("none", {}, "404 Not found");
    });
  }

  /// The settings that a first start stores.
  std::string FirstProfile() const {
    return ReplaceAll(ReadWholeFile(SKYREEL_FIRST_PROFILE), "~", Folder.Path().string());
  }
  std::string Report() const { return ReadWholeFile(ProgramFolder / "SkyreelReport.txt"); }
  /// A value as it stands in the settings file.
  std::string Stored(const char* name) const {
    return TRegistryStore(StoreFile).ReadString(name).toStdString();
  }
  void Store(const char* name, const std::string& value) const {
    TRegistryStore(StoreFile).WriteString(name, QString::fromStdString(value));
  }

  test::TTempFolder Folder;
  const std::filesystem::path StoreFile = Folder / "Skyreel.conf";
  test::THttpServer Server;
  test::TFakeClock Clock{TDateTime::FromDate(2005, 11, 10, 12, 0)};
  std::filesystem::path ProgramFolder = Folder.Path();
  bool Headless = false;
  int Bells = 0;
  std::vector<std::string> Output, Errors;

  std::unique_ptr<TRegistryStore> store_;
  std::unique_ptr<TFormMain> form_;
};

// --- The window ----------------------------------------------------------------------------------------

TEST_F(MainFormTest, ShowsAndOffersWhatAStartShouldShow) {
  const auto orbiscope = Folder.Write("Orbiscope", "");
  Open();
  EXPECT_FALSE(Get<QAction>("MenuItemRunOrbiscope").isEnabled());
  const auto& tabs = Get<QTabWidget>("PageControl");
  std::string captions;  // those hidden in brackets
  for (int i = 0; i < tabs.count(); ++i) {
    const std::string text = tabs.tabText(i).toStdString();
    captions += tabs.isTabVisible(i) ? text + ", " : "(" + text + "), ";
  }
  EXPECT_EQ(
      captions,
      "Weather data, Archive Direct, Dundee, Eumetsat, (GMS-5), GOES, (GSFC), (MSFC), (Nottingham), (PDUS), "
      "(RSS Archive), (Ulm), ");
  EXPECT_FALSE(Get<QTabWidget>("PageControlDundee").isTabVisible(0));
  for (const char* hidden : {"ButtonAnalysePDUS", "CheckBoxEuDAUseWinInet", "CheckBoxMSFCUseWinInet"})
    EXPECT_TRUE(Get(hidden).isHidden()) << hidden;
  EXPECT_EQ(form_->windowTitle(), "Quenmoor's Skyreel - automated Web file retriever - V" SKYREEL_VERSION);
  EXPECT_EQ(form_->windowIconText(), "Skyreel - from Quenmoor");
  for (const TSourcePage* page : Pages())
    EXPECT_EQ(page->RunButton().isEnabled(), page->Source().HasJob()) << page->Source().Caption;
  // The page keys go round the shown tabs.
  std::vector<std::string> seen;
  for (const int key : {Qt::Key_PageUp, Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_PageDown}) {
    PressControl(key);
    seen.push_back(tabs.tabText(tabs.currentIndex()).toStdString());
  }
  EXPECT_THAT(seen, ElementsAre("GOES", "Eumetsat", "GOES", "Weather data"));
  // With none shown they end, and the Run key does nothing.
  for (QAction* tab : Get<QMenu>("MenuSources").actions()) tab->setChecked(false);
  for (const int key : {Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_R}) PressControl(key);
  EXPECT_THAT(Lines(), IsEmpty());
  Shut();
  RegisterAppPath(Folder / "App Paths.conf", orbiscope);
  Open();
  Trigger("MenuItemRunOrbiscope");  // an empty file
  EXPECT_THAT(form_->findChild<QMessageBox*>()->text().toStdString(), HasSubstr(orbiscope.string()));
  EXPECT_EQ(ReadAppPath(Folder / "App Paths.conf", "Skyreel"), "/opt/skyreel/Skyreel");
}

TEST_F(MainFormTest, SelectsAnItemWhereNoneIsStored) {
  for (const char* group : {"EumetsatMsgName", "DundeeMsgName"}) Store(group, "-1");
  Open();
  for (const char* name : {"RadioGroupEumetsatMsgName", "RadioGroupDundeeMsgName"})
    EXPECT_EQ(Get<TpstRadioGroup>(name).ItemIndex(), 0) << name;
  for (const char* name : {"ComboBoxEuDAmet5start", "ComboBoxEuDAmet5interval", "ComboBoxEuDAmet7start",
                           "ComboBoxEuDAmet7interval", "ComboBoxRssFirstVisible", "ComboBoxNotify"})
    EXPECT_EQ(Get<QComboBox>(name).currentIndex(), 0) << name;
  for (const char* name : {"ComboBoxDundeeImageQuality", "ComboBoxRssLastVisible"})
    EXPECT_EQ(Get<QComboBox>(name).currentIndex(), Get<QComboBox>(name).count() - 1) << name;
}

TEST_F(MainFormTest, NoTwoControlsThatAreSeenTogetherShareAMnemonic) {
  Open();
  std::map<QString, QString> taken;
  const auto take = [&](QObject* control) {
    const QString text = control->property("text").toString();
    const QString letter = QKeySequence::mnemonic(text).toString();
    if (letter.isEmpty()) return;
    EXPECT_FALSE(taken.contains(letter)) << text.toStdString() << " and " << taken[letter].toStdString();
    taken[letter] = text;
  };
  for (QAction* action : form_->menuBar()->actions()) take(action);
  for (QWidget* widget : Get("PanelShared").findChildren<QWidget*>()) take(widget);
  const std::map<QString, QString> of_window = taken;
  for (const TSourcePage* page : Pages()) {
    SCOPED_TRACE(page->Source().Caption);
    // Each inner page is seen together with what stands around it.
    auto* const inner = page->findChild<QTabWidget*>();
    for (int i = 0; i < (inner != nullptr ? inner->count() : 1); ++i) {
      taken = of_window;
      for (QWidget* widget : page->findChildren<QWidget*>()) {
        if (inner == nullptr || !inner->isAncestorOf(widget) || inner->widget(i)->isAncestorOf(widget))
          take(widget);
      }
    }
  }
}

TEST_F(MainFormTest, EveryControlHasItsOwnSettingAndANameForScreenReadersAndFitsTheSmallestWindow) {
  Open();
  std::set<const QWidget*> labelled;
  for (const QLabel* label : form_->findChildren<QLabel*>()) {
    labelled.insert(label->buddy());
    EXPECT_TRUE(label->buddy() != nullptr || QKeySequence::mnemonic(label->text()).isEmpty())
        << label->text().toStdString();
  }
  std::set<QString> settings;
  for (QWidget* control : form_->findChildren<QWidget*>()) {
    if (dynamic_cast<TPersistedControl*>(control) == nullptr) continue;
    SCOPED_TRACE(control->objectName().toStdString());
    EXPECT_TRUE(settings.insert(control->property("NamedAs").toString()).second);
    const bool captioned =
        qobject_cast<QAbstractButton*>(control) != nullptr || qobject_cast<QGroupBox*>(control) != nullptr;
    EXPECT_TRUE(captioned || labelled.contains(control) || !control->accessibleName().isEmpty());
    if (const auto* edit = qobject_cast<QLineEdit*>(control)) {
      EXPECT_EQ(edit->echoMode() == QLineEdit::Password,
                control->objectName().contains("password", Qt::CaseInsensitive));
    }
  }
  for (const TSourcePage* page : Pages()) {
    const QSize least = page->minimumSizeHint();
    EXPECT_TRUE(least.width() <= 900 && least.height() <= 360) << page->Source().Caption;
  }
  const std::pair<const char*, const char*> hints[] = {
      {"ComboBoxEuDAmet5start", "Choose start slot and interval for Meteosat 5"},
      {"ComboBoxEuDAmet7interval", "Choose start slot and interval for Meteosat 7"},
      {"CheckListBoxEuDAFormats", ".gz format not available until Feb 03"},
      {"CheckBoxEuDAUseWinInet", "Use FTP functions from MS Internet Explorer"},
      {"CheckBoxEumetsatNewNaming", "For data after 2005 November 09"},
      {"CheckBoxUlmSaveJPEG", "Also corrects the cosmetic gamma adjustment performed by Ulm"}};
  for (const auto& [control, text] : hints) EXPECT_EQ(Get(control).toolTip(), text) << control;
}

TEST_F(MainFormTest, OutputPathsAreTypedOrBrowsedForAndGainTheirSeparator) {
  Open();
  for (const TSourcePage* page : Pages()) {
    SCOPED_TRACE(page->Source().Caption);
    QLineEdit& edit = page->OutputPathEdit();
    edit.clear();
    EXPECT_EQ(edit.text(), "");
    for (const char* key : {"/", "a", "b"}) edit.insert(key);
    EXPECT_EQ(edit.text(), "/ab/") << "the cursor stays before it";
    for (auto* button : page->findChildren<QPushButton*>()) {
      if (button->objectName().startsWith("ButtonBrowse")) button->click();
    }
    auto* dialog = form_->findChild<QFileDialog*>();
    ASSERT_NE(dialog, nullptr);
    dialog->reject();
    EXPECT_EQ(edit.text(), "/ab/");
    emit dialog->fileSelected("/var/tmp");
    EXPECT_EQ(edit.text(), "/var/tmp/");
    delete dialog;
  }
}

// --- Settings ------------------------------------------------------------------------------------------

TEST_F(MainFormTest, TheFirstStartStoresEverySettingWithItsDefault) {
  std::filesystem::remove(StoreFile);
  Open();
  Shut();
  EXPECT_EQ(ReadWholeFile(StoreFile), FirstProfile());
}

TEST_F(MainFormTest, ASecondFormShowsWhatTheFirstOneSaved) {
  Open();
  Get<QLineEdit>("EditRSSpassword").setText("ZPW\xC3\xA9 secret");
  Get<QLineEdit>("EditDundeePdusPassword").setText("abc");
  Get<QTimeEdit>("TimePickerGoesE").setTime(QTime(5, 7));
  Check("CheckListBoxEuArSectors", "c2d,HTOT,gone");
  Check("CheckListBoxEuArProducts", "M1");
  Check("CheckListBoxSectors", "");
  for (QAction* action : Get<QMenu>("MenuSources").actions()) {
    if (action->text() == "Dundee" || action->text() == "PDUS") action->trigger();
  }
  Shut();
  EXPECT_EQ(Stored("DundeePdusPassword"), ";89") << "hidden from a chance look";
  EXPECT_EQ(Stored("WantedEuArSectors") + Stored("WantedSectors"), "C2D,HTOT");
  EXPECT_EQ(Stored("GoesEslot"), "05:07");
  EXPECT_EQ(Stored("VisibleTabs"), "\"Weather data\",\"Archive Direct\",Eumetsat,GOES,PDUS");

  Open();
  EXPECT_EQ(Get<QLineEdit>("EditRSSpassword").text().toStdString(), "ZPW\xC3\xA9 secret");
  EXPECT_EQ(Get<QLineEdit>("EditDundeePdusPassword").text(), "abc");
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesE").time(), QTime(5, 7));
  const std::pair<const char*, const char*> lists[] = {{"CheckListBoxEuArSectors", "C2D,HTOT"},
                                                       {"CheckListBoxEuArProducts", "M1"},
                                                       {"CheckListBoxSectors", ""}};
  for (const auto& [list, checked] : lists)
    EXPECT_EQ(Get<TCheckListBox>(list).CheckedText(), checked) << list;
  EXPECT_FALSE(Get<QTabWidget>("PageControl").isTabVisible(2));
  EXPECT_TRUE(Get<QTabWidget>("PageControl").isTabVisible(9));
}

TEST_F(MainFormTest, ValuesThatMakeNoSenseLeaveTheDefaultOrAreNamed) {
  const std::pair<const char*, const char*> values[] = {{"GoesEslot", "25:99"},
                                                        {"GoesWslot", "6:05"},
                                                        {"WindowGeometry", "rubbish"},
                                                        {"VisibleTabs", "Nowhere,GOES"},
                                                        {"ServerMSFC", "ftp://x y"}};
  for (const auto& [name, value] : values) Store(name, value);
  Open();
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesE").time(), QTime(17, 32));
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesW").time(), QTime(6, 5));
  EXPECT_EQ(Get<QTabWidget>("PageControl").currentIndex(), 5);
  Press("ButtonRunBracknell");
  EXPECT_THAT(Server.Paths(), IsEmpty()) << "its tab is hidden";
  Check("CheckListBoxMSFCchannel", "");
  Press("ButtonRunGOES");
  EXPECT_THAT(Lines(), IsEmpty());
  Shut();

  Store("BackDays", "many");
  const std::string before = ReadWholeFile(StoreFile);
  EXPECT_THAT(test::Failure<ERegistryError>([this] { Open(); }),
              AllOf(HasSubstr("BackDays"), HasSubstr(StoreFile.string())));
  Shut();
  EXPECT_EQ(ReadWholeFile(StoreFile), before);
}

TEST_F(MainFormTest, AServerFromTheDialogIsAskedAtTheNextRun) {
  Open();
  Trigger("MenuItemServers");
  auto* dialog = static_cast<TServersDialog*>(form_->findChild<QDialog*>("ServersDialog"));
  ASSERT_NE(dialog, nullptr);
  dialog->findChild<QLineEdit*>("ServerHurricaneCentre")
      ->setText(QString::fromStdString("http://" + Server.Address()));
  dialog->accept();
  Check("CheckListBoxMSLPsources", "\"East Pacific cyclone\"");
  PressControl(Qt::Key_R);
  EXPECT_THAT(Server.Paths(), ElementsAre("/tafb/PACFUL_00Zbw.gif"));
  Shut();
  EXPECT_EQ(Stored("ServerHurricaneCentre"), "http://" + Server.Address());
}

// --- The job bracket -----------------------------------------------------------------------------------

TEST_F(MainFormTest, ARunFetchesAndPutsTheFormBack) {
  Open();
  std::string button_during;
  Clock.OnSleep = [&] { button_during = Text("ButtonRunBracknell"); };
  Get<QComboBox>("ComboBoxNotify").setCurrentIndex(2);
  Press("ButtonRunBracknell");
  EXPECT_EQ(button_during, "STOP");
  EXPECT_EQ(Text("ButtonRunBracknell"), "Run");
  EXPECT_FALSE(form_->Busy());
  EXPECT_EQ(QApplication::overrideCursor(), nullptr);
  EXPECT_EQ(Get<QProgressBar>("ProgressBar").value(), 0);
  EXPECT_EQ(Get<QLabel>("LabelBytesRX").text(), "");
  EXPECT_EQ(form_->windowIconText(), "Skyreel - from Quenmoor");
  EXPECT_THAT(Panels(), ElementsAre("Complete", ""));
  EXPECT_EQ(Bells, 1);
  EXPECT_THAT(Lines(), AllOf(SizeIs(8), Contains("http://" + Server.Address() + kFirstChart + " - OK")));
  EXPECT_EQ(FileSizeOf(Folder / "out/2005/11/10/nz_swp_0600.gif"), 2'000);
  EXPECT_THAT(Output, IsEmpty()) << "lines go to standard output in a batch only";
}

TEST_F(MainFormTest, RunOnAnotherTabStopsTheRunningJob) {
  Open();
  std::string running, pressed, told = "nothing";
  Meanwhile(kFirstChart, [&] {
    Press("ButtonRunGOES");
    running = Text("ButtonRunBracknell");
    pressed = Text("ButtonRunGOES");
  });
  Press("ButtonRunBracknell");
  EXPECT_EQ(running + pressed, "STOPWait");
  EXPECT_EQ(Text("ButtonRunBracknell") + Text("ButtonRunGOES"), "RunRun");
  EXPECT_THAT(Server.Paths(), Each(kFirstChart));
  EXPECT_EQ(Panels()[0], "Complete");
  // The next press begins a job again.
  Meanwhile(kFirstChart, [&] { told = Panels()[0]; });
  Press("ButtonRunBracknell");
  EXPECT_EQ(told, "") << "of the run before";
  EXPECT_GT(Server.Paths().size(), 8U);
}

TEST_F(MainFormTest, ClosingDuringAJobClosesWhenItHasEnded) {
  const std::vector<std::pair<const char*, std::function<void()>>> ways = {
      {"the Close button, pressed twice", [this] { Press("ButtonClose"), Press("ButtonClose"); }},
      {"the menu", [this] { Trigger("MenuItemExit"); }},
      {"the window's frame, twice", [this] { form_->close(), form_->close(); }}};
  for (const auto& [name, close] : ways) {
    SCOPED_TRACE(name);
    Open();
    std::string during;
    Meanwhile(kFirstChart, [&, close = close] {
      close();
      during = (form_->isVisible() ? "visible, " : "closed, ") + Text("ButtonClose");
    });
    const std::size_t before = Server.Paths().size();
    Press("ButtonRunBracknell");
    UntilClosed();
    EXPECT_EQ(during, "visible, Wait");
    EXPECT_EQ(Server.Paths().size(), before + 1);
    EXPECT_EQ(Text("ButtonRunBracknell"), "Run");
    Shut();
  }
}

TEST_F(MainFormTest, ASignalDuringABatchClosesAndSaves) {
  TSignalWatcher watcher;
  Open({"-mslp", "-euar", "-close"});
  watcher.Start([this] { form_->ButtonCloseClick(); });
  Get<QSpinBox>("UpDownBackDays").setValue(9);
  // The first picture comes; two signals while the second one is asked for.
  Meanwhile("/data/swp_0600_anal.gif", [&] {
    ::raise(SIGTERM);
    ::raise(SIGINT);
    QApplication::processEvents();
  });
  UntilClosed();
  Shut();
  const std::string first = "http://" + Server.Address() + kFirstChart + " - OK";
  EXPECT_EQ(Report(), first + "\r\n" + kVersionLine + "\r\n");
  EXPECT_THAT(Output, ElementsAre(first, kVersionLine));
  EXPECT_EQ(Stored("BackDays"), "9");
  EXPECT_THAT(Server.Paths(), Not(Contains(HasSubstr("idds")))) << "no further job of the batch";
}

TEST_F(MainFormTest, AnIgnoredSignalStaysSoAndOtherProgramsGetAllOfThem) {
  const auto old_handler = ::signal(SIGHUP, SIG_IGN);
  int told = 0;
  TSignalWatcher watcher;
  watcher.Start([&] { ++told; });
  for (const int number : {SIGHUP, SIGTERM}) {
    ::raise(number);
    QApplication::processEvents();
    EXPECT_EQ(told, number == SIGTERM ? 1 : 0);
  }
  sigset_t held;
  WithSignalsLetThrough([&] { ::pthread_sigmask(SIG_SETMASK, nullptr, &held); });
  EXPECT_EQ(::sigismember(&held, SIGTERM), 0);
  ::pthread_sigmask(SIG_SETMASK, nullptr, &held);
  EXPECT_EQ(::sigismember(&held, SIGTERM), 1);
  ::signal(SIGHUP, old_handler);
}

TEST_F(MainFormTest, ADialogOpenedDuringAJobDoesNotHoldItUp) {
  Open();
  Meanwhile(kFirstChart, [&] {
    Trigger("MenuItemAbout");
    Trigger("MenuItemServers");
    Press("ButtonBrowseGOES");
  });
  Press("ButtonRunBracknell");
  EXPECT_THAT(Lines(), SizeIs(7));
  EXPECT_NE(form_->findChild<QMessageBox*>(), nullptr);
  Press("ButtonClose");
  EXPECT_FALSE(form_->isVisible());
}

TEST_F(MainFormTest, WithoutCredentialsOrAnOutputFolderNothingRuns) {
  Open();
  Get<QLineEdit>("EditEuDAPassword").clear();
  Press("ButtonRunEuDA");
  const auto* box = form_->findChild<QMessageBox*>();
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->text(), "A username and password are required for this site");
  EXPECT_EQ(form_->focusWidget(), &Get("EditEuDAPassword")) << "where something has to be typed";
  EXPECT_THAT(Lines(), IsEmpty());

  Get<QLineEdit>("EditOutputPathBracknell").clear();
  Press("ButtonRunBracknell");
  EXPECT_THAT(Lines(), ElementsAre("Weather data: no output folder is chosen"));
  EXPECT_THAT(Server.Paths(), IsEmpty());
  EXPECT_FALSE(form_->Busy());
}

TEST_F(MainFormTest, TheWatchdogEndsATransferThatHangsAndTheJobGoesOn) {
  Open({}, 7min);
  // Its time passes for the transfer that hangs alone, so that a slow machine ends no other.
  auto& watchdog = Get<QTimer>("TimerWatchdog");
  QObject::connect(&watchdog, &QTimer::timeout, [&] { watchdog.setInterval(7min); });
  const auto let_it_run_out = [&] {
    EXPECT_TRUE(watchdog.isActive());
    EXPECT_EQ(watchdog.intervalAsDuration(), 7min);
    watchdog.start(0ms);
  };
  const auto later = [&] { QMetaObject::invokeMethod(qApp, let_it_run_out, Qt::QueuedConnection); };
  Server.Handle(kFirstChart, [&](const std::string&, const std::string&) {
    later();
    return "<stall>";
  });
  Press("ButtonRunBracknell");
  EXPECT_FALSE(watchdog.isActive());
  EXPECT_THAT(Lines(), SizeIs(7));
  EXPECT_EQ(FileSizeOf(Folder / "out/2005/11/10/nz_tnz_0600.gif"), 2'000);
}

// --- Report --------------------------------------------------------------------------------------------

TEST_F(MainFormTest, TheReportHoldsTheWholeLogAndNothingIsWrittenForAnEmptyOne) {
  Folder.Write("SkyreelReport.txt", "older");
  Open();
  form_->close();
  EXPECT_EQ(Report(), "older");
  Shut();
  Open();
  Press("ButtonRunBracknell");
  for (int i = 0; i < 2; ++i) form_->close();
  std::string expected;
  for (const std::string& line : Lines()) expected += line + "\r\n";
  EXPECT_EQ(Report(), expected);
  EXPECT_THAT(Lines(), AllOf(SizeIs(9), Contains(kVersionLine).Times(1)));
  EXPECT_EQ(Lines().back(), kVersionLine);
}

TEST_F(MainFormTest, AReportThatCannotBeWrittenIsToldAndTheProgramCloses) {
  ProgramFolder = Folder.Write("file", "");
  Open({"-rss", "-close"});
  UntilClosed();
  EXPECT_THAT(Errors, ElementsAre(StartsWith("The report cannot be written: ")));
  Shut();
  Open();
  Get<QLineEdit>("EditOutputPathBracknell").clear();
  Press("ButtonRunBracknell");
  form_->close();
  EXPECT_FALSE(form_->isVisible());
  const auto boxes = [] {
    return std::ranges::count_if(QApplication::topLevelWidgets(), [](QWidget* widget) {
      return qobject_cast<QMessageBox*>(widget) != nullptr && widget->isVisible();
    });
  };
  EXPECT_EQ(boxes(), 1);
  form_->CloseSoon();  // as a signal does
  EXPECT_EQ(boxes(), 0);
}

// --- Batch ---------------------------------------------------------------------------------------------

TEST_F(MainFormTest, ABatchRunsItsJobsWritesItsLinesAndCloses) {
  Open({"-mslp", "-MIN", "-CLOSE"});
  Get<QComboBox>("ComboBoxNotify").setCurrentIndex(1);
  UntilClosed();
  EXPECT_EQ(Bells, 1);
  EXPECT_TRUE(form_->isMinimized());
  EXPECT_EQ(Output, Lines()) << "each file is one line, once";
  EXPECT_THAT(Output, AllOf(SizeIs(9), Contains(kVersionLine)));
  EXPECT_THAT(Errors, IsEmpty());
}

TEST_F(MainFormTest, ABatchWithoutCloseStaysOpenForTheUserIfThereIsOne) {
  Open({"-rss"});
  for (int i = 0; i < 2; ++i) QApplication::processEvents();
  EXPECT_TRUE(form_->isVisible());
  Shut();
  Headless = true;
  Open({"-rss"});
  UntilClosed();
}

TEST_F(MainFormTest, ABatchSaysWhatItCannotRunButAllKeepsQuietAboutHiddenTabs) {
  const std::string missing = "Archive Direct: A username and password are required for this site";
  Open({"-ulm", "-RSS", "-euad", "-close"});
  Get<QLineEdit>("EditEuDAUsername").clear();
  UntilClosed();
  EXPECT_THAT(Errors, ElementsAre(AllOf(HasSubstr("\"Ulm\" is hidden"), HasSubstr("-ULM"))));
  EXPECT_THAT(Output, ElementsAre("RSS Archive: this version does not fetch from this source", missing,
                                  kVersionLine));
  Shut();
  Errors.clear();
  Output.clear();
  Open({"-all"});
  for (const char* list : {"CheckListBoxMSLPsources", "CheckListBoxEuArSectors"}) Check(list, "");
  Get<QLineEdit>("EditOutputPathMSFC").clear();
  UntilClosed();
  EXPECT_THAT(Errors, IsEmpty());
  EXPECT_THAT(Output, ElementsAre(missing, "MSFC: no output folder is chosen", kVersionLine));
}

TEST_F(MainFormTest, ABatchThatComesDueDuringARunWaitsForItsEnd) {
  Open({"-mslp", "-close"});
  Press("ButtonRunBracknell");
  EXPECT_THAT(Lines(), SizeIs(8));
  EXPECT_TRUE(form_->isVisible());
  UntilClosed();
}

}  // namespace
}  // namespace skyreel
