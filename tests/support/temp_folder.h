#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace skyreel::test {

/// A fresh folder that is removed with everything in it at the end of the test.
class TTempFolder {
 public:
  TTempFolder();
  ~TTempFolder();
  TTempFolder(const TTempFolder&) = delete;
  TTempFolder& operator=(const TTempFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& relative) const { return path_ / relative; }

  /// Writes a file below the folder, parents included; returns its path.
  std::filesystem::path Write(const std::filesystem::path& relative, const std::string& content) const;
  /// Every file below the folder, relative with '/' as separator, with its size in bytes.
  std::map<std::string, std::int64_t> Tree() const;

 private:
  std::filesystem::path path_;
};

}  // namespace skyreel::test
