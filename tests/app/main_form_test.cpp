#include "app/main_form.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QRegularExpression>
#include <QShortcut>
#include <QTabWidget>
#include <QTimeEdit>
#include <QTimer>
#include <future>

#include "app/default_paths.h"
#include "app/servers_dialog.h"
#include "app/signal_watcher.h"
#include "base/comma_text.h"
#include "base/files.h"
#include "settings/persisted_controls.h"
#include "support/fakes.h"
#include "support/scripted_server.h"
#include "support/temp_folder.h"

namespace skyreel {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/// A chart's place on the server, and how it is filed at the fixture's time.
constexpr const char* kFirstChart = "/data/swp_0000_anal.gif";
constexpr const char* kVersionLine = "Skyreel - V" SKYREEL_VERSION;

/// The real form on a temporary settings store. Its chart servers lead to Server, its output folders into the
/// temporary folder.
class MainFormTest : public testing::Test {
 protected:
  MainFormTest() {
    // A whole profile, as a first start leaves it; then the strings that tests need are put into it.
    static const std::string profile = [this] {
      Open();
      Shut();
      return ReadWholeFile(StoreFile());
    }();
    Folder.Write("Skyreel.conf", profile);
    TRegistryStore store(StoreFile());
    for (const char* name : {"ServerNewZealand", "ServerAustralia", "ServerEuArchiveNew"}) {
      store.WriteString(name, QString::fromStdString("http://" + Server.Address()));
    }
    for (const char* name :
         {"OutputPathBracknell", "OutputPathEuArchive", "OutputPathEuDA", "OutputPathMSFC"}) {
      store.WriteString(name, QString::fromStdString((Folder / "out/").string()));
    }
  }
  ~MainFormTest() override {
    Shut();
    for (QWidget* widget : QApplication::topLevelWidgets()) delete widget;
  }

  std::filesystem::path StoreFile() const { return Folder / "Skyreel.conf"; }

  void Open(std::vector<std::string> arguments = {}, std::chrono::milliseconds watchdog = 20min) {
    store_ = std::make_unique<TRegistryStore>(StoreFile());
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
  void Check(const char* list, const char* items) const { Get<TCheckListBox>(list).SetCheckedText(items); }
  void Trigger(const char* action) const { Get<QAction>(action).trigger(); }

  /// Lets events through until the condition holds; gives up after a long time.
  static void Until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
      QApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
    }
  }

