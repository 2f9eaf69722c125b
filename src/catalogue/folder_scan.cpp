#include "catalogue/folder_scan.h"

#include <system_error>

namespace skyreel {

namespace fs = std::filesystem;

bool TFolderScan::Has(std::string_view relative_path) {
  return FolderOf(relative_path).Names.contains(relative_path.substr(relative_path.rfind('/') + 1));
}

bool TFolderScan::IsHidden(std::string_view relative_path) {
  return FolderOf(relative_path).Hidden;
}

const TFolderScan::TFolder& TFolderScan::FolderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? "" : path.substr(0, slash);
  if (const auto known = folders_.find(name); known != folders_.end()) return known->second;
  TFolder& folder = folders_[std::string(name)];
  std::error_code error;
  for (fs::directory_iterator entry(output_ / name, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code unreadable;
    if (entry->is_regular_file(unreadable)) folder.Names.insert(entry->path().filename().string());
  }
  folder.Hidden =
      error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory;
  return folder;
}

}  // namespace skyreel
