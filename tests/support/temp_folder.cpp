#include "support/temp_folder.h"

#include <stdlib.h>

#include <fstream>
#include <stdexcept>

namespace skyreel::test {

namespace fs = std::filesystem;

TTempFolder::TTempFolder() {
  std::string pattern = (fs::temp_directory_path() / "skyreel-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
  path_ = pattern;
}

TTempFolder::~TTempFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path TTempFolder::Write(const fs::path& relative, const std::string& content) const {
  const fs::path path = path_ / relative;
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::map<std::string, std::int64_t> TTempFolder::Tree() const {
  std::map<std::string, std::int64_t> files;
  for (const auto& entry : fs::recursive_directory_iterator(path_)) {
    if (entry.is_directory()) continue;
    files[entry.path().lexically_relative(path_).generic_string()] = static_cast<std::int64_t>(
        fs::symlink_status(entry).type() == fs::file_type::regular ? entry.file_size() : 0);
  }
  return files;
}

}  // namespace skyreel::test
