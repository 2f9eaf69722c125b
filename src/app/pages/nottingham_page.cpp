#include "app/source_page.h"
#include "ui_nottingham.h"

namespace skyreel {

namespace {

class TNottinghamPage : public TFormPage<Ui::TNottinghamPage> {
 public:
  explicit TNottinghamPage(const TPageContext& context) : TFormPage(context) {
    KeepChecked(*ui_.CheckListBoxSectors, "WantedSectors", "D1,D2,D3");
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeNottinghamPage(const TPageContext& context) {
  return std::make_unique<TNottinghamPage>(context);
}

}  // namespace skyreel
