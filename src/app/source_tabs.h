#pragma once

#include <QMenu>
#include <QStackedWidget>
#include <QTabWidget>
#include <memory>
#include <vector>

#include "app/source_page.h"
#include "settings/registry_variable.h"

namespace skyreel {

/// The pages of all sources, each in its tab, and the menu that shows and hides the tabs. With all tabs
/// hidden a hint says how to show one.
class TSourceTabs {
 public:
  /// Makes the pages. The tab widget owns them. `area` holds the tab widget and the hint, in this order. The
  /// menu outlives this object.
  TSourceTabs(QStackedWidget& area, QTabWidget& tabs, QMenu& menu, const TPageEnvironment& environment);

  /// In the order of Sources().
  const std::vector<TSourcePage*>& Pages() const { return pages_; }
  TSourcePage& PageOf(const TSource& source) const;
  /// The page that runs this source, the tab's or a described one; null when none does.
  TSourcePage* PageThatRuns(const std::string& source) const;
  /// The page that the user sees; nullptr when all tabs are hidden.
  TSourcePage* CurrentPage() const;
  bool IsShown(const TSourcePage& page) const;
  void MakeCurrent(TSourcePage& page);
  /// Marks the tab of the page whose job is running, or takes the mark away.
  void ShowRunning(const TSourcePage& page, bool running);
  /// Makes the next tab (1) or the one before it (-1) the current one, round the ends; skips hidden ones.
  void ShowNext(int step);
  /// The next start shows the current tab.
  void RememberCurrent();

 private:
  void ShowTab(TSourcePage& page, bool shown);
  void ShowAll(bool shown);
  void ShowTabsOrHint();

  QStackedWidget& area_;
  QTabWidget& tabs_;
  std::vector<TSourcePage*> pages_;
  std::vector<QAction*> actions_;  ///< of the menu, in the order of the pages
  TRegistryString VisibleTabs_, SeenTabs_, LastTab_;
};

}  // namespace skyreel
