#include "app/source_page.h"
#include "sources/msfc_data.h"
#include "ui_msfc.h"

namespace skyreel {

namespace {

class TMsfcPage : public TFormPage<Ui::TMsfcPage> {
 public:
  explicit TMsfcPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxMSFCchannel, MsfcChannelItems());
    SetItems(*ui_.CheckListBoxMSFCslot, MsfcSlotItems());
  }

 protected:
  TFtpLogin Login() const override {
    TFtpLogin login;
    login.UserID = "anonymous";
    login.Password = kAnonymousPassword;
    login.Passive = ui_.CheckBoxMSFCpassive->isChecked();
    return login;
  }

 private:
  TJob MakeJob() const override {
    TMsfcSettings settings;
    settings.OutputPath = OutputPath();
    settings.Passive = ui_.CheckBoxMSFCpassive->isChecked();
    settings.UseWinInet = context_.HasWinInet && ui_.CheckBoxMSFCUseWinInet->isChecked();
    settings.Uncompress = ui_.CheckBoxMSFCuncompress->isChecked();
    settings.Channels = CheckedTexts(*ui_.CheckListBoxMSFCchannel);
    settings.Slots = CheckedTexts(*ui_.CheckListBoxMSFCslot);
    return [settings](TJobContext& context) { TMsfcJob(context, settings).Run(); };
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeMsfcPage(const TPageContext& context) {
  return std::make_unique<TMsfcPage>(context);
}

}  // namespace skyreel
