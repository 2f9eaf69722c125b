#pragma once

#include <map>
#include <set>
#include <string>

#include "app/terms.h"
#include "catalogue/described_run.h"
#include "settings/registry_store.h"

namespace skyreel {

/// What the user wants of the described sources, by their ids. In the settings these are strings of comma
/// text. Ids that no source has are kept: their file may come back.
struct TLiveSettings {
  /// Reads the settings. Ignores entries that cannot be read.
  explicit TLiveSettings(TRegistryStore& store);
  void Save(TRegistryStore& store) const;

  /// What is wanted of a source. It refers to the source.
  TWantedSource Wanted(const TDescription& source) const;

  std::set<std::string> Ticked;             ///< "LiveTicked"
  TTermsAnswers Terms;                      ///< "LiveAccepted"
  std::map<std::string, TChoices> Choices;  ///< "LiveChoices": "id/variable=value", "id/variable=" for none
  std::map<std::string, int> Days;          ///< "LiveDays": "id=days"; without, the newest slot alone
  std::map<std::string, int> KeepDays;      ///< "LiveKeepDays": "id=days"; without, all files are kept
};

}  // namespace skyreel
