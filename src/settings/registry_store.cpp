#include "settings/registry_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSettings>
#include <QStandardPaths>
#include <QStringDecoder>
#include <system_error>

#include "base/comma_text.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kLargestFile = 64 * 1024 * 1024;

QString ToQString(const fs::path& path) {
  return QString::fromStdString(path.string());
}

bool IsUtf8(const std::string& bytes) {
  QStringDecoder decoder(QStringDecoder::Utf8);
  const QString text = decoder(QByteArrayView(bytes));
  return !decoder.hasError();
}

/// All values of the file. A list is what an unquoted comma makes of a value; it is read back as one text.
QMap<QString, QVariant> AllValues(const QSettings& settings) {
  QMap<QString, QVariant> values;
  for (const QString& name : settings.allKeys()) {
    QVariant value = settings.value(name);
    if (value.typeId() == QMetaType::QStringList) {
      std::vector<std::string> items;
      for (const QString& item : value.toStringList()) items.push_back(item.toStdString());
      value = QString::fromStdString(ToCommaText(items));
    }
    values.insert(name, value);
  }
  return values;
}

fs::path MakersFolder() {
  return fs::path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString()) /
         "Quenmoor";
}

}  // namespace

TRegistryStore::TRegistryStore(fs::path file) : file_(std::move(file)) {
  std::error_code unreachable;
  const fs::file_type type = fs::status(file_, unreachable).type();
  if (type == fs::file_type::not_found) return;
  // A folder, or a pipe, which would be waited for.
  if (type != fs::file_type::regular)
    throw ERegistryError("The settings file cannot be read: " + file_.string());
  try {
    damaged_ = !IsUtf8(ReadWholeFile(file_, kLargestFile));
  } catch (const std::exception& error) {
    throw ERegistryError("The settings file cannot be read: " + std::string(error.what()));
  }
  const QSettings settings(ToQString(file_), QSettings::IniFormat);
  read_ = values_ = AllValues(settings);
  if (settings.status() == QSettings::AccessError)
    throw ERegistryError("The settings file cannot be read: " + file_.string());
  damaged_ = damaged_ || settings.status() == QSettings::FormatError;
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
  if (value->typeId() != QMetaType::QString) Fail(name, "is no text.");
  return value->toString();
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
    return Write();
  } catch (const std::exception&) {
    return false;
  }
}

bool TRegistryStore::Write() {
  if (!PrepareFile()) return false;
  QSettings settings(ToQString(file_), QSettings::IniFormat);
  if (settings.status() == QSettings::AccessError) return false;
  for (const QString& name : written_) {
    if (!values_.contains(name)) {
      settings.remove(name);
    } else if (!settings.contains(name) || read_.value(name) != values_.value(name)) {
      settings.setValue(name, values_.value(name));
    }
  }
  // A format error of the old file stays in the status; only what keeps it from being written counts here.
  settings.sync();
  if (settings.status() == QSettings::AccessError) return false;
  read_ = values_ = AllValues(settings);
  written_.clear();
  return true;
}

/// Makes sure of what the ini library does not: the file is private before anything is written (its temporary
/// file takes the permissions of the file that it replaces), and damaged lines are not lost.
bool TRegistryStore::PrepareFile() {
  ForceDirectories(file_.parent_path());
  const int fd = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool is_private = ::fchmod(fd, 0600) == 0;
  ::close(fd);
  if (!is_private) return false;
  if (damaged_) {
    const fs::path copy = file_.string() + ".damaged";
    WriteFileWhole(copy, ReadWholeFile(file_, kLargestFile), 0600);
    damaged_ = false;
  }
  return true;
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
