#pragma once

#include <QMap>
#include <QSet>
#include <QString>
#include <cstdint>
#include <filesystem>
#include <stdexcept>

namespace skyreel {

/// A setting that cannot be read. The message names the value and the file.
class ERegistryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One settings key: named values in an ini file as QSettings reads and writes it. Names are case-sensitive;
/// a value with commas outside quotes, as people write one by hand, is read as comma text.
///
/// The file is read once, by the constructor; values are held in memory until Flush writes all of them at
/// once. The file is replaced as a whole, so that it is at every moment the old one or the new one, also when
/// the disk is full (where QSettings by itself leaves a cut file), and it is readable by its owner alone. A
/// file with lines that are no settings is kept as "<name>.damaged" before it is replaced, since those lines
/// do not survive.
///
/// Two copies of the program: Flush reads the file again and puts in only what this copy changed (or what is
/// not in the file any more). So each copy keeps what only the other one changed, and for a value that both
/// changed the last to exit wins.
///
/// After a read error nothing is written any more: what could not be understood is left as it was.
class TRegistryStore {
 public:
  /// Reads `file`; that there is none is no error. Throws ERegistryError when it exists and cannot be read.
  explicit TRegistryStore(std::filesystem::path file);
  /// Flushes.
  ~TRegistryStore();
  TRegistryStore(const TRegistryStore&) = delete;
  TRegistryStore& operator=(const TRegistryStore&) = delete;

  const std::filesystem::path& File() const { return file_; }
  /// The key exists: it holds at least one value.
  bool KeyExists() const { return !values_.isEmpty(); }
  bool HasValue(const QString& name) const { return values_.contains(name); }

  /// The value, as what was asked for. Each throws ERegistryError when it is missing or is something else: an
  /// integer is decimal and has 32 bits, a boolean is true, false, 1 or 0.
  QString ReadString(const QString& name);
  std::int32_t ReadInteger(const QString& name);
  bool ReadBoolean(const QString& name);

  void WriteString(const QString& name, const QString& value);
  void WriteInteger(const QString& name, std::int32_t value);
  void WriteBoolean(const QString& name, bool value);
  void DeleteValue(const QString& name);

  /// Writes what changed. False when the file cannot be written; it is then as it was, and the changes are
  /// still pending.
  bool Flush() noexcept;

 private:
  [[noreturn]] void Fail(const QString& name, const QString& reason);
  void Write();

  std::filesystem::path file_;
  QMap<QString, QString> read_;    ///< as the file had them
  QMap<QString, QString> values_;  ///< as they are now
  QSet<QString> written_;          ///< names written or deleted since the last flush
  bool failed_ = false;
};

/// The settings file of the program of this path: <user's configuration folder>/Quenmoor/<base name>.conf,
/// the base name being the file name without its extension.
std::filesystem::path SettingsFile(const std::filesystem::path& executable);
/// The file in which the maker's programs record where they are: <configuration folder>/Quenmoor/App
/// Paths.conf.
std::filesystem::path AppPathsFile();

/// Records in `app_paths` (AppPathsFile in the program) the full path of the executable, under its base name.
/// Does nothing when that cannot be written.
void RegisterAppPath(const std::filesystem::path& app_paths, const std::filesystem::path& executable);
/// The path recorded for the program of this base name; empty when there is none or it cannot be read.
QString ReadAppPath(const std::filesystem::path& app_paths, const QString& program);

}  // namespace skyreel
