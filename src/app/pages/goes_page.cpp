#include "app/source_page.h"
#include "sources/goes_gsfc.h"
#include "ui_goes.h"

namespace skyreel {

namespace {

/// The first item is "- none -".
std::string SectorOf(const QComboBox& combo) {
  return combo.currentIndex() > 0 ? combo.currentText().toStdString() : "";
}

std::chrono::minutes TimeOfDay(const QTimeEdit& picker) {
  return std::chrono::minutes(picker.time().hour() * 60 + picker.time().minute());
}

class TGoesPage : public TFormPage<Ui::TGoesPage> {
 public:
  explicit TGoesPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxGsfcSectors, GoesProductItems());
    AddItems(*ui_.ComboBoxGoesEsector, GoesSectorNames());
    AddItems(*ui_.ComboBoxGoesWsector, GoesSectorNames());
    KeepTime(*ui_.TimePickerGoesE, "GoesEslot", "17:32");
    KeepTime(*ui_.TimePickerGoesW, "GoesWslot", "17:30");
  }

 private:
  TJob MakeJob() const override {
    TGoesSettings settings;
    settings.OutputPath = OutputPath();
    settings.Sectors = CheckedTexts(*ui_.CheckListBoxGsfcSectors);
    settings.Interval = ui_.RadioGroupGsfcInterval->ItemIndex();
    settings.ESector = SectorOf(*ui_.ComboBoxGoesEsector);
    settings.WSector = SectorOf(*ui_.ComboBoxGoesWsector);
    settings.ETime = TimeOfDay(*ui_.TimePickerGoesE);
    settings.WTime = TimeOfDay(*ui_.TimePickerGoesW);
    settings.DateInFolder = ui_.CheckBoxGOESDateInFolder->isChecked();
    settings.Lzw = ui_.CheckBoxGoesLzw->isChecked();
    return [settings](TJobContext& context) { TGoesJob(context, settings).Run(); };
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeGoesPage(const TPageContext& context) {
  return std::make_unique<TGoesPage>(context);
}

}  // namespace skyreel
