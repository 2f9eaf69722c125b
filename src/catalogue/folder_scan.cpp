#include "catalogue/folder_scan.h"

#include <system_error>

namespace skyreel {

namespace fs = std::filesystem;

bool TFolderScan::Has(std::string_view relative_path) {
  const std::size_t slash = relative_path.rfind('/');
  const bool below = slash != std::string_view::npos;
  const std::string folder(below ? relative_path.substr(0, slash) : "");
  const auto [names, fresh] = folders_.try_emplace(folder);
  if (fresh) {
    std::error_code error;
    for (fs::directory_iterator entry(output_ / folder, error), end; !error && entry != end;
         entry.increment(error)) {
      std::error_code unreadable;
      if (entry->is_regular_file(unreadable)) names->second.insert(entry->path().filename().string());
    }
  }
  return names->second.contains(std::string(relative_path.substr(below ? slash + 1 : 0)));
}

}  // namespace skyreel
