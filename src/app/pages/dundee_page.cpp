#include "app/source_page.h"
#include "ui_dundee.h"

namespace skyreel {

namespace {

class TDundeePage : public TFormPage<Ui::TDundeePage> {
 public:
  explicit TDundeePage(const TPageContext& context) : TFormPage(context) {
    QTabWidget& pages = *ui_.PageControlDundee;
    pages.setTabVisible(pages.indexOf(ui_.TabSheetDundeeMet7), false);
  }

  void SelectMissingItems() override {
    if (ui_.RadioGroupDundeeMsgName->ItemIndex() < 0) ui_.RadioGroupDundeeMsgName->SetItemIndex(0);
    SelectIfNone(*ui_.ComboBoxDundeeImageQuality, ui_.ComboBoxDundeeImageQuality->count() - 1);
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeDundeePage(const TPageContext& context) {
  return std::make_unique<TDundeePage>(context);
}

}  // namespace skyreel
