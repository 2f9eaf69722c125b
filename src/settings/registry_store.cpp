#include "settings/registry_store.h"

#include <fcntl.h>
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
#include "base/text.h"

namespace skyreel {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kLargestFile = 64 * 1024 * 1024;
constexpr std::chrono::milliseconds kLongestLock{3000};

QString ToQString(const fs::path& path) {
  return QString::fromStdString(path.string());
}

/// Throws when the file exists and is none that can be read whole.
void CheckReadable(const fs::path& file) {
  const fs::file_type type = fs::status(file).type();
  if (type == fs::file_type::not_found) return;
  // A pipe would be waited for.
  if (type != fs::file_type::regular)
    throw std::system_error(std::make_error_code(std::errc::invalid_argument), file.string());
  ReadWholeFile(file, kLargestFile);
}

/// As it is after a way through UTF-8, which has no form for half a surrogate pair.
QString Storable(const QString& text) {
  return QString::fromUtf8(text.toUtf8());
}

/// A value as text. A line with commas outside quotes is a list for the library, and comma text for us.
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

/// The names that the library surely reads as it wrote them. A damaged file can hold others, of which it
/// drops slashes or all.
QSet<QString> PlainNames(const QMap<QString, QString>& values) {
  static const QRegularExpression plain(
      QRegularExpression::anchoredPattern("[A-Za-z0-9 ._-]+(/[A-Za-z0-9 ._-]+)*"));
  QSet<QString> names;
  for (auto name = values.keyBegin(); name != values.keyEnd(); ++name) {
    if (plain.match(*name).hasMatch()) names.insert(*name);
  }
  return names;
}

/// A folder for the owner alone, beside the settings; gone with all in it at the end, and by the next copy of
/// the program when this one is killed.
class TPrivateFolder {
 public:
  explicit TPrivateFolder(const fs::path& parent) {
    RemoveAbandoned(parent);
    std::string name = (parent / kTemporaryName).string();
    if (::mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
    lock_ = TDescriptor(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    TryLock(lock_.Get(), path_);
  }
  ~TPrivateFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TPrivateFolder(const TPrivateFolder&) = delete;
  TPrivateFolder& operator=(const TPrivateFolder&) = delete;
  fs::path operator/(const char* name) const { return path_ / name; }

 private:
  fs::path path_;
  TDescriptor lock_;
};

fs::path MakersFolder() {
  return fs::path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString()) /
         "Quenmoor";
}

}  // namespace

TRegistryStore::TRegistryStore(fs::path file) : file_(std::move(file)) {
  try {
    CheckReadable(file_);
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
  // What is replaced is the file itself, not a link to it.
  const fs::path target = fs::weakly_canonical(file_);
  // Against a copy of the program that ends at the same moment. Without the lock, as where its file cannot be
  // made, the worst is that the last one wins everything.
  QLockFile lock(ToQString(target) + ".lock");
  lock.tryLock(static_cast<int>(kLongestLock.count()));

  if (fs::exists(target) && ::access(target.c_str(), W_OK) != 0)
    throw std::system_error(errno, std::generic_category(), target.string());
  CheckReadable(target);

  // The library works on a copy in a folder of its own, where a full disk can cut nothing that matters and
  // nobody else can look. What it wrote is read again under another name (it remembers files by name) before
  // it takes the place of the old file.
  const TPrivateFolder folder(target.parent_path());
  const fs::path draft = folder / "draft.conf", fair = folder / "fair.conf";
  const bool existed = fs::exists(target);
  WriteFileWhole(draft, existed ? ReadWholeFile(target, kLargestFile) : std::string(), 0600);
  QMap<QString, QString> expected;
  {
    QSettings ini(ToQString(draft), QSettings::IniFormat);
    // The library looks at all lines only now.
    const QMap<QString, QString> found = ValuesOf(ini);
    if (ini.status() == QSettings::FormatError) {
      // The library drops the lines that it does not understand.
      WriteFileWhole(fs::path(target) += ".damaged", ReadWholeFile(draft, kLargestFile), 0600);
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
