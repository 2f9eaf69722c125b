#include "catalogue/catalogue.h"

#include <algorithm>
#include <future>
#include <iterator>
#include <map>
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
  struct TFile {
    std::string Name;
    bool OfUser;
    TReadDescription Read;
  };
  std::vector<TFile> files;
  for (const auto& [name, text] : embedded) files.push_back({std::string(name), false, {}});
  const auto add_folder = [&files](const fs::path& folder, bool users) {
    for (const fs::path& file : FilesIn(folder)) files.push_back({file.string(), users, {}});
  };
  for (const fs::path& folder : folders.System) add_folder(folder, false);
  if (!folders.User.empty()) add_folder(folders.User, true);

  constexpr std::size_t kThreads = 2;
  const auto read_from = [&](std::size_t first) {
    for (std::size_t i = first; i < files.size(); i += kThreads)
      files[i].Read = i < embedded.size() ? ReadDescription(embedded[i].Text, files[i].Name)
                                          : ReadDescriptionFile(files[i].Name);
  };
  // Where no thread can start, get() does the work.
  std::future<void> others = std::async(read_from, 1);
  read_from(0);
  others.get();

  TCatalogue catalogue;
  std::map<std::string, TCatalogueEntry> entries;
  for (auto& [name, of_user, read] : files) {
    std::ranges::move(read.Problems, std::back_inserter(catalogue.Problems));
    if (read.Id.empty()) continue;
    TCatalogueEntry& entry = entries[read.Id];
    const bool changed = of_user && !entry.Id.empty() && (!entry.OfUser || entry.ChangedByUser);
    entry = {read.Id, read.Title, std::move(name), of_user, changed, std::move(read.Description)};
  }
  for (auto& [id, entry] : entries) catalogue.Entries.push_back(std::move(entry));
  return catalogue;
}

}  // namespace skyreel
