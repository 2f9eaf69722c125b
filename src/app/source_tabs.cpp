#include "app/source_tabs.h"

#include <QTabBar>
#include <algorithm>
#include <functional>

#include "app/signs.h"
#include "base/comma_text.h"

namespace skyreel {

namespace {

/// The captions of the sources for which `wanted` is true, as comma text.
template <typename TWanted>
QString Captions(TWanted wanted) {
  std::vector<std::string> captions;
  for (const TSource& source : Sources()) {
    if (std::invoke(wanted, source)) captions.push_back(source.Caption);
  }
  return QString::fromStdString(ToCommaText(captions));
}

bool Has(const std::vector<std::string>& captions, const char* caption) {
  return std::ranges::find(captions, caption) != captions.end();
}

}  // namespace

TSourceTabs::TSourceTabs(QStackedWidget& area, QTabWidget& tabs, QMenu& menu,
                         const TPageEnvironment& environment)
    : area_(area),
      tabs_(tabs),
      VisibleTabs_(environment.Store, "VisibleTabs", Captions(&TSource::ShownAtStart)),
      // Older versions knew all tabs but that of the described sources, and did not store this.
      SeenTabs_(environment.Store, "SeenTabs",
                Captions([](const TSource& source) { return !source.Described; })),
      LastTab_(environment.Store, "LastTab", "") {
  std::vector<std::string> shown = FromCommaText(VisibleTabs_.Value.toStdString());
  const std::vector<std::string> seen = FromCommaText(SeenTabs_.Value.toStdString());
  for (const TSource& source : Sources()) {
    if (source.ShownAtStart && !Has(seen, source.Caption) && !Has(shown, source.Caption))
      shown.push_back(source.Caption);
  }
  VisibleTabs_.Value = QString::fromStdString(ToCommaText(shown));
  SeenTabs_.Value = Captions([](const TSource&) { return true; });
  for (const TSource& source : Sources()) {
    TSourcePage* page = MakePage({environment, source}).release();
    pages_.push_back(page);
    page->OnPainted = [this] { std::ranges::for_each(pages_, &TSourcePage::Measure); };
    tabs_.addTab(page, source.Caption);
    QAction* action = menu.addAction(source.Caption);
    actions_.push_back(action);
    action->setCheckable(true);
    action->setChecked(Has(shown, source.Caption));
    tabs_.setTabVisible(tabs_.indexOf(page), action->isChecked());
    QObject::connect(action, &QAction::toggled, page, [this, page](bool on) { ShowTab(*page, on); });
  }
  menu.addSeparator();
  for (const auto& [text, shown] : {std::pair("Show &all", true), std::pair("Show &none", false)})
    QObject::connect(menu.addAction(text), &QAction::triggered, &tabs_,
                     [this, shown = shown] { ShowAll(shown); });

  TSourcePage* current = nullptr;
  for (TSourcePage* page : pages_) {
    if (!IsShown(*page)) continue;
    if (current == nullptr || page->Source().Caption == LastTab_.Value) current = page;
  }
  if (current != nullptr) MakeCurrent(*current);
  ShowTabsOrHint();
}

TSourcePage& TSourceTabs::PageOf(const TSource& source) const {
  return **std::ranges::find_if(pages_, [&](TSourcePage* page) { return &page->Source() == &source; });
}

TSourcePage* TSourceTabs::PageThatRuns(const std::string& source) const {
  // The first page knows all described sources; one of a tab belongs to the page of that tab.
  const auto page = std::ranges::find_if(pages_.rbegin(), pages_.rend(),
                                         [&](TSourcePage* each) { return each->Runs(source); });
  return page == pages_.rend() ? nullptr : *page;
}

TSourcePage* TSourceTabs::CurrentPage() const {
  // With all tabs hidden one of them is still the current one.
  const int index = tabs_.currentIndex();
  return tabs_.isTabVisible(index) ? pages_[static_cast<std::size_t>(index)] : nullptr;
}

bool TSourceTabs::IsShown(const TSourcePage& page) const {
  return tabs_.isTabVisible(tabs_.indexOf(&page));
}

void TSourceTabs::MakeCurrent(TSourcePage& page) {
  tabs_.setCurrentWidget(&page);
}

void TSourceTabs::ShowRunning(const TSourcePage& page, bool running) {
  const int index = tabs_.indexOf(&page);
  const QString caption = page.Source().Caption;
  tabs_.setTabIcon(index, running ? SignIcon(TSign::Running) : QIcon());
  tabs_.setTabToolTip(index, running ? caption + " is running" : "");
  tabs_.tabBar()->setAccessibleTabName(index, running ? caption + ", running" : caption);
}

void TSourceTabs::ShowNext(int step) {
  int index = tabs_.currentIndex();
  for (int i = 0; i < tabs_.count(); ++i) {
    index = (index + step + tabs_.count()) % tabs_.count();
    if (tabs_.isTabVisible(index)) return tabs_.setCurrentIndex(index);
  }
}

void TSourceTabs::RememberCurrent() {
  if (const TSourcePage* page = CurrentPage()) LastTab_.Value = page->Source().Caption;
}

void TSourceTabs::ShowAll(bool shown) {
  TSourcePage* current = CurrentPage();
  for (QAction* action : actions_) action->setChecked(shown);
  if (shown) MakeCurrent(current != nullptr ? *current : *pages_.front());
}

void TSourceTabs::ShowTabsOrHint() {
  area_.setCurrentIndex(CurrentPage() != nullptr ? 0 : 1);
}

void TSourceTabs::ShowTab(TSourcePage& page, bool shown) {
  tabs_.setTabVisible(tabs_.indexOf(&page), shown);
  if (shown) MakeCurrent(page);
  ShowTabsOrHint();
  std::vector<std::string> captions;
  for (std::size_t i = 0; i < pages_.size(); ++i) {
    if (actions_[i]->isChecked()) captions.push_back(pages_[i]->Source().Caption);
  }
  VisibleTabs_.Value = QString::fromStdString(ToCommaText(captions));
}

}  // namespace skyreel
