#include "app/source_page.h"
#include "sources/dundee_pdus.h"
#include "ui_pdus.h"

namespace skyreel {

namespace {

class TPdusSourcePage : public TFormPage<Ui::TPdusPage> {
 public:
  explicit TPdusSourcePage(const TPageContext& context) : TFormPage(context) {
    ui_.ButtonAnalysePDUS->hide();
    const auto lists = Lists();
    for (std::size_t i = 0; i < lists.size(); ++i) SetItems(*lists[i], PdusPages().at(i).Items);
    connect(ui_.ButtonAnalysePDUS, &QPushButton::clicked, this, &TPdusSourcePage::ButtonAnalysePDUSClick);
  }

 private:
  /// In the order of PdusPages().
  std::array<TCheckListBox*, 6> Lists() const {
    return {ui_.CheckListBoxPdusEurope, ui_.CheckListBoxWantedPdusMet7, ui_.CheckListBoxPdusGms,
            ui_.CheckListBoxPdusGoesE,  ui_.CheckListBoxPdusGoesW,      ui_.CheckListBoxPdusIODC};
  }

  TJob MakeJob() const override {
    TPdusSettings settings;
    settings.OutputPath = OutputPath();
    settings.UserName = ui_.EditDundeePdusUsername->text().toStdString();
    settings.Password = ui_.EditDundeePdusPassword->text().toStdString();
    for (const TCheckListBox* list : Lists()) {
      for (std::string& item : CheckedTexts(*list)) settings.Wanted.push_back(std::move(item));
    }
    return [settings](TJobContext& context) { TPdusJob(context, settings).Run(); };
  }

  void ButtonAnalysePDUSClick() {
    try {
      AnalysePdus(context_.ProgramFolder, std::filesystem::current_path());
    } catch (const std::exception& error) {
      Fire(OnMessage, "Analyse PDUS", error.what());
    }
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakePdusPage(const TPageContext& context) {
  return std::make_unique<TPdusSourcePage>(context);
}

}  // namespace skyreel
