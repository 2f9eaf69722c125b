#pragma once

#include <QLabel>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/source_page.h"
#include "app/terms.h"
#include "catalogue/plan.h"
#include "settings/registry_variable.h"

namespace skyreel {

/// The pictures of a tab whose service has closed: described sources that name the tab serve its controls.
/// Owned by its page.
class TBoundSources {
 public:
  /// Adds a line to the page, which says whose pictures it gets.
  TBoundSources(TSourcePage& page, const TPageEnvironment& environment);

  ~TBoundSources();

  /// There are new descriptions: fills the line, and turns off the items that no description serves.
  void CatalogueRead();
  /// A source of this tab by its id; null without one, and while its terms are not accepted.
  std::shared_ptr<const TDescription> Find(const std::string& id) const;
  bool Accepts(const std::string& id) const { return answers_.Accepts(id); }
  using TStart = std::function<void(const TSourcePage::TJob& job)>;
  /// Runs what the controls choose, with `start`, which runs a job. Shows first the terms that the user has
  /// not accepted; when nobody answers, such a source does not run, and a line says so.
  void Run(const TStart& start);
  /// Reads the controls. The result looks on the disk and in the journal, on any thread.
  std::function<TPreview()> PreviewMaker(const TJobPlanRequest& request) const;
  /// The coverage of what the controls choose.
  std::vector<TCoverageSource> CoverageSources() const;

 private:
  /// What the controls choose. A source of which nothing is chosen is not among them.
  std::vector<TWantedSource> Wanted() const;
  void RunJob(TJobContext& context) const;

  TSourcePage& page_;
  const TPageEnvironment environment_;
  QLabel* const line_;
  TSharedCatalogue::TPtr catalogue_;          ///< holds the sources
  std::vector<const TDescription*> sources_;  ///< of this tab
  std::optional<TRegistryString> Terms_;      ///< the answers in the settings
  TTermsAnswers answers_{""};
};

/// What the controls of a page choose for a source that is bound to them. A control that is not there leaves
/// its variable to the default.
TChoices ChoicesOf(const QWidget& page, const TDescription& source);

}  // namespace skyreel
