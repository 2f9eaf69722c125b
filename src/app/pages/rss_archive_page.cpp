#include "app/source_page.h"
#include "ui_rss_archive.h"

namespace skyreel {

namespace {

class TRssArchivePage : public TFormPage<Ui::TRssArchivePage> {
 public:
  using TFormPage::TFormPage;

  void SelectMissingItems() override {
    SelectIfNone(*ui_.ComboBoxRssFirstVisible, 0);
    SelectIfNone(*ui_.ComboBoxRssLastVisible, ui_.ComboBoxRssLastVisible->count() - 1);
  }
};

}  // namespace

std::unique_ptr<TSourcePage> MakeRssArchivePage(const TPageContext& context) {
  return std::make_unique<TRssArchivePage>(context);
}

}  // namespace skyreel
