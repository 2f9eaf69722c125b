#include "app/source_page.h"
#include "sources/eu_archive.h"
#include "ui_eumetsat.h"

namespace skyreel {

namespace {

class TEumetsatPage : public TFormPage<Ui::TEumetsatPage> {
 public:
  explicit TEumetsatPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxEuArSectors, EuArchiveSectorItems());
    SetItems(*ui_.CheckListBoxEuArProducts, EuArchiveProductItems());
    KeepChecked(*ui_.CheckListBoxEuArSectors, "WantedEuArSectors", "D1,D2,D3");
    KeepChecked(*ui_.CheckListBoxEuArProducts, "WantedEuArProducts", "");
  }

  void SelectMissingItems() override {
    if (ui_.RadioGroupEumetsatMsgName->ItemIndex() < 0) ui_.RadioGroupEumetsatMsgName->SetItemIndex(0);
  }

 private:
  TJob MakeJob() const override {
    TEuArchiveSettings settings;
    settings.OutputPath = OutputPath();
    settings.NewNaming = ui_.CheckBoxEumetsatNewNaming->isChecked();
    settings.MsgName = ui_.RadioGroupEumetsatMsgName->ItemIndex();
    settings.Items = CheckedTexts(*ui_.CheckListBoxEuArSectors);
    for (std::string& item : CheckedTexts(*ui_.CheckListBoxEuArProducts))
      settings.Items.push_back(std::move(item));
    return [settings](TJobContext& context) { TEuArchiveJob(context, settings).Run(); };
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeEumetsatPage(const TPageContext& context) {
  return std::make_unique<TEumetsatPage>(context);
}

}  // namespace skyreel
