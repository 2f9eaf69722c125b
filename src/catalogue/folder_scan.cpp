#include "catalogue/folder_scan.h"

#include <system_error>

namespace skyreel {

namespace fs = std::filesystem;

bool TFolderScan::Has(std::string_view relative_path) {
  const std::size_t slash = relative_path.rfind('/');
  if (slash == std::string_view::npos) return NamesIn("").contains(relative_path);
  return NamesIn(relative_path.substr(0, slash)).contains(relative_path.substr(slash + 1));
}

const TFolderScan::TNames& TFolderScan::NamesIn(std::string_view folder) {
  if (const auto known = folders_.find(folder); known != folders_.end()) return known->second;
  TNames& names = folders_[std::string(folder)];
  std::error_code error;
  for (fs::directory_iterator entry(output_ / folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code unreadable;
    if (entry->is_regular_file(unreadable)) names.insert(entry->path().filename().string());
  }
  return names;
}

}  // namespace skyreel
