#include "app/source_page.h"
#include "sources/met_charts.h"
#include "ui_weather_data.h"

namespace skyreel {

namespace {

class TWeatherDataPage : public TFormPage<Ui::TWeatherDataPage> {
 public:
  explicit TWeatherDataPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxMSLPsources, MetChartItems());
    connect(ui_.ButtonRunBracknell, &QPushButton::clicked, this, &TWeatherDataPage::ButtonRunBracknellClick);
  }

 private:
  void ButtonRunBracknellClick() {
    RunJob([this](TJobContext& context) {
      TMetChartsSettings settings;
      settings.OutputPath = OutputPath();
      settings.Sources = CheckedTexts(*ui_.CheckListBoxMSLPsources);
      settings.BracknellUrl = ui_.EditBracknellURL->text().toStdString();
      TMetChartsJob(context, settings).Run();
    });
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeWeatherDataPage(const TPageContext& context) {
  return std::make_unique<TWeatherDataPage>(context);
}

}  // namespace skyreel
