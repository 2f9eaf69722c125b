#include "settings/registry_store.h"

#include <stdlib.h>
#include <unistd.h>

#include <QLockFile>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>
#include <QVariant>
#include <chrono>
#include <string>
#include <system_error>
#include <vector>

#include "base/comma_text.h"
#include "base/descriptor.h"
#include "base/exceptions.h"
#include "base/files.h"
#include "base/scope.h"
#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kLargestFile = 64 * 1024 * 1024;
constexpr std::chrono::milliseconds kLongestLock{3000};

QString ToQString(const fs::path& path) {
  return QString::fromStdString(path.string());
}

/// The file's content; empty when there is no file. Throws when it cannot be read.
std::string Content(const fs::path& file) {
  return fs::exists(file) ? ReadWholeFile(file, kLargestFile) : std::string();
}

/// The text as it comes back from UTF-8, which cannot hold half a surrogate pair.
QString Storable(const QString& text) {
  return QString::fromUtf8(text.toUtf8());
}

/// A value as text. For the library, a line with commas outside quotes is a list.
QString TextOf(const QVariant& value) {
  if (value.typeId() != QMetaType::QStringList) return Storable(value.toString());
  std::vector<std::string> items;
  for (const QString& item : value.toStringList()) items.push_back(item.toStdString());
  return QString::fromStdString(ToCommaText(items));
}

QMap<QString, QString> ValuesOf(const QSettings& ini) {
  QMap<QString, QString> values;
  for (const QString& name : ini.allKeys()) values.insert(name, TextOf(ini.value(name)));
  return values;
}

/// The names that the library reads as it wrote them. A damaged file can hold other names, which the library
/// changes or drops.
QSet<QString> PlainNames(const QMap<QString, QString>& values) {
  static const QRegularExpression plain(
      QRegularExpression::anchoredPattern("[A-Za-z0-9 ._-]+(/[A-Za-z0-9 ._-]+)*"));
  QSet<QString> names;
  for (auto name = values.keyBegin(); name != values.keyEnd(); ++name) {
    if (plain.match(*name).hasMatch()) names.insert(*name);
  }
  return names;
}

/// Makes a folder that only its owner can read.
fs::path MakePrivateFolder(const fs::path& parent) {
  std::string name = (parent / kTemporaryName).string();
  if (::mkdtemp(name.data()) == nullptr) ThrowErrno(name);
  return name;
}

fs::path MakersFolder() {
  return fs::path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString()) /
         "Quenmoor";
}

}  // namespace

TRegistryStore::TRegistryStore(fs::path file) : file_(std::move(file)) {
  try {
    Content(file_);
    read_ = values_ = ValuesOf(QSettings(ToQString(file_), QSettings::IniFormat));
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
    Fail(name, "is not a whole number.");
  }
}

bool TRegistryStore::ReadBoolean(const QString& name) {
  const std::string text = ReadString(name).toStdString();
  if (SameText(text, "true") || text == "1") return true;
  if (SameText(text, "false") || text == "0") return false;
  Fail(name, "is neither true nor false.");
}

void TRegistryStore::WriteString(const QString& name, const QString& value) {
  values_.insert(name, Storable(value));
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
  // The file itself, not a link to it.
  const fs::path target = fs::weakly_canonical(file_);
  // Another copy of the program may end at the same moment. If the lock fails, only that copy's changes can
  // be lost.
  QLockFile lock(ToQString(target) + ".lock");
  lock.tryLock(static_cast<int>(kLongestLock.count()));

  if (fs::exists(target) && ::access(target.c_str(), W_OK) != 0) ThrowErrno(target.string());
  const std::string before = Content(target);

  // The library changes a copy in a private folder, so that a full disk damages nothing. The result is read
  // back under another name, because the library caches files by name.
  RemoveAbandoned(target.parent_path());
  const fs::path folder = MakePrivateFolder(target.parent_path());
  const TAtScopeEnd remove([&folder] {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  });
  const TDescriptor lock_of_folder = OpenToRead(folder);
  TryLock(lock_of_folder.Get(), folder);
  const fs::path draft = folder / "draft.conf", fair = folder / "fair.conf";
  WriteFileWhole(draft, before, 0600);
  QMap<QString, QString> expected;
  {
    QSettings ini(ToQString(draft), QSettings::IniFormat);
    // The library parses all lines only now.
    const QMap<QString, QString> found = ValuesOf(ini);
    if (ini.status() == QSettings::FormatError) {
      // The library drops the lines that it does not understand.
      WriteFileWhole(fs::path(target) += ".damaged", before, 0600);
    }
    for (const QString& name : written_) {
      const auto value = values_.constFind(name);
      if (value == values_.constEnd()) {
        ini.remove(name);
      } else if (!found.contains(name) || !read_.contains(name) || read_.value(name) != *value) {
        ini.setValue(name, *value);
      }
    }
    expected = ValuesOf(ini);
    ini.sync();
  }
  fs::rename(draft, fair);
  const QMap<QString, QString> written = ValuesOf(QSettings(ToQString(fair), QSettings::IniFormat));
  bool whole = PlainNames(written).contains(PlainNames(expected));
  for (const QString& name : written_) whole = whole && written.value(name) == expected.value(name);
  if (!whole) throw std::system_error(std::make_error_code(std::errc::io_error), target.string());
  fs::permissions(fair, fs::perms::owner_read | fs::perms::owner_write);
  // The library sees a change by size and time only, and the clock of the file system moves in steps.
  const TDateTime time = GetFileDateTime(target) + std::chrono::milliseconds(1);
  if (GetFileDateTime(fair) < time) SetFileDateTime(fair, time);
  fs::rename(fair, target);
  read_ = values_ = written;
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
    // The program works without it.
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
