#include <gmock/gmock.h>

#include <QFormLayout>
#include <QLabel>
#include <QTabWidget>
#include <QTimeEdit>
#include <map>
#include <set>

#include "app/default_paths.h"
#include "settings/persisted_controls.h"
#include "support/temp_folder.h"
#include "ui_archive_direct.h"
#include "ui_dundee.h"
#include "ui_eumetsat.h"
#include "ui_gms5.h"
#include "ui_goes.h"
#include "ui_gsfc.h"
#include "ui_msfc.h"
#include "ui_nottingham.h"
#include "ui_pdus.h"
#include "ui_rss_archive.h"
#include "ui_ulm.h"
#include "ui_weather_data.h"

namespace skyreel {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

/// What one page has to hold. Settings are "kind name": E edit, C combo box, R radio group, L check list,
/// B check box, U up-down.
struct TPageCase {
  std::function<void(QWidget&)> SetUp;
  const char* Root;
  const char* Caption;
  const char* RunButton;
  std::vector<std::string> Settings;
};

template <typename TUi>
void SetUp(QWidget& page) {
  TUi().setupUi(&page);
}

const std::vector<TPageCase>& Pages() {
  static const std::vector<TPageCase> pages = {
      {SetUp<Ui::TWeatherDataPage>,
       "TabSheetBracknell",
       "Weather data",
       "ButtonRunBracknell",
       {"E OutputPathBracknell", "L MSLPsources", "E BracknellURL"}},
      {SetUp<Ui::TArchiveDirectPage>,
       "TabSheetEuArDirect",
       "Archive Direct",
       "ButtonRunEuDA",
       {"E OutputPathEuDA", "E EuDAPassword", "E EuDAUsername", "L EuDAChannel", "B EuDA passive",
        "L EuDASatellites", "L EuDAFormats", "B EuDAUseWinInet", "C EuDAmet5start", "C EuDAmet7start",
        "C EuDAmet5interval", "C EuDAmet7interval", "B EuDAUncompres"}},
      {SetUp<Ui::TDundeePage>,
       "TabSheetDundee",
       "Dundee",
       "ButtonRunDundeeImg",
       {"E OutputPathDundeeImg", "B DundeeVisibleWithGrid", "B DundeeImgInDateFolder", "L DuEurope",
        "L DuFullDisk", "L DuMet8channels", "R DundeeMsgName", "L DuGMS", "L DuGoesE", "L DuGoesW",
        "L DuIndoex", "B DundeeIRwithGrid", "B DundeeWVwithGrid", "C DundeeImageQuality", "E DundeePassword",
        "E DundeeUsername", "B DundeeImageStdName", "B MTSAT2"}},
      {SetUp<Ui::TEumetsatPage>,
       "TabSheetEuArchive",
       "Eumetsat",
       "ButtonRunEuArchive",
       {"E OutputPathEuArchive", "B EumetsatNewNaming", "R EumetsatMsgName"}},
      {SetUp<Ui::TGms5Page>,
       "TabSheetGms5",
       "GMS-5",
       "ButtonRunGms5",
       {"E OutputPathGMS5", "L Gms5Sectors", "U Gms5ReportLevel", "B AltGMS5source"}},
      {SetUp<Ui::TGoesPage>,
       "TabSheetGOES",
       "GOES",
       "ButtonRunGOES",
       {"E OutputPathGsfc", "R GsfcInterval", "L GsfcSectors", "C GoesEsector", "C GoesWsector",
        "B GOESDateInFolder", "B GoesLzw"}},
      {SetUp<Ui::TGsfcPage>,
       "TabSheetGsfc2",
       "GSFC",
       "ButtonRunGsfc2",
       {"E OutputPathGsfc2", "L Gsfc2Satellite", "L Gsfc2Channel", "L Gsfc2DataFormat", "B Gsfc2Passive",
        "U Gsfc2ReportLevel"}},
      {SetUp<Ui::TMsfcPage>,
       "TabSheetMsfc",
       "MSFC",
       "ButtonRunMSFC",
       {"E OutputPathMSFC", "B MSFCUncompres", "B GSFCUseWinInet", "B MSFCpassive", "L MSFCchannel",
        "L MSFCslots"}},
      {SetUp<Ui::TNottinghamPage>, "TabSheetNotts", "Nottingham", "ButtonRunNotts", {"E OutputPathNotts"}},
      {SetUp<Ui::TPdusPage>,
       "TabSheetPDUS",
       "PDUS",
       "ButtonRunDundeePdus",
       {"E OutputPathDundeePdus", "E DundeePdusUsername", "E DundeePdusPassword", "L WantedPdusEurope",
        "L WantedPdusMet7", "L WantedPdusGms", "L WantedPdusGoesE", "L WantedPdusGoesW", "L WantedPdusIodc"}},
      {SetUp<Ui::TRssArchivePage>,
       "TabSheetRss",
       "RSS Archive",
       "ButtonRunRss",
       {"E OutputPathRss", "R RssInterval", "E RSSusername", "E RSSpassword", "L RSStypes", "L RSSregions",
        "B RSS passive", "L RSSchannel", "U RssReportLevel", "C RssFirstVisible", "C RssLastVisible",
        "B RssSkip103050Vis", "B RssUseWinInet", "B Rss24HourDelayedData"}},
      {SetUp<Ui::TUlmPage>,
       "TabSheetUlm",
       "Ulm",
       "ButtonRunUlm",
       {"L WantedUlm", "E OutputPathUlm", "B UlmSaveJPEG"}},
  };
  return pages;
}

/// Value names that the main form keeps outside the pages.
const char* const kFormSettings[] = {
    "Timeout",   "BackDays",          "NotifyLevel",        "UseProxy",  "ProxyPort",    "ProxyServer",
    "GoesEslot", "WantedEuArSectors", "WantedEuArProducts", "GoesWslot", "WantedSectors"};

char KindOf(const QWidget& control) {
  static const std::map<std::string, char> kinds = {
      {"skyreel::TpstEdit", 'E'},         {"skyreel::TpstComboBox", 'C'}, {"skyreel::TpstRadioGroup", 'R'},
      {"skyreel::TpstCheckListBox", 'L'}, {"skyreel::TpstCheckBox", 'B'}, {"skyreel::TpstUpDown", 'U'}};
  const auto kind = kinds.find(control.metaObject()->className());
  return kind == kinds.end() ? '?' : kind->second;
}

std::vector<QWidget*> PersistedOn(const QWidget& page) {
  std::vector<QWidget*> controls;
  for (QWidget* widget : page.findChildren<QWidget*>())
    if (dynamic_cast<TPersistedControl*>(widget) != nullptr) controls.push_back(widget);
  return controls;
}

class Page : public testing::TestWithParam<TPageCase> {
 protected:
  Page() { GetParam().SetUp(Root); }
  QWidget Root;
};

TEST_P(Page, HoldsExactlyItsSettings) {
  std::vector<std::string> found;
  for (const QWidget* control : PersistedOn(Root))
    found.push_back(KindOf(*control) + (" " + control->property("NamedAs").toString().toStdString()));
  EXPECT_THAT(found, UnorderedElementsAreArray(GetParam().Settings));
}

TEST_P(Page, HasItsNameCaptionRunAndBrowseButtonsAndDefaultFolder) {
  EXPECT_EQ(Root.objectName(), GetParam().Root);
  EXPECT_EQ(Root.windowTitle(), GetParam().Caption);
  QString source = GetParam().RunButton;
  const auto* run = Root.findChild<QPushButton*>(source);
  ASSERT_NE(run, nullptr);
  EXPECT_EQ(run->text(), "Run");
  EXPECT_NE(Root.findChild<QPushButton*>(source.replace("ButtonRun", "ButtonBrowse")), nullptr);
  const auto edits = Root.findChildren<TpstEdit*>(QRegularExpression("^EditOutputPath"));
  ASSERT_EQ(edits.size(), 1);
  EXPECT_EQ(edits[0]->objectName(), "Edit" + edits[0]->property("NamedAs").toString());
  EXPECT_EQ(edits[0]->text(), "") << "the form fills in the default folder";
  const auto has_edit = [&](const TDefaultPath& path) { return edits[0]->objectName() == path.Edit; };
  EXPECT_EQ(std::count_if(kDefaultPaths.begin(), kDefaultPaths.end(), has_edit), 1);
}

TEST_P(Page, HidesPasswordsAndOnlyThem) {
  for (const TpstEdit* edit : Root.findChildren<TpstEdit*>()) {
    const bool is_password = edit->objectName().contains("password", Qt::CaseInsensitive);
    EXPECT_EQ(edit->echoMode() == QLineEdit::Password, is_password) << edit->objectName().toStdString();
  }
}

TEST_P(Page, MnemonicsClashNeitherWithEachOtherNorWithTheWindows) {
  // The menus File, View, Tools and Help, and the shared controls below the tabs.
  const std::set<QChar> of_window = {'F', 'V', 'T', 'H', 'C', 'K', 'W', 'X', 'A', 'P', 'I'};
  std::map<QChar, std::vector<const QWidget*>> users;
  for (const QWidget* widget : Root.findChildren<QWidget*>()) {
    const QKeySequence key = QKeySequence::mnemonic(widget->property("text").toString());
    if (key.isEmpty()) continue;
    const QChar letter = key.toString().back();
    EXPECT_FALSE(of_window.contains(letter)) << widget->objectName().toStdString();
    const auto* label = qobject_cast<const QLabel*>(widget);
    EXPECT_TRUE(label == nullptr || label->buddy() != nullptr) << widget->objectName().toStdString();
    users[letter].push_back(widget);
  }
  // Two may share a letter when they are never seen together, on two pages of an inner tab control.
  const auto inner_page = [this](const QWidget* widget) {
    for (const QTabWidget* tabs : Root.findChildren<QTabWidget*>())
      for (int i = 0; i < tabs->count(); ++i)
        if (tabs->widget(i)->isAncestorOf(widget)) return i;
    return -1;
  };
  for (const auto& [letter, widgets] : users) {
    std::set<int> places;
    for (const QWidget* widget : widgets) places.insert(inner_page(widget));
    EXPECT_TRUE(widgets.size() == 1 || (places.size() == widgets.size() && !places.contains(-1)))
        << letter.toLatin1() << " twice, at " << widgets[0]->objectName().toStdString();
  }
}

TEST_P(Page, EveryControlTellsItsNameToScreenReaders) {
  std::set<const QWidget*> labelled;
  for (const QLabel* label : Root.findChildren<QLabel*>())
    if (label->buddy() != nullptr) labelled.insert(label->buddy());
  for (const QWidget* control : PersistedOn(Root)) {
    const bool has_name = !control->accessibleName().isEmpty() ||
                          !control->property("text").toString().isEmpty() ||
                          !control->property("title").toString().isEmpty();
    EXPECT_TRUE(has_name || labelled.contains(control)) << control->objectName().toStdString();
  }
}

TEST_P(Page, FitsTheSmallestWindow) {
  EXPECT_LE(Root.minimumSizeHint().width(), 900);
  EXPECT_LE(Root.minimumSizeHint().height(), 360);
}

INSTANTIATE_TEST_SUITE_P(, Page, testing::ValuesIn(Pages()),
                         [](const auto& page) { return std::string(page.param.Root); });

TEST(Pages, NoTwoSettingsShareAValueName) {
  std::vector<std::string> names(std::begin(kFormSettings), std::end(kFormSettings));
  for (const TPageCase& page : Pages())
    for (const std::string& setting : page.Settings) names.push_back(setting.substr(2));
  const std::set<std::string> unique(names.begin(), names.end());
  EXPECT_EQ(unique.size(), names.size());
}

TEST(Pages, TheFirstStartStoresTheDesignedDefaults) {
  const std::map<std::string, std::string> not_plain = {
      {"BracknellURL", "http://www.wetterzentrale.de/wz/pics/bracka.gif"},
      {"EuDAUsername", "username"},
      {"EuDAPassword", "password"},
      {"DundeeUsername", "username"},
      {"DundeePassword", "password"},
      {"DundeePdusUsername", "username"},
      {"RSSusername", "username"},
      // "password", as the form stores these two: every character XOR 0x5A.
      {"DundeePdusPassword", "*;))-5(>"},
      {"RSSpassword", "*;))-5(>"},
      {"Gms5ReportLevel", "1"},
      {"Gsfc2ReportLevel", "1"},
      {"RssReportLevel", "1"},
      {"GsfcInterval", "0"},
      {"RssInterval", "0"},
      {"GoesEsector", "0"},
      {"GoesWsector", "0"},
      {"DundeeVisibleWithGrid", "true"},
      {"DundeeImageStdName", "true"},
      {"GoesLzw", "true"},
      {"Rss24HourDelayedData", "true"},
      {"UlmSaveJPEG", "true"},
  };
  const std::map<char, std::string> plain = {{'E', ""}, {'L', ""}, {'B', "false"}, {'C', "-1"}, {'R', "-1"}};
  const test::TTempFolder folder;
  TRegistryStore store(folder / "a.conf");
  {
    QWidget window;
    for (const TPageCase& page : Pages()) page.SetUp(*new QWidget(&window));
    RestorePersistedControls(window, store);
  }
  for (const TPageCase& page : Pages()) {
    for (const std::string& setting : page.Settings) {
      const std::string name = setting.substr(2);
      const auto special = not_plain.find(name);
      EXPECT_EQ(store.ReadString(QString::fromStdString(name)).toStdString(),
                special != not_plain.end() ? special->second : plain.at(setting[0]))
          << name;
    }
  }
}

TEST(Pages, ControlsCarryTheNamesItemsAndHintsThatTheProgramUses) {
  QWidget direct, eumetsat, goes, msfc, pdus, rss, ulm, gsfc, dundee;
  Ui::TArchiveDirectPage direct_ui;
  direct_ui.setupUi(&direct);
  EXPECT_EQ(direct_ui.ComboBoxEuDAmet5start->count(), 48);
  EXPECT_EQ(direct_ui.ComboBoxEuDAmet5start->itemText(0), "0030");
  EXPECT_EQ(direct_ui.ComboBoxEuDAmet5start->itemText(47), "2400");
  for (int i = 0; i < 48; ++i)
    EXPECT_EQ(direct_ui.ComboBoxEuDAmet5start->itemText(i), direct_ui.ComboBoxEuDAmet7start->itemText(i));
  QStringList intervals;
  for (int i = 0; i < direct_ui.ComboBoxEuDAmet7interval->count(); ++i)
    intervals += direct_ui.ComboBoxEuDAmet7interval->itemText(i);
  EXPECT_EQ(intervals,
            QStringList({"30 mins", "1 hour", "2 hours", "3 hours", "6 hours", "12 hours", "24 hours"}));
  EXPECT_EQ(direct_ui.ComboBoxEuDAmet5start->toolTip(), "Choose start slot and interval for Meteosat 5");
  EXPECT_EQ(direct_ui.ComboBoxEuDAmet7interval->toolTip(), "Choose start slot and interval for Meteosat 7");
  EXPECT_EQ(direct_ui.CheckListBoxEuDAFormats->toolTip(), ".gz format not available until Feb 03");
  EXPECT_EQ(direct_ui.CheckBoxEuDAUseWinInet->toolTip(), "Use FTP functions from MS Internet Explorer");

  Ui::TEumetsatPage eumetsat_ui;
  eumetsat_ui.setupUi(&eumetsat);
  EXPECT_EQ(eumetsat_ui.CheckBoxEumetsatNewNaming->toolTip(), "For data after 2005 November 09");
  EXPECT_EQ(eumetsat_ui.RadioGroupEumetsatMsgName->title(), " Satellite ");

  Ui::TGoesPage goes_ui;
  goes_ui.setupUi(&goes);
  EXPECT_EQ(goes_ui.ComboBoxGoesEsector->itemText(0), "- none -");
  EXPECT_EQ(goes_ui.TimePickerGoesW->displayFormat(), "HH:mm");

  Ui::TMsfcPage msfc_ui;
  msfc_ui.setupUi(&msfc);
  EXPECT_EQ(msfc_ui.CheckBoxMSFCUseWinInet->property("NamedAs"), "GSFCUseWinInet");

  Ui::TPdusPage pdus_ui;
  pdus_ui.setupUi(&pdus);
  EXPECT_TRUE(pdus_ui.ButtonAnalysePDUS->isHidden());
  EXPECT_EQ(pdus_ui.PageControlPDUS->count(), 6);

  Ui::TUlmPage ulm_ui;
  ulm_ui.setupUi(&ulm);
  EXPECT_EQ(ulm_ui.CheckBoxUlmSaveJPEG->toolTip(),
            "Also corrects the cosmetic gamma adjustment performed by Ulm");

  Ui::TDundeePage dundee_ui;
  dundee_ui.setupUi(&dundee);
  QStringList captions;
  for (int i = 0; i < dundee_ui.PageControlDundee->count(); ++i)
    captions += dundee_ui.PageControlDundee->tabText(i);
  EXPECT_EQ(captions, QStringList({"Met-7", "Met-8 && 9", "MTSAT", "GOES-E", "GOES-W", "Indian Ocean"}));

  Ui::TRssArchivePage rss_ui;
  rss_ui.setupUi(&rss);
  Ui::TGsfcPage gsfc_ui;
  gsfc_ui.setupUi(&gsfc);
  for (const TpstUpDown* level : {rss_ui.UpDownRssReportLevel, gsfc_ui.UpDownGsfc2ReportLevel})
    EXPECT_EQ(std::pair(level->minimum(), level->maximum()), std::pair(0, 5));
}

}  // namespace
}  // namespace skyreel
