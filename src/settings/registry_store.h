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

/// One settings key: named values in an ini file as QSettings reads and writes it. Names are case-sensitive.
/// A value with commas outside quotes, written by hand, is read as comma text.
///
/// The constructor reads the file; changes stay in memory until Flush writes them all. Flush replaces the
/// whole file: at every moment it is the old one or the new one, even when the disk is full (QSettings alone
/// would leave a cut-off file). Only the owner can read it. When the old file has lines that are not
/// settings, it is kept as "<name>.damaged", since the new file does not have these lines.
///
/// Two copies of the program: Flush reads the file again and adds only what this copy changed or what the
/// file has lost. So each copy keeps the other's changes; when both changed a value, the last to exit wins.
///
/// After a read error the store writes nothing, so that a file that was not understood stays as it was.
class TRegistryStore {
 public:
  /// Reads `file`, which need not exist. Throws ERegistryError when it exists and cannot be read.
  explicit TRegistryStore(std::filesystem::path file);
  /// Flushes.
  ~TRegistryStore();
  TRegistryStore(const TRegistryStore&) = delete;
  TRegistryStore& operator=(const TRegistryStore&) = delete;

  const std::filesystem::path& File() const { return file_; }
  /// The key exists: it holds at least one value.
  bool KeyExists() const { return !values_.isEmpty(); }
  bool HasValue(const QString& name) const { return values_.contains(name); }

  /// The value. Each throws ERegistryError when the value is missing or has another type: an integer is
  /// decimal and has 32 bits, a boolean is true, false, 1 or 0.
  QString ReadString(const QString& name);
  std::int32_t ReadInteger(const QString& name);
  bool ReadBoolean(const QString& name);

  void WriteString(const QString& name, const QString& value);
  void WriteInteger(const QString& name, std::int32_t value);
  void WriteBoolean(const QString& name, bool value);
  void DeleteValue(const QString& name);

  /// Writes the changes. False when the file cannot be written; then it is unchanged, and the next Flush
  /// tries again.
  bool Flush() noexcept;

 private:
  [[noreturn]] void Fail(const QString& name, const QString& reason);
  void Write();

  std::filesystem::path file_;
  QMap<QString, QString> read_;    ///< as in the file
  QMap<QString, QString> values_;  ///< with the changes
  QSet<QString> written_;          ///< names written or deleted since the last flush
  bool failed_ = false;
};

/// The settings file of a program: <user's configuration folder>/Quenmoor/<base name>.conf. The base name is
/// the file name of `executable` without its extension.
std::filesystem::path SettingsFile(const std::filesystem::path& executable);
/// The file where the maker's programs record their paths: <configuration folder>/Quenmoor/App Paths.conf.
std::filesystem::path AppPathsFile();

/// Records the full path of the executable under its base name, in `app_paths` (AppPathsFile in the program).
/// Does nothing when the file cannot be read or written.
void RegisterAppPath(const std::filesystem::path& app_paths, const std::filesystem::path& executable);
/// The recorded path of the program with this base name; empty when none is recorded or the file is
/// unreadable.
QString ReadAppPath(const std::filesystem::path& app_paths, const QString& program);

}  // namespace skyreel
