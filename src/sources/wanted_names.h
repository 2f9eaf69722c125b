#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_set>

#include "transfer/transfer_context.h"

namespace skyreel {

/// An optional list of wanted names. An empty list wants every name.
class TWantedNames {
 public:
  TWantedNames() = default;
  /// From comma text (line ends separate names too), in any letter case.
  explicit TWantedNames(std::string_view comma_text);
  /// From a comma-text file. Without the file every name is wanted. Anything but a readable
  /// text file of at most 4 MiB is not used, and one status line says so.
  static TWantedNames FromFile(const std::filesystem::path& file, TStatusDisplay& display);

  bool Wants(std::string_view name) const;

 private:
  std::unordered_set<std::string> names_;  ///< in upper case
};

}  // namespace skyreel
