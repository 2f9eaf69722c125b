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

/// What one page has to hold. A setting is a letter for its kind (Edit, Combo box, Radio group, check List,
/// Box to check, Up-down), its name, and behind "=" its designed default, if that is not the kind's own.
struct TPageCase {
  std::function<void(QWidget&)> SetUp;
  const char *Root, *Caption, *RunButton;
  const char* Settings;
};

template <typename TUi>
void SetUp(QWidget& page) {
  TUi().setupUi(&page);
}

// "*;))-5(>" is "password" as the form stores these two: every character XOR 0x5A.
const TPageCase kPages[] = {
    {SetUp<Ui::TWeatherDataPage>, "TabSheetBracknell", "Weather data", "ButtonRunBracknell",
     "EOutputPathBracknell,LMSLPsources,EBracknellURL=http://www.wetterzentrale.de/wz/pics/bracka.gif"},
    {SetUp<Ui::TArchiveDirectPage>, "TabSheetEuArDirect", "Archive Direct", "ButtonRunEuDA",
     "EOutputPathEuDA,EEuDAPassword=password,EEuDAUsername=username,LEuDAChannel,BEuDA "
     "passive,LEuDASatellites,"
     "LEuDAFormats,BEuDAUseWinInet,CEuDAmet5start,CEuDAmet7start,CEuDAmet5interval,CEuDAmet7interval,"
     "BEuDAUncompres"},
    {SetUp<Ui::TDundeePage>, "TabSheetDundee", "Dundee", "ButtonRunDundeeImg",
     "EOutputPathDundeeImg,BDundeeVisibleWithGrid=true,BDundeeImgInDateFolder,LDuEurope,LDuFullDisk,"
     "LDuMet8channels,RDundeeMsgName,LDuGMS,LDuGoesE,LDuGoesW,LDuIndoex,BDundeeIRwithGrid,BDundeeWVwithGrid,"
     "CDundeeImageQuality,EDundeePassword=password,EDundeeUsername=username,BDundeeImageStdName=true,"
     "BMTSAT2"},
    {SetUp<Ui::TEumetsatPage>, "TabSheetEuArchive", "Eumetsat", "ButtonRunEuArchive",
     "EOutputPathEuArchive,BEumetsatNewNaming,REumetsatMsgName"},
    {SetUp<Ui::TGms5Page>, "TabSheetGms5", "GMS-5", "ButtonRunGms5",
     "EOutputPathGMS5,LGms5Sectors,UGms5ReportLevel=1,BAltGMS5source"},
    {SetUp<Ui::TGoesPage>, "TabSheetGOES", "GOES", "ButtonRunGOES",
     "EOutputPathGsfc,RGsfcInterval=0,LGsfcSectors,CGoesEsector=0,CGoesWsector=0,BGOESDateInFolder,BGoesLzw="
     "true"},
    {SetUp<Ui::TGsfcPage>, "TabSheetGsfc2", "GSFC", "ButtonRunGsfc2",
     "EOutputPathGsfc2,LGsfc2Satellite,LGsfc2Channel,LGsfc2DataFormat,BGsfc2Passive,UGsfc2ReportLevel=1"},
    {SetUp<Ui::TMsfcPage>, "TabSheetMsfc", "MSFC", "ButtonRunMSFC",
     "EOutputPathMSFC,BMSFCUncompres,BGSFCUseWinInet,BMSFCpassive,LMSFCchannel,LMSFCslots"},
    {SetUp<Ui::TNottinghamPage>, "TabSheetNotts", "Nottingham", "ButtonRunNotts", "EOutputPathNotts"},
    {SetUp<Ui::TPdusPage>, "TabSheetPDUS", "PDUS", "ButtonRunDundeePdus",
     "EOutputPathDundeePdus,EDundeePdusUsername=username,EDundeePdusPassword=*;))-5(>,LWantedPdusEurope,"
     "LWantedPdusMet7,LWantedPdusGms,LWantedPdusGoesE,LWantedPdusGoesW,LWantedPdusIodc"},
    {SetUp<Ui::TRssArchivePage>, "TabSheetRss", "RSS Archive", "ButtonRunRss",
     "EOutputPathRss,RRssInterval=0,ERSSusername=username,ERSSpassword=*;))-5(>,LRSStypes,LRSSregions,"
     "BRSS passive,LRSSchannel,URssReportLevel=1,CRssFirstVisible,CRssLastVisible,BRssSkip103050Vis,"
     "BRssUseWinInet,BRss24HourDelayedData=true"},
    {SetUp<Ui::TUlmPage>, "TabSheetUlm", "Ulm", "ButtonRunUlm",
     "LWantedUlm,EOutputPathUlm,BUlmSaveJPEG=true"}};

/// Value names that the main form keeps outside the pages.
const char* const kFormSettings[] = {
    "Timeout",   "BackDays",          "NotifyLevel",        "UseProxy",  "ProxyPort",    "ProxyServer",
    "GoesEslot", "WantedEuArSectors", "WantedEuArProducts", "GoesWslot", "WantedSectors"};

std::vector<QWidget*> PersistedOn(const QWidget& page) {
  std::vector<QWidget*> controls;
  for (QWidget* widget : page.findChildren<QWidget*>())
    if (dynamic_cast<TPersistedControl*>(widget) != nullptr) controls.push_back(widget);
  return controls;
}

