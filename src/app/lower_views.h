#pragma once

#include <QTabWidget>
#include <functional>

#include "settings/registry_variable.h"

namespace skyreel {

/// The views in the lower half of the window, each in its tab. A view is made when its tab is first shown, so
/// that the window opens as fast as without it.
class TLowerViews {
 public:
  /// `tabs` holds the views that are made already, and outlives this object.
  TLowerViews(QTabWidget& tabs, TRegistryStore& store);

  /// Adds a tab. `make` makes its view once; the tab owns it.
  void Add(const QString& title, std::function<QWidget*()> make);
  /// Shows the tab that the user saw last.
  void ShowLast();
  /// The next start shows the current tab.
  void RememberCurrent();

  /// A view was made: it now stands at the end of the focus chain.
  std::function<void()> OnMade;

 private:
  QTabWidget& tabs_;
  TRegistryString LowerTab_;
};

}  // namespace skyreel
