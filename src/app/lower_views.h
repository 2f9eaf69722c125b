#pragma once

#include <QTabWidget>
#include <functional>
#include <vector>

#include "settings/registry_variable.h"

namespace skyreel {

/// The views in the lower half of the window, each in its tab. A view is made when its tab is first shown, so
/// that the window opens as fast as without it.
class TLowerViews {
 public:
  /// `tabs` has the tab of the log, which `find_in_log` searches. It outlives this object.
  TLowerViews(QTabWidget& tabs, TRegistryStore& store, std::function<void()> find_in_log);

  /// Adds a tab. `make` makes its view once; the tab owns it. `find` lets the user search in the view, and
  /// may be empty.
  void Add(const QString& title, std::function<QWidget*()> make, std::function<void()> find = {});
  /// Lets the user search in the current view.
  void Find() const;
  /// Shows the tab with this title, if there is one.
  void Show(const QString& title);
  /// Shows the tab that the user saw last.
  void ShowLast() { Show(LowerTab_.Value); }
  /// The next start shows the current tab.
  void RememberCurrent();

  /// A view was made: it now stands at the end of the focus chain.
  std::function<void()> OnMade;

 private:
  QTabWidget& tabs_;
  TRegistryString LowerTab_;
  std::vector<std::function<void()>> finds_;  ///< of each tab
};

}  // namespace skyreel