TEST(Pages, HoldExactlyTheirSettingsAndStoreTheirDefaultsAtTheFirstStart) {
  const std::map<std::string, char> kinds = {
      {"skyreel::TpstEdit", 'E'},         {"skyreel::TpstComboBox", 'C'}, {"skyreel::TpstRadioGroup", 'R'},
      {"skyreel::TpstCheckListBox", 'L'}, {"skyreel::TpstCheckBox", 'B'}, {"skyreel::TpstUpDown", 'U'}};
  const std::map<char, std::string> plain = {{'E', ""},   {'L', ""},   {'B', "false"},
                                             {'C', "-1"}, {'R', "-1"}, {'U', "?"}};
  const test::TTempFolder folder;
  std::multiset<std::string> names(std::begin(kFormSettings), std::end(kFormSettings));
  for (const TPageCase& c : kPages) {
    std::set<std::string> found;
    std::map<std::string, char> kind_of;
    TRegistryStore store(folder / c.Root);
    {
      QWidget page;
      c.SetUp(page);
      for (const QWidget* control : PersistedOn(page)) {
        const std::string name = control->property("NamedAs").toString().toStdString();
        kind_of[name] = kinds.at(control->metaObject()->className());
        names.insert(name);
      }
      RestorePersistedControls(page, store);
    }
    for (const auto& [name, kind] : kind_of) {
      const std::string value = store.ReadString(QString::fromStdString(name)).toStdString();
      found.insert(kind + name + (value == plain.at(kind) ? "" : "=" + value));
    }
    std::set<std::string> expected;
    for (const QString& setting : QString(c.Settings).split(',')) expected.insert(setting.toStdString());
    EXPECT_EQ(found, expected);
  }
  for (const std::string& name : names) EXPECT_EQ(names.count(name), 1u) << name;
}

TEST(Pages, HaveTheirNameCaptionButtonsAndOutputPathAndFitTheSmallestWindow) {
  for (const TPageCase& c : kPages) {
    SCOPED_TRACE(c.Root);
    QWidget page;
    c.SetUp(page);
    EXPECT_EQ(page.objectName(), c.Root);
    EXPECT_EQ(page.windowTitle(), c.Caption);
    QString button = c.RunButton;
    ASSERT_NE(page.findChild<QPushButton*>(button), nullptr);
    EXPECT_EQ(page.findChild<QPushButton*>(button)->text(), "Run");
    EXPECT_NE(page.findChild<QPushButton*>(button.replace("ButtonRun", "ButtonBrowse")), nullptr);
    const auto edits = page.findChildren<TpstEdit*>(QRegularExpression("^EditOutputPath"));
    ASSERT_EQ(edits.size(), 1);
    EXPECT_EQ(edits[0]->objectName(), "Edit" + edits[0]->property("NamedAs").toString());
    EXPECT_TRUE(std::ranges::any_of(
        kDefaultPaths, [&](const TDefaultPath& path) { return edits[0]->objectName() == path.Edit; }));
    EXPECT_LE(page.minimumSizeHint().width(), 900);
    EXPECT_LE(page.minimumSizeHint().height(), 360);
  }
}

TEST(Pages, HidePasswordsAndTellEveryControlsNameToScreenReaders) {
  for (const TPageCase& c : kPages) {
    QWidget page;
    c.SetUp(page);
    for (const TpstEdit* edit : page.findChildren<TpstEdit*>()) {
      const bool is_password = edit->objectName().contains("password", Qt::CaseInsensitive);
      EXPECT_EQ(edit->echoMode() == QLineEdit::Password, is_password) << edit->objectName().toStdString();
    }
    std::set<const QWidget*> labelled;
    for (const QLabel* label : page.findChildren<QLabel*>()) {
      labelled.insert(label->buddy());
      EXPECT_TRUE(label->buddy() != nullptr || QKeySequence::mnemonic(label->text()).isEmpty()) << c.Root;
    }
    for (const QWidget* control : PersistedOn(page)) {
      const QString name = control->accessibleName() + control->property("text").toString() +
                           control->property("title").toString();
      EXPECT_TRUE(!name.isEmpty() || labelled.contains(control)) << control->objectName().toStdString();
    }
  }
}

TEST(Pages, CarryTheTextsThatTheProgramUses) {
  QWidget all;
  for (const TPageCase& c : kPages) c.SetUp(*new QWidget(&all));
  const struct {
    const char *Control, *Property, *Text;
  } cases[] = {
      {"ComboBoxEuDAmet5start", "toolTip", "Choose start slot and interval for Meteosat 5"},
      {"ComboBoxEuDAmet7interval", "toolTip", "Choose start slot and interval for Meteosat 7"},
      {"CheckListBoxEuDAFormats", "toolTip", ".gz format not available until Feb 03"},
      {"CheckBoxEuDAUseWinInet", "toolTip", "Use FTP functions from MS Internet Explorer"},
      {"CheckBoxEumetsatNewNaming", "toolTip", "For data after 2005 November 09"},
      {"RadioGroupEumetsatMsgName", "title", " Satellite "},
      {"TimePickerGoesW", "displayFormat", "HH:mm"},
      {"CheckBoxMSFCUseWinInet", "NamedAs", "GSFCUseWinInet"},
      {"CheckBoxUlmSaveJPEG", "toolTip", "Also corrects the cosmetic gamma adjustment performed by Ulm"},
      {"UpDownRssReportLevel", "maximum", "5"},
      {"UpDownGsfc2ReportLevel", "maximum", "5"},
  };
  for (const auto& c : cases) {
    const auto* control = all.findChild<QWidget*>(c.Control);
    ASSERT_NE(control, nullptr) << c.Control;
    EXPECT_EQ(control->property(c.Property).toString(), c.Text) << c.Control;
  }
  const auto* tabs = all.findChild<QTabWidget*>("PageControlDundee");
  QStringList captions;
  for (int i = 0; i < tabs->count(); ++i) captions += tabs->tabText(i);
  EXPECT_EQ(captions, QStringList({"Met-7", "Met-8 && 9", "MTSAT", "GOES-E", "GOES-W", "Indian Ocean"}));
}

}  // namespace
}  // namespace skyreel
