#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/description.h"

namespace skyreel {

/// A description that is built into the program.
struct TEmbeddedDescription {
  std::string_view Name;  ///< of its file: "goes-east.toml"
  std::string_view Text;
};
/// The files of src/catalogue/sources, by name.
const std::vector<TEmbeddedDescription>& EmbeddedDescriptions();
/// The text of a description: `file` as in TCatalogueEntry. Throws std::system_error.
std::string DescriptionText(const std::string& file);

/// Where the user's computer keeps descriptions.
struct TSourceFolders {
  std::vector<std::filesystem::path> System;  ///< the most important last
  std::filesystem::path User;                 ///< empty when the home is not known
};
/// From XDG_DATA_DIRS, XDG_DATA_HOME and HOME; `variable` gives an environment variable, "" when unset.
TSourceFolders SourceFolders(const std::function<std::string(const char* name)>& variable);

/// One source of the catalogue.
struct TCatalogueEntry {
  std::string Id;
  std::string Title;
  std::string File;  ///< the name of an embedded file, or a path
  bool OfUser = false;
  bool ChangedByUser = false;               ///< the user's file replaces one of the program's or the system's
  std::optional<TDescription> Description;  ///< absent when the file is broken
};

/// All sources that the program knows.
struct TCatalogue {
  std::vector<TCatalogueEntry> Entries;  ///< by id
  std::vector<TProblem> Problems;        ///< of all files

  /// The entry of that id; null when no source has it.
  const TCatalogueEntry* Find(std::string_view id) const;
};

/// Reads the embedded descriptions, then *.toml in the system's folders, then in the user's; of files with
/// one id the last counts. A broken file costs that source alone, and the file that it would have replaced is
/// not used either: the user would not notice. A folder that is not there is empty.
TCatalogue LoadCatalogue(const std::vector<TEmbeddedDescription>& embedded, const TSourceFolders& folders);

}  // namespace skyreel
