#include "settings/registry_store.h"

#include <unistd.h>

#include <QLockFile>
#include <QStandardPaths>
#include <chrono>
#include <system_error>

#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"
#include "settings/ini_text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kLargestFile = 64 * 1024 * 1024;
constexpr std::chrono::milliseconds kLongestLock{3000};

QString ToQString(const fs::path& path) {
  return QString::fromStdString(path.string());
}

/// The text of the file, empty when there is none. Throws when it cannot be read.
std::string TextOf(const fs::path& file) {
  const fs::file_type type = fs::status(file).type();
  if (type == fs::file_type::not_found) return "";
  // A pipe would be waited for.
  if (type != fs::file_type::regular)
    throw std::system_error(std::make_error_code(std::errc::invalid_argument), file.string());
  return ReadWholeFile(file, kLargestFile);
}

fs::path MakersFolder() {
  return fs::path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString()) /
         "Quenmoor";
}

}  // namespace

TRegistryStore::TRegistryStore(fs::path file) : file_(std::move(file)) {
  try {
    read_ = values_ = TIniText(TextOf(file_)).Values();
  } catch (const std::exception& error) {
    throw ERegistryError("The settings file " + file_.string() + " cannot be read: " + error.what());
  }
}

TRegistryStore::~TRegistryStore() {
  Flush();
}

void TRegistryStore::Fail(const QString& name, const QString& reason) {
  failed_ = true;
  throw ERegistryError(
      QString("The setting \"%1\" in %2 %3").arg(name, ToQString(file_), reason).toStdString());
}

QString TRegistryStore::ReadString(const QString& name) {
  const auto value = values_.constFind(name);
  if (value == values_.constEnd()) Fail(name, "is missing.");
  return *value;
}

std::int32_t TRegistryStore::ReadInteger(const QString& name) {
  try {
    return ToInteger(ReadString(name).toStdString());
  } catch (const EConvertError&) {
    Fail(name, "is no whole number.");
  }
}

bool TRegistryStore::ReadBoolean(const QString& name) {
  const std::string text = ReadString(name).toStdString();
  if (SameText(text, "true") || text == "1") return true;
  if (SameText(text, "false") || text == "0") return false;
  Fail(name, "is neither true nor false.");
}

void TRegistryStore::WriteString(const QString& name, const QString& value) {
  values_.insert(name, value);
  written_.insert(name);
}

void TRegistryStore::WriteInteger(const QString& name, std::int32_t value) {
  WriteString(name, QString::number(value));
}

void TRegistryStore::WriteBoolean(const QString& name, bool value) {
  WriteString(name, value ? "true" : "false");
}

void TRegistryStore::DeleteValue(const QString& name) {
  values_.remove(name);
  written_.insert(name);
}

bool TRegistryStore::Flush() noexcept {
  if (failed_) return false;
  if (written_.isEmpty()) return true;
  try {
    Write();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void TRegistryStore::Write() {
  ForceDirectories(file_.parent_path());
  // What is replaced is the file itself, not a link to it.
  const fs::path target = fs::weakly_canonical(file_);
  // Against a copy of the program that ends at the same moment. Without the lock, as where its file cannot be
  // made, the worst is that the last one wins everything.
  QLockFile lock(ToQString(target) + ".lock");
  lock.tryLock(static_cast<int>(kLongestLock.count()));

  if (fs::exists(target) && ::access(target.c_str(), W_OK) != 0)
    throw std::system_error(errno, std::generic_category(), target.string());
  TIniText text(TextOf(target));
  for (const QString& name : written_) {
    const auto value = values_.constFind(name);
    if (value == values_.constEnd()) {
      text.Remove(name);
    } else if (!text.Values().contains(name) || !read_.contains(name) || read_.value(name) != *value) {
      text.Set(name, *value);
    }
  }
  WriteFileWhole(target, text.Text(), 0600);
  read_ = values_ = text.Values();
  written_.clear();
}

fs::path SettingsFile(const fs::path& executable) {
  return MakersFolder() / (executable.stem().string() + ".conf");
}

fs::path AppPathsFile() {
  return MakersFolder() / "App Paths.conf";
}

void RegisterAppPath(const fs::path& app_paths, const fs::path& executable) {
  try {
    TRegistryStore store(app_paths);
    store.WriteString(ToQString(executable.stem()), ToQString(executable));
  } catch (const ERegistryError&) {
    // A broken record of the maker's programs is no reason not to start.
  }
}

QString ReadAppPath(const fs::path& app_paths, const QString& program) {
  try {
    return TRegistryStore(app_paths).ReadString(program);
  } catch (const ERegistryError&) {
    return QString();
  }
}

}  // namespace skyreel
