#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace skyreel {

/// Which files are below an output folder. It reads each folder once, when the first of its files is asked
/// for, and remembers its names; so it knows the files of that moment.
class TFolderScan {
 public:
  explicit TFolderScan(std::filesystem::path output) : output_(std::move(output)) {}

  /// Whether there is a regular file, or a link to one, at this path relative to the output folder
  /// ("a/b.jpg"). False for a folder that cannot be read.
  bool Has(std::string_view relative_path);
  /// Whether the folder of this path is there, but cannot be read.
  bool IsHidden(std::string_view relative_path);

 private:
  /// Lets a set be asked for a piece of a text without a copy of it.
  struct THash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  struct TFolder {
    std::unordered_set<std::string, THash, std::equal_to<>> Names;
    bool Hidden = false;
  };

  const TFolder& FolderOf(std::string_view path);

  const std::filesystem::path output_;
  std::unordered_map<std::string, TFolder, THash, std::equal_to<>> folders_;
};

}  // namespace skyreel