  /// Serves all charts of New Zealand.
  void ServeCharts() {
    for (const auto& [time, modified] : {std::pair{"0000", "Thu, 10 Nov 2005 00:30:00 GMT"},
                                         {"0600", "Thu, 10 Nov 2005 06:30:00 GMT"},
                                         {"1200", "Wed, 09 Nov 2005 12:30:00 GMT"},
                                         {"1800", "Wed, 09 Nov 2005 18:30:00 GMT"}}) {
      for (const char* area : {"swp", "tnz"}) {
        Server.Answer(std::string("/data/") + area + "_" + time + "_anal.gif", std::string(2'000, 'x'),
                      {std::string("Last-Modified: ") + modified});
      }
    }
  }
  /// Once the server is asked for `path`, calls `action` on the form's thread, inside the job's wait; only
  /// then the server answers, with a 404.
  void Meanwhile(const std::string& path, std::function<void()> action) {
    Server.AnswerScript(path, test::TScript()
                                  .Call([action] {
                                    auto done = std::make_shared<std::promise<void>>();
                                    const auto run = [action, done] {
                                      action();
                                      done->set_value();
                                    };
                                    QMetaObject::invokeMethod(qApp, run, Qt::QueuedConnection);
                                    done->get_future().wait_for(20s);
                                  })
                                  .Reply(test::HttpReply("none", {}, "404 Not found")));
  }

  std::string Report() const { return ReadWholeFile(ProgramFolder / "SkyreelReport.txt"); }
  /// A value as it stands in the settings file.
  std::string Stored(const char* name) const {
    return TRegistryStore(StoreFile()).ReadString(name).toStdString();
  }

  test::TTempFolder Folder;
  test::THttpServer Server;
  test::TFakeClock Clock{TDateTime::FromDate(2005, 11, 10, 12, 0)};
  std::filesystem::path ProgramFolder = Folder.Path();
  bool Headless = false;
  int Bells = 0;
  std::vector<std::string> Output;
  std::vector<std::string> Errors;

  std::unique_ptr<TRegistryStore> store_;
  std::unique_ptr<TFormMain> form_;
};

// --- The window ----------------------------------------------------------------------------------------

TEST_F(MainFormTest, ShowsTheSourcesThatAreShownAtStart) {
  Open();
  const auto& tabs = Get<QTabWidget>("PageControl");
  std::vector<std::string> all, visible;
  for (int i = 0; i < tabs.count(); ++i) {
    all.push_back(tabs.tabText(i).toStdString());
    if (tabs.isTabVisible(i)) visible.push_back(all.back());
  }
  EXPECT_THAT(all, ElementsAre("Weather data", "Archive Direct", "Dundee", "Eumetsat", "GMS-5", "GOES",
                               "GSFC", "MSFC", "Nottingham", "PDUS", "RSS Archive", "Ulm"));
  EXPECT_THAT(visible, ElementsAre("Weather data", "Archive Direct", "Dundee", "Eumetsat", "GOES"));
  const auto& dundee = Get<QTabWidget>("PageControlDundee");
  EXPECT_EQ(dundee.tabText(0), "Met-7");
  EXPECT_FALSE(dundee.isTabVisible(0));
  EXPECT_TRUE(Get("ButtonAnalysePDUS").isHidden());
  EXPECT_EQ(form_->windowTitle(), "Quenmoor's Skyreel - automated Web file retriever - V" SKYREEL_VERSION);
  EXPECT_EQ(form_->windowIconText(), "Skyreel - from Quenmoor");
  EXPECT_FALSE(Get<QAction>("MenuItemRunOrbiscope").isEnabled());
  for (const char* box : {"CheckBoxEuDAUseWinInet", "CheckBoxMSFCUseWinInet", "CheckBoxRssUseWinInet"}) {
    EXPECT_TRUE(Get(box).isHidden()) << box;
  }
}

TEST_F(MainFormTest, PageKeysGoRoundTheShownTabs) {
  Open();
  const auto& tabs = Get<QTabWidget>("PageControl");
  const auto press = [this](int key) {
    for (QShortcut* shortcut : form_->findChildren<QShortcut*>()) {
      if (shortcut->key() == QKeySequence(Qt::CTRL | key)) emit shortcut->activated();
    }
  };
  std::vector<std::string> seen;
  for (int key : {Qt::Key_PageUp, Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_PageDown}) {
    press(key);
    seen.push_back(tabs.tabText(tabs.currentIndex()).toStdString());
  }
  EXPECT_THAT(seen, ElementsAre("GOES", "Eumetsat", "GOES", "Weather data"));
}

TEST_F(MainFormTest, HasARunButtonForEverySourceAndDisablesThoseThatCannotRun) {
  Open();
  for (const TSourcePage& page : SourcePages()) {
    const auto& run = Get<QAbstractButton>(page.RunButton);
    EXPECT_EQ(run.text(), "Run") << page.Caption;
    EXPECT_EQ(run.isEnabled(), page.Run != nullptr) << page.Caption;
    EXPECT_FALSE(run.toolTip().isEmpty()) << page.Caption;
  }
}

TEST_F(MainFormTest, SelectsAnItemWhereNoneIsStored) {
  Open();
  EXPECT_EQ(Get<TpstRadioGroup>("RadioGroupEumetsatMsgName").ItemIndex(), 0);
  EXPECT_EQ(Get<TpstRadioGroup>("RadioGroupDundeeMsgName").ItemIndex(), 0);
  for (const char* name : {"ComboBoxEuDAmet5start", "ComboBoxEuDAmet5interval", "ComboBoxEuDAmet7start",
                           "ComboBoxEuDAmet7interval", "ComboBoxRssFirstVisible", "ComboBoxNotify"}) {
    EXPECT_EQ(Get<QComboBox>(name).currentIndex(), 0) << name;
  }
  for (const char* name : {"ComboBoxDundeeImageQuality", "ComboBoxRssLastVisible"}) {
    EXPECT_GT(Get<QComboBox>(name).count(), 1) << name;
    EXPECT_EQ(Get<QComboBox>(name).currentIndex(), Get<QComboBox>(name).count() - 1) << name;
  }
  EXPECT_EQ(Get<QComboBox>("ComboBoxGoesEsector").currentText(), "- none -");
  EXPECT_EQ(Get<TCheckListBox>("CheckListBoxEuArSectors").CheckedText(), "D1,D2,D3");
}

TEST_F(MainFormTest, EveryMnemonicOfATabIsItsOwn) {
  Open();
  const auto mnemonic = [](const QString& text) {
    const auto match = QRegularExpression("&([^&])").match(QString(text).remove("&&"));
    return match.hasMatch() ? match.captured(1).toLower().toStdString() : std::string();
  };
  std::map<std::string, std::string> shared;
  const auto take = [&](std::map<std::string, std::string>& taken, const QString& text) {
    const std::string letter = mnemonic(text);
    if (letter.empty()) return;
    EXPECT_EQ(taken.count(letter), 0U) << text.toStdString() << " and " << taken[letter];
    taken[letter] = text.toStdString();
  };
  for (const QAction* action : form_->menuBar()->actions()) take(shared, action->text());
  for (const QLabel* label : Get("PanelShared").findChildren<QLabel*>()) take(shared, label->text());
  for (const auto* button : Get("PanelShared").findChildren<QAbstractButton*>()) take(shared, button->text());
  for (const TSourcePage& page : SourcePages()) {
    SCOPED_TRACE(page.Caption);
    std::map<std::string, std::string> taken = shared;
    // What stands on an inner page shares the window with the outer ones only.
    const auto inner = Get(page.Page).findChildren<QTabWidget*>();
    const auto outside = [&](const QWidget* widget) {
      return inner.isEmpty() || !inner[0]->isAncestorOf(widget);
    };
    for (const QLabel* label : Get(page.Page).findChildren<QLabel*>()) {
      if (outside(label)) take(taken, label->text());
    }
    for (const auto* button : Get(page.Page).findChildren<QAbstractButton*>()) {
      if (outside(button)) take(taken, button->text());
    }
  }
}

TEST_F(MainFormTest, AnOutputPathGainsItsSeparatorAndKeepsTheCursor) {
  Open();
  for (const TDefaultPath& row : kDefaultPaths) {
    auto& edit = Get<QLineEdit>(row.Edit);
    edit.setText("/tmp/x");
    EXPECT_EQ(edit.text(), "/tmp/x/") << row.Edit;
    edit.clear();
    EXPECT_EQ(edit.text(), "") << row.Edit;
  }
  auto& edit = Get<QLineEdit>("EditOutputPathGsfc");
  for (const char* key : {"/", "a", "b"}) edit.insert(key);
  EXPECT_EQ(edit.text(), "/ab/");
}

TEST_F(MainFormTest, BrowseWritesTheChosenFolderIntoItsOwnEdit) {
  Open();
  for (std::size_t i = 0; i < SourcePages().size(); ++i) {
    auto& edit = Get<QLineEdit>(kDefaultPaths[i].Edit);
    edit.setText("/tmp/");
    Press(SourcePages()[i].BrowseButton);
    auto* dialog = form_->findChild<QFileDialog*>();
    ASSERT_NE(dialog, nullptr) << SourcePages()[i].Caption;
    dialog->reject();
    EXPECT_EQ(edit.text(), "/tmp/");
    emit dialog->fileSelected("/var/tmp");
    EXPECT_EQ(edit.text(), "/var/tmp/") << SourcePages()[i].Caption;
    delete dialog;
  }
}

TEST_F(MainFormTest, OrbiscopeCanBeRunWhereItIsRecorded) {
  const auto program = Folder.Write("Orbiscope", "");
  RegisterAppPath(Folder / "App Paths.conf", program);
  Open();
  EXPECT_TRUE(Get<QAction>("MenuItemRunOrbiscope").isEnabled());
  EXPECT_EQ(ReadAppPath(Folder / "App Paths.conf", "Skyreel"), "/opt/skyreel/Skyreel");
}

// --- Settings ------------------------------------------------------------------------------------------

TEST_F(MainFormTest, ASecondFormShowsWhatTheFirstOneSaved) {
  Open();
  Get<QLineEdit>("EditEuDAUsername").setText("jane");
  Get<QLineEdit>("EditEuDAPassword").setText("as typed");
  Get<QLineEdit>("EditRSSpassword").setText("ZPW\xC3\xA9 secret");
  Get<QLineEdit>("EditDundeePdusPassword").setText("abc");
  Get<QSpinBox>("UpDownTimeout").setValue(77);
  Get<QCheckBox>("CheckBoxUseProxy").setChecked(true);
  Get<TpstRadioGroup>("RadioGroupEumetsatMsgName").SetItemIndex(2);
  Get<QTimeEdit>("TimePickerGoesE").setTime(QTime(5, 7));
  Check("CheckListBoxPdusEurope", "\"0030, Meteosat Europe, Visible\"");
  Check("CheckListBoxEuArSectors", "c2d,HTOT,gone");
  Check("CheckListBoxEuArProducts", "M1");
  Check("CheckListBoxSectors", "");
  for (QAction* action : Get<QMenu>("MenuSources").actions()) {
    if (action->text() == "Dundee" || action->text() == "PDUS") action->trigger();
  }
  Shut();
  EXPECT_EQ(Stored("EuDAPassword"), "as typed");
  EXPECT_EQ(Stored("DundeePdusPassword"), ";89");
  EXPECT_EQ(Stored("WantedEuArSectors"), "C2D,HTOT");
  EXPECT_EQ(Stored("WantedSectors"), "");
  EXPECT_EQ(Stored("GoesEslot"), "05:07");
  EXPECT_EQ(Stored("VisibleTabs"), "\"Weather data\",\"Archive Direct\",Eumetsat,GOES,PDUS");

  Open();
  EXPECT_EQ(Get<QLineEdit>("EditEuDAUsername").text(), "jane");
  EXPECT_EQ(Get<QLineEdit>("EditRSSpassword").text().toStdString(), "ZPW\xC3\xA9 secret");
  EXPECT_EQ(Get<QLineEdit>("EditDundeePdusPassword").text(), "abc");
  EXPECT_EQ(Get<QSpinBox>("UpDownTimeout").value(), 77);
  EXPECT_TRUE(Get<QCheckBox>("CheckBoxUseProxy").isChecked());
  EXPECT_EQ(Get<TpstRadioGroup>("RadioGroupEumetsatMsgName").ItemIndex(), 2);
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesE").time(), QTime(5, 7));
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesW").time(), QTime(17, 30));
  EXPECT_EQ(Get<TCheckListBox>("CheckListBoxPdusEurope").CheckedText(), "\"0030, Meteosat Europe, Visible\"");
  EXPECT_EQ(Get<TCheckListBox>("CheckListBoxEuArSectors").CheckedText(), "C2D,HTOT");
  EXPECT_EQ(Get<TCheckListBox>("CheckListBoxEuArProducts").CheckedText(), "M1");
  EXPECT_EQ(Get<TCheckListBox>("CheckListBoxSectors").CheckedText(), "");
  const auto& tabs = Get<QTabWidget>("PageControl");
  EXPECT_FALSE(tabs.isTabVisible(2));
  EXPECT_TRUE(tabs.isTabVisible(9));
}

TEST_F(MainFormTest, ValuesThatMakeNoSenseLeaveTheDefault) {
  {
    TRegistryStore store(StoreFile());
    store.WriteString("GoesEslot", "25:99");
    store.WriteString("GoesWslot", "6:05");
    store.WriteString("WindowGeometry", "rubbish");
    store.WriteString("VisibleTabs", "Nowhere,GOES");
  }
  Open();
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesE").time(), QTime(17, 32));
  EXPECT_EQ(Get<QTimeEdit>("TimePickerGoesW").time(), QTime(6, 5));
  EXPECT_EQ(Get<QTabWidget>("PageControl").currentIndex(), 5);
}

TEST_F(MainFormTest, AReadErrorNamesTheValueAndLeavesTheStoreAsItWas) {
  TRegistryStore(StoreFile()).WriteString("BackDays", "many");
  const std::string before = ReadWholeFile(StoreFile());
  try {
    Open();
    FAIL() << "no error";
  } catch (const ERegistryError& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("BackDays"), HasSubstr(StoreFile().string())));
  }
  Shut();
  EXPECT_EQ(ReadWholeFile(StoreFile()), before);
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
  Press("ButtonRunBracknell");
  EXPECT_THAT(Server.Paths(), ElementsAre("/tafb/PACFUL_00Zbw.gif"));
  Shut();
  EXPECT_EQ(Stored("ServerHurricaneCentre"), "http://" + Server.Address());
}

