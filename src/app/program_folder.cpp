#include "app/program_folder.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QString>
#include <algorithm>
#include <array>
#include <string_view>

namespace skyreel {

namespace fs = std::filesystem;

namespace {

bool UnderSystemPrefix(const fs::path& folder) {
  static constexpr std::array<std::string_view, 7> kPrefixes = {"usr", "opt", "bin", "sbin",
                                                                "lib", "nix", "snap"};
  auto part = folder.begin();
  if (!folder.is_absolute() || ++part == folder.end()) return false;
  return std::ranges::find(kPrefixes, part->string()) != kPrefixes.end();
}

}  // namespace

fs::path ProgramFolder(const fs::path& executable, const fs::path& data_folder) {
  const fs::path own = executable.parent_path();
  const bool writable = QFileInfo(QString::fromStdString(own.string())).isWritable();
  if (writable && !UnderSystemPrefix(own)) return own;
  // If it cannot be made, writing the report tells.
  std::error_code ignored;
  fs::create_directories(data_folder, ignored);
  return data_folder;
}

fs::path StateFolder() {
  // QStandardPaths knows this folder since Qt 6.7 only.
  fs::path base = qgetenv("XDG_STATE_HOME").toStdString();
  if (!base.is_absolute()) base = fs::path(QDir::homePath().toStdString()) / ".local/state";
  return base / QCoreApplication::organizationName().toStdString() /
         QCoreApplication::applicationName().toStdString();
}

std::string FromHome(const std::string& path, const std::filesystem::path& home) {
  const bool at_home = path.starts_with("~/") || (path.size() > 1 && path[0] == '~' &&
                                                  path[1] == std::filesystem::path::preferred_separator);
  return at_home ? home.string() + path.substr(1) : path;
}

}  // namespace skyreel
