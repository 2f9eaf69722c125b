#include "catalogue/catalogue.h"

#include <algorithm>
#include <iterator>
#include <system_error>

#include "base/files.h"
#include "catalogue/description_reader.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFolder = "sources";

/// The descriptions in a folder, by name.
std::vector<fs::path> FilesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().extension() == ".toml") files.push_back(entry->path());
  }
  std::ranges::sort(files);
  return files;
}

/// Adds what a file gave, in place of the entry that has its id.
void Add(TCatalogue& catalogue, TReadDescription read, std::string file, bool users) {
  std::ranges::move(read.Problems, std::back_inserter(catalogue.Problems));
  if (read.Id.empty()) return;
  const auto at = std::ranges::lower_bound(catalogue.Entries, read.Id, {}, &TCatalogueEntry::Id);
  const bool replaces = at != catalogue.Entries.end() && at->Id == read.Id;
  const bool changed = users && replaces && (!at->OfUser || at->ChangedByUser);
  TCatalogueEntry entry{read.Id, read.Title, std::move(file), users, changed, std::move(read.Description)};
  if (replaces) {
    *at = std::move(entry);
  } else {
    catalogue.Entries.insert(at, std::move(entry));
  }
}

}  // namespace

TSourceFolders SourceFolders(const std::function<std::string(const char* name)>& variable) {
  TSourceFolders folders;
  std::string list = variable("XDG_DATA_DIRS");
  if (list.empty()) list = "/usr/local/share:/usr/share";
  for (std::size_t at = 0; at <= list.size();) {
    const std::size_t end = std::min(list.find(':', at), list.size());
    const fs::path folder = list.substr(at, end - at);
    // The first folder of the list is the most important.
    if (folder.is_absolute()) folders.System.insert(folders.System.begin(), folder / "skyreel" / kFolder);
    at = end + 1;
  }
  fs::path data = variable("XDG_DATA_HOME");
  if (const fs::path home = variable("HOME"); !data.is_absolute() && home.is_absolute())
    data = home / ".local/share";
  if (data.is_absolute()) folders.User = data / "Quenmoor" / "Skyreel" / kFolder;
  return folders;
}

std::string DescriptionText(const std::string& file) {
  for (const TEmbeddedDescription& embedded : EmbeddedDescriptions())
    if (embedded.Name == file) return std::string(embedded.Text);
  return ReadWholeFile(file);
}

const TCatalogueEntry* TCatalogue::Find(std::string_view id) const {
  const auto at = std::ranges::find(Entries, id, &TCatalogueEntry::Id);
  return at == Entries.end() ? nullptr : &*at;
}

TCatalogue LoadCatalogue(const std::vector<TEmbeddedDescription>& embedded, const TSourceFolders& folders) {
  TCatalogue catalogue;
  for (const auto& [name, text] : embedded) {
    Add(catalogue, ReadDescription(text, std::string(name)), std::string(name), false);
  }
  const auto add_folder = [&catalogue](const fs::path& folder, bool users) {
    for (const fs::path& file : FilesIn(folder))
      Add(catalogue, ReadDescriptionFile(file), file.string(), users);
  };
  for (const fs::path& folder : folders.System) add_folder(folder, false);
  if (!folders.User.empty()) add_folder(folders.User, true);
  return catalogue;
}

}  // namespace skyreel