TEST_F(MainFormTest, AServerThatIsNoneIsNamedInTheLog) {
  TRegistryStore(StoreFile()).WriteString("ServerMSFC", "ftp://x y");
  Open();
  Press("ButtonRunBracknell");
  EXPECT_THAT(form_->Log().Lines(),
              ElementsAre(StartsWith("MSFC data (FTP): the server in the settings is not used")));
}

// --- The job bracket -----------------------------------------------------------------------------------

TEST_F(MainFormTest, ARunFetchesAndPutsTheFormBack) {
  ServeCharts();
  Open();
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  std::string button_during, panel_during;
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
  std::vector<std::string> panels;
  for (const QLabel* label : Get("StatusBar").findChildren<QLabel*>())
    panels.push_back(label->text().toStdString());
  EXPECT_THAT(panels, ElementsAre("Complete", ""));
  EXPECT_EQ(Bells, 1);
  EXPECT_THAT(form_->Log().Lines(),
              AllOf(SizeIs(8), Contains("http://" + Server.Address() + kFirstChart + " - OK")));
  EXPECT_EQ(FileSizeOf(Folder / "out/2005/11/10/nz_swp_0600.gif"), 2'000);
  EXPECT_THAT(Output, IsEmpty()) << "lines go to standard output in a batch only";
}

TEST_F(MainFormTest, RunOnAnotherTabStopsTheRunningJob) {
  ServeCharts();
  Open();
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  std::string running, pressed;
  Meanwhile(kFirstChart, [&] {
    Press("ButtonRunGOES");
    running = Text("ButtonRunBracknell");
    pressed = Text("ButtonRunGOES");
  });
  Press("ButtonRunBracknell");
  EXPECT_EQ(running, "STOP");
  EXPECT_EQ(pressed, "Wait");
  EXPECT_EQ(Text("ButtonRunBracknell"), "Run");
  EXPECT_EQ(Text("ButtonRunGOES"), "Run");
  EXPECT_THAT(Server.Paths(), Each(kFirstChart));
  // The next press begins a job again.
  ServeCharts();
  const auto& phase = *Get("StatusBar").findChildren<QLabel*>().at(0);
  std::string told = "nothing";
  Meanwhile(kFirstChart, [&] { told = phase.text().toStdString(); });
  EXPECT_EQ(phase.text(), "Complete");
  Press("ButtonRunBracknell");
  EXPECT_EQ(told, "") << "of the run before";
  EXPECT_GT(Server.Paths().size(), 8U);
}

TEST_F(MainFormTest, ClosingDuringAJobClosesWhenItHasEnded) {
  ServeCharts();
  const std::vector<std::pair<const char*, std::function<void()>>> ways = {
      {"the Close button", [this] { Press("ButtonClose"); }},
      {"the menu", [this] { Trigger("MenuItemExit"); }},
      {"the window's frame", [this] { form_->close(); }},
      {"both, twice",
       [this] {
         form_->close();
         Press("ButtonClose");
         Press("ButtonClose");
         form_->close();
       }},
  };
  for (const auto& [name, close] : ways) {
    SCOPED_TRACE(name);
    Open();
    Check("CheckListBoxMSLPsources", "\"New Zealand\"");
    bool visible_during = false;
    std::string button;
    Meanwhile(kFirstChart, [&, close = close] {
      close();
      visible_during = form_->isVisible();
      button = Text("ButtonClose");
    });
    const std::size_t before = Server.Paths().size();
    Press("ButtonRunBracknell");
    Until([this] { return !form_->isVisible(); });
    EXPECT_TRUE(visible_during);
    EXPECT_EQ(button, "Wait");
    EXPECT_EQ(Server.Paths().size(), before + 1);
    EXPECT_EQ(Text("ButtonRunBracknell"), "Run");
    Shut();
  }
}

TEST_F(MainFormTest, ASignalDuringAJobClosesAndSaves) {
  ServeCharts();
  TSignalWatcher watcher;
  Open({"-mslp", "-euar", "-close"});
  watcher.Start([this] { form_->ButtonCloseClick(); });
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Get<QSpinBox>("UpDownBackDays").setValue(9);
  Server.Answer("/data/swp_0600_anal.gif", "", {}, "404 Not found");
  int passes = 0;
  // The first picture comes; two signals while the second one is asked for.
  Meanwhile("/data/swp_0600_anal.gif", [&] {
    ++passes;
    ::raise(SIGTERM);
    ::raise(SIGINT);
    QApplication::processEvents();
  });
  Until([this] { return !form_->isVisible(); });
  EXPECT_EQ(passes, 1);
  Shut();
  const std::string first = "http://" + Server.Address() + kFirstChart + " - OK";
  EXPECT_EQ(Report(), first + "\r\n" + kVersionLine + "\r\n");
  EXPECT_THAT(Output, ElementsAre(first, kVersionLine));
  EXPECT_EQ(TRegistryStore(StoreFile()).ReadInteger("BackDays"), 9);
  EXPECT_THAT(Server.Paths(), Not(Contains(HasSubstr("idds")))) << "no further job of the batch";
}

TEST_F(MainFormTest, ADialogOpenedDuringAJobDoesNotHoldItUp) {
  ServeCharts();
  Open();
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Meanwhile(kFirstChart, [&] {
    Trigger("MenuItemAbout");
    Trigger("MenuItemServers");
    Press("ButtonBrowseGOES");
  });
  Press("ButtonRunBracknell");
  EXPECT_THAT(form_->Log().Lines(), SizeIs(7));
  EXPECT_NE(form_->findChild<QMessageBox*>(), nullptr);
  form_->close();
  EXPECT_FALSE(form_->isVisible());
}

TEST_F(MainFormTest, MissingCredentialsAreAskedForWithoutAJob) {
  Open();
  Get<QLineEdit>("EditEuDAPassword").clear();
  Press("ButtonRunEuDA");
  const auto* box = form_->findChild<QMessageBox*>();
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->text(), "A username and password are required for this site");
  EXPECT_EQ(form_->focusWidget(), &Get("EditEuDAPassword")) << "where something has to be typed";
  EXPECT_THAT(form_->Log().Lines(), IsEmpty());
}

