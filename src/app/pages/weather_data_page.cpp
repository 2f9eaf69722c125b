#include "app/source_page.h"
#include "sources/met_charts.h"
#include "ui_weather_data.h"

namespace skyreel {

namespace {

class TWeatherDataPage : public TFormPage<Ui::TWeatherDataPage> {
 public:
  explicit TWeatherDataPage(const TPageContext& context) : TFormPage(context) {
    SetItems(*ui_.CheckListBoxMSLPsources, MetChartItems());
  }

 private:
  TJob MakeJob() const override {
    TMetChartsSettings settings;
    settings.OutputPath = OutputPath();
    settings.Sources = CheckedTexts(*ui_.CheckListBoxMSLPsources);
    settings.BracknellUrl = ui_.EditBracknellURL->text().toStdString();
    return [settings](TJobContext& context) { TMetChartsJob(context, settings).Run(); };
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeWeatherDataPage(const TPageContext& context) {
  return std::make_unique<TWeatherDataPage>(context);
}

}  // namespace skyreel
