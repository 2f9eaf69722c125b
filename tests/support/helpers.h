#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "base/scope.h"

namespace skyreel::test {

/// A fresh folder. It goes, with all that is in it, at the end of the test.
class TTempFolder {
 public:
  TTempFolder() = default;
  ~TTempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TTempFolder(TTempFolder&&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& relative) const { return path_ / relative; }
  /// Writes a file below the folder, parents included; returns its path.
  std::filesystem::path Write(const std::filesystem::path& relative, const std::string& content) const {
    const std::filesystem::path path = path_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }
  /// Every file below the folder `below`, relative to it with '/' as separator, with its size in bytes.
  std::map<std::string, std::int64_t> Tree(const std::filesystem::path& below = {}) const {
    std::map<std::string, std::int64_t> files;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_ / below, ignored)) {
      if (entry.is_directory()) continue;
      const std::string name = entry.path().lexically_relative(path_ / below).generic_string();
      files[name] = static_cast<std::int64_t>(entry.file_size(ignored));
    }
    return files;
  }

 private:
  std::string name_ = (std::filesystem::temp_directory_path() / "skyreel-test-XXXXXX").string();
  const std::filesystem::path path_ = ::mkdtemp(name_.data());
};

/// Until the returned scope ends, a write beyond so many bytes of a file fails in its middle, as on a full
/// disk.
[[nodiscard]] inline auto LimitFileSize(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit lower{bytes, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &lower);
  return TAtScopeEnd([before] { ::setrlimit(RLIMIT_FSIZE, &before); });
}

/// The message of the TException that `action` throws; "" when it throws nothing. Others pass on.
template <typename TException = std::exception>
std::string Failure(const std::function<void()>& action) {
  try {
    action();
  } catch (const TException& error) {
    return error.what();
  }
  return "";
}

}  // namespace skyreel::test