TEST_F(MainFormTest, WithoutAnOutputFolderNothingRuns) {
  ServeCharts();
  Open();
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Get<QLineEdit>("EditOutputPathBracknell").clear();
  Press("ButtonRunBracknell");
  EXPECT_THAT(form_->Log().Lines(), ElementsAre("Weather data: no output folder is chosen"));
  EXPECT_THAT(Server.Paths(), IsEmpty());
  EXPECT_FALSE(form_->Busy());
}

TEST_F(MainFormTest, TheWatchdogEndsATransferThatHangsAndTheJobGoesOn) {
  ServeCharts();
  Open({}, 7min);
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  // Its time passes for the transfer that hangs alone, so that a slow machine ends no other.
  auto& watchdog = Get<QTimer>("TimerWatchdog");
  QObject::connect(&watchdog, &QTimer::timeout, [&] { watchdog.setInterval(7min); });
  const auto let_it_run_out = [&] {
    EXPECT_TRUE(watchdog.isActive());
    EXPECT_EQ(watchdog.intervalAsDuration(), 7min);
    watchdog.start(0ms);
  };
  Server.AnswerScript(
      kFirstChart, test::TScript()
                       .Call([&] { QMetaObject::invokeMethod(qApp, let_it_run_out, Qt::QueuedConnection); })
                       .Stall());
  Press("ButtonRunBracknell");
  EXPECT_FALSE(watchdog.isActive());
  EXPECT_THAT(form_->Log().Lines(), SizeIs(7));
  EXPECT_GE(FileSizeOf(Folder / "out/2005/11/10/nz_tnz_0600.gif"), 2'000);
}

// --- Report --------------------------------------------------------------------------------------------

TEST_F(MainFormTest, TheReportHoldsTheWholeLogAndNothingIsWrittenForAnEmptyOne) {
  Open();
  form_->close();
  EXPECT_FALSE(std::filesystem::exists(ProgramFolder / "SkyreelReport.txt"));
  Shut();
  Folder.Write("SkyreelReport.txt", "older");
  ServeCharts();
  Open();
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Press("ButtonRunBracknell");
  form_->close();
  form_->close();
  std::string expected;
  for (const std::string& line : form_->Log().Lines()) expected += line + "\r\n";
  EXPECT_EQ(Report(), expected);
  EXPECT_THAT(form_->Log().Lines(), AllOf(SizeIs(9), Contains(kVersionLine).Times(1)));
  EXPECT_EQ(form_->Log().Lines().back(), kVersionLine);
}

TEST_F(MainFormTest, AReportThatCannotBeWrittenIsToldAndTheProgramCloses) {
  Folder.Write("file", "");
  ProgramFolder = Folder / "file";
  Open({"-rss", "-close"});
  Until([this] { return !form_->isVisible(); });
  EXPECT_THAT(Errors, ElementsAre(StartsWith("The report cannot be written: ")));
  Shut();

  Open();
  Press("ButtonRunBracknell");
  Get<QLineEdit>("EditOutputPathBracknell").clear();
  Press("ButtonRunBracknell");
  form_->close();
  EXPECT_FALSE(form_->isVisible());
  int boxes = 0;
  for (QWidget* widget : QApplication::topLevelWidgets())
    boxes += qobject_cast<QMessageBox*>(widget) != nullptr;
  EXPECT_EQ(boxes, 1);
}

// --- Batch ---------------------------------------------------------------------------------------------

TEST_F(MainFormTest, ABatchRunsItsJobsWritesItsLinesAndCloses) {
  ServeCharts();
  Open({"-mslp", "-MIN", "-CLOSE"});
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Get<QComboBox>("ComboBoxNotify").setCurrentIndex(1);
  Until([this] { return !form_->isVisible(); });
  EXPECT_EQ(Bells, 1);
  EXPECT_TRUE(form_->isMinimized());
  EXPECT_EQ(Output, form_->Log().Lines()) << "each file is one line, once";
  EXPECT_THAT(Output, AllOf(SizeIs(9), Contains(kVersionLine)));
  EXPECT_THAT(Errors, IsEmpty());
}

TEST_F(MainFormTest, ABatchWithoutCloseStaysOpenForTheUser) {
  Open({"-mslp"});
  QApplication::processEvents();
  QApplication::processEvents();
  EXPECT_TRUE(form_->isVisible());
}

TEST_F(MainFormTest, ABatchThatNobodySeesAlwaysCloses) {
  Headless = true;
  Open({"-mslp"});
  Until([this] { return !form_->isVisible(); });
}

TEST_F(MainFormTest, ABatchSaysWhatItCannotRun) {
  Open({"-ulm", "-RSS", "-dun", "-euad", "-close"});
  Get<QLineEdit>("EditEuDAUsername").clear();
  Until([this] { return !form_->isVisible(); });
  EXPECT_THAT(Errors, ElementsAre(AllOf(HasSubstr("\"Ulm\" is hidden"), HasSubstr("-ULM"))));
  EXPECT_THAT(Output, ElementsAre("RSS Archive: this version does not fetch from this source",
                                  "Dundee: this version does not fetch from this source",
                                  "Archive Direct: A username and password are required for this site",
                                  kVersionLine));
}

TEST_F(MainFormTest, AllKeepsQuietAboutWhatItWasNotAskedForByName) {
  Open({"-all"});
  for (const char* list : {"CheckListBoxEuArSectors", "CheckListBoxMSFCslot"}) Check(list, "");
  Get<QTabWidget>("PageControl").setCurrentIndex(0);
  Get<QLineEdit>("EditEuDAUsername").clear();
  // The FTP job of the hidden MSFC tab runs too; nobody listens there.
  Get<QLineEdit>("EditOutputPathMSFC").clear();
  Until([this] { return !form_->isVisible(); });
  EXPECT_THAT(Errors, IsEmpty());
  EXPECT_THAT(Output, ElementsAre("Archive Direct: A username and password are required for this site",
                                  "MSFC: no output folder is chosen", kVersionLine));
}

TEST_F(MainFormTest, ABatchThatComesDueDuringARunWaitsForItsEnd) {
  ServeCharts();
  Open({"-mslp", "-close"});
  Check("CheckListBoxMSLPsources", "\"New Zealand\"");
  Press("ButtonRunBracknell");
  EXPECT_THAT(form_->Log().Lines(), SizeIs(8));
  EXPECT_TRUE(form_->isVisible());
  Until([this] { return !form_->isVisible(); });
}

}  // namespace
}  // namespace skyreel
