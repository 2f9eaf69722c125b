#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/description.h"

namespace skyreel {

/// What reading a description gave.
struct TReadDescription {
  std::optional<TDescription> Description;  ///< only when there is no problem
  std::string Id, Title;                    ///< as far as they could be read, for a broken file as well
  std::vector<TProblem> Problems;           ///< in the order of the file
};

/// Reads a source description: TOML 1.0, at most 64,000 bytes; docs/sources.md has the words and the rules.
/// `file` is its name in the problems. Never throws for a faulty text.
TReadDescription ReadDescription(std::string_view text, const std::string& file);

/// Reads a file, whose path stands in the problems. A file that cannot be read is a problem, too.
TReadDescription ReadDescriptionFile(const std::filesystem::path& file);

}  // namespace skyreel
