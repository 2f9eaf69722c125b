#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/live_settings.h"
#include "catalogue/catalogue.h"
#include "catalogue/volume.h"
#include "journal/journal.h"
#include "sources/job_context.h"

namespace skyreel {

/// The described sources and what the user wants of them: what the page "Live" shows and runs.
class TLiveSources {
 public:
  /// Reads the settings, but no description yet. The store and the journal outlive the object.
  TLiveSources(TRegistryStore& store, TSourceFolders folders, TJournal& journal);
  /// Saves the settings.
  ~TLiveSources();
  TLiveSources(const TLiveSources&) = delete;

  /// Reads all descriptions. When a file has become wrong, its old description stays in use.
  void Load();
  /// An entry without a file is a ticked id that no description has.
  const TCatalogue& Catalogue() const { return *catalogue_; }
  /// Null when the id has no sound description.
  const TDescription* Find(const std::string& id) const;

  /// The same for a run, during which Load may be called. Null also when its terms are not accepted.
  std::shared_ptr<const TDescription> FindAccepted(const std::string& id) const;

  TSourceHealth Health(const TDescription& source) const;
  /// The plan of the next run, as far as no server is asked.
  TPlan Plan(const TDescription& source, const std::filesystem::path& output, TDateTime now) const;
  /// What the next run of these sources may fetch.
  TVolume Volume(const std::vector<std::string>& ids, const std::filesystem::path& output,
                 TDateTime now) const;

  /// The source's file, if the user may change it; else empty.
  std::filesystem::path UsersFile(const std::string& id) const;
  /// Stores a description in the user's folder, in place of the user's file with this id. Throws
  /// std::system_error.
  std::filesystem::path Keep(const std::string& id, const std::string& text) const;
  /// The text of a source's file. Throws std::system_error.
  std::string TextOf(const std::string& id) const;
  /// The user's folder and the files in it; a change of one means that Load has something new.
  std::vector<std::filesystem::path> Watched() const;

  /// Those of the sources whose terms the user must accept before they run.
  std::vector<const TDescription*> NotAccepted(const std::vector<std::string>& ids) const;

  /// The job of a run of these sources. One that cannot run, and one whose terms are not accepted, gets a
  /// record and a line that say so.
  void Run(TJobContext& context, const std::vector<std::string>& ids, const std::filesystem::path& output);

  TLiveSettings Settings;

 private:
  std::string WhyNotRun(const TCatalogueEntry* entry) const;
  bool IsAccepted(const TDescription& source) const;

  TRegistryStore& store_;
  const TSourceFolders folders_;
  TJournal& journal_;
  std::shared_ptr<const TCatalogue> catalogue_;  ///< shared with runs, which refer to its descriptions
};

/// The terms of a licence in words: "CC BY 4.0", "Crown copyright; for personal use only".
std::string TermsText(const TLicence& licence);

}  // namespace skyreel
