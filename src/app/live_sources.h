#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/coverage_source.h"
#include "app/live_settings.h"
#include "app/preview.h"
#include "app/source_page.h"
#include "catalogue/volume.h"
#include "journal/journal.h"
#include "sources/job_context.h"

namespace skyreel {

/// The health of each source, by its id; nothing is known of a source with a wrong description.
using THealths = std::map<std::string, TSourceHealth>;

/// The described sources and what the user wants of them: what the page "Live" shows and runs. An operation
/// that names a source needs descriptions. What reads the disk or the journal is made as a function for a
/// worker thread; it does not refer to this object.
class TLiveSources {
 public:
  /// Reads the settings.
  explicit TLiveSources(const TPageEnvironment& environment);
  /// Saves the settings.
  ~TLiveSources();
  TLiveSources(const TLiveSources&) = delete;

  /// There are descriptions.
  bool AreRead() const { return environment_.Catalogue.Current() != nullptr; }
  const TCatalogue& Catalogue() const { return *environment_.Catalogue.Current(); }
  /// Null when the id has no sound description.
  const TDescription* Find(const std::string& id) const;
  /// What is wanted of those of the sources that have a sound description.
  std::vector<TWantedSource> Wanted(const std::vector<std::string>& ids) const;

  /// The same for a run, during which the descriptions may be read anew. Null also when its terms are not
  /// accepted, and before the first reading.
  std::shared_ptr<const TDescription> FindAccepted(const std::string& id) const;

  /// Nothing while another program has locked the journal.
  std::function<std::optional<THealths>()> HealthWork() const;
  /// The preview of the next run.
  std::function<TPreview()> PreviewWork(const TDescription& source, const std::filesystem::path& output,
                                        TDateTime now) const;
  /// The coverage of the sources that are ticked or have run; empty while there are no descriptions.
  std::vector<TCoverageSource> CoverageSources(const std::filesystem::path& output,
                                               const THealths& healths) const;
  /// What the next run of these sources may fetch.
  std::function<TVolume()> VolumeWork(const std::vector<std::string>& ids,
                                      const std::filesystem::path& output, TDateTime now) const;

  /// The source's file, if the user may change it; else empty.
  std::filesystem::path UsersFile(const std::string& id) const;
  /// The file that a user's description with this id goes into.
  std::filesystem::path FileToKeep(const std::string& id) const;
  /// The user's folder and the files in it; a change of one means that there is something new to read.
  std::vector<std::filesystem::path> Watched() const;

  /// The job of a run of these sources. One that cannot run, and one whose terms are not accepted, gets a
  /// record and a line that say so.
  void Run(TJobContext& context, const std::vector<std::string>& ids, const std::filesystem::path& output);

  TLiveSettings Settings;

 private:
  std::string WhyNotRun(const TCatalogueEntry* entry) const;

  const TPageEnvironment environment_;
};

}  // namespace skyreel
