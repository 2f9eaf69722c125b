#pragma once

#include <QLabel>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/source_page.h"
#include "catalogue/plan.h"
#include "settings/registry_variable.h"

namespace skyreel {

/// The pictures of a tab whose service has closed: described sources that name the tab serve its controls.
/// Owned by its page.
class TBoundSources {
 public:
  /// Adds a line to the page, which says whose pictures it gets.
  TBoundSources(TSourcePage& page, const TPageEnvironment& environment);

  /// Reads the descriptions once, fills the line, and turns off the items that no description serves.
  void Load();
  /// The source of this tab with this id. Null when there is none, or when its terms are not accepted.
  std::shared_ptr<const TDescription> Find(const std::string& id);
  /// Runs what the controls choose, with `start`, which runs a job. Shows first the terms that the user has
  /// not accepted; when nobody answers, such a source does not run, and a line says so.
  void Run(const std::function<void(const TSourcePage::TJob& job)>& start);

 private:
  bool MustAsk(const TDescription& source) const;
  void RunJob(TJobContext& context) const;

  TSourcePage& page_;
  const TPageEnvironment environment_;
  QLabel* const line_;
  std::optional<TRegistryString> Accepted_;      ///< ids whose terms the user has accepted, as comma text
  std::shared_ptr<const TCatalogue> catalogue_;  ///< shared with runs
  std::vector<const TDescription*> sources_;
};

/// What the controls of a page choose for a source that is bound to them. A control that is not there leaves
/// its variable to the default.
TChoices ChoicesOf(const QWidget& page, const TDescription& source);

}  // namespace skyreel
