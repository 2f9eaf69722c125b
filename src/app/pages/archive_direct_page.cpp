#include "app/source_page.h"
#include "sources/eu_data.h"
#include "ui_archive_direct.h"

namespace skyreel {

namespace {

class TArchiveDirectPage : public TFormPage<Ui::TArchiveDirectPage> {
 public:
  explicit TArchiveDirectPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxEuDASatellites, EuDataSatelliteItems());
    SetItems(*ui_.CheckListBoxEuDAChannel, EuDataChannelItems());
    SetItems(*ui_.CheckListBoxEuDAFormats, EuDataFormatItems());
    for (QComboBox* combo : {ui_.ComboBoxEuDAmet5start, ui_.ComboBoxEuDAmet7start})
      AddItems(*combo, EuDataSlotItems());
    for (QComboBox* combo : {ui_.ComboBoxEuDAmet5interval, ui_.ComboBoxEuDAmet7interval})
      AddItems(*combo, EuDataIntervalItems());
  }

  void SelectMissingItems() override {
    for (QComboBox* combo : {ui_.ComboBoxEuDAmet5start, ui_.ComboBoxEuDAmet5interval,
                             ui_.ComboBoxEuDAmet7start, ui_.ComboBoxEuDAmet7interval})
      SelectIfNone(*combo, 0);
  }

 protected:
  TFtpLogin Login() const override {
    TFtpLogin login = TFormPage::Login();
    login.Passive = ui_.CheckBoxEuDAPassive->isChecked();
    return login;
  }

 private:
  TJob MakeJob() const override {
    TEuDataSettings settings;
    settings.OutputPath = OutputPath();
    settings.UserName = ui_.EditEuDAUsername->text().toStdString();
    settings.Password = ui_.EditEuDAPassword->text().toStdString();
    settings.Passive = ui_.CheckBoxEuDAPassive->isChecked();
    settings.UseWinInet = context_.HasWinInet && ui_.CheckBoxEuDAUseWinInet->isChecked();
    settings.Uncompress = ui_.CheckBoxEuDAuncompress->isChecked();
    for (std::size_t i = 0; i < settings.Satellites.size(); ++i) {
      settings.Satellites[i] =
          ui_.CheckListBoxEuDASatellites->item(static_cast<int>(i))->checkState() == Qt::Checked;
    }
    settings.Channels = CheckedTexts(*ui_.CheckListBoxEuDAChannel);
    settings.Formats = CheckedTexts(*ui_.CheckListBoxEuDAFormats);
    settings.StartSlot = {ui_.ComboBoxEuDAmet5start->currentIndex(),
                          ui_.ComboBoxEuDAmet7start->currentIndex()};
    settings.Interval = {ui_.ComboBoxEuDAmet5interval->currentIndex(),
                         ui_.ComboBoxEuDAmet7interval->currentIndex()};
    return [settings](TJobContext& context) { TEuDataJob(context, settings).Run(); };
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeArchiveDirectPage(const TPageContext& context) {
  return std::make_unique<TArchiveDirectPage>(context);
}

}  // namespace skyreel
