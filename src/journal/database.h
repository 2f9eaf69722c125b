#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/date_time.h"

struct sqlite3;
struct sqlite3_stmt;

namespace skyreel {

class TStatement;

/// A database operation that failed.
class EDatabaseError : public std::runtime_error {
 public:
  enum class TCause {
    Busy,     ///< another process is writing
    Damaged,  ///< the file is no database, is corrupt, or has other tables than it should
    Outside,  ///< everything else: full disk, permissions, read errors
  };
  EDatabaseError(TCause cause, const std::string& what) : std::runtime_error(what), Cause(cause) {}
  const TCause Cause;
};

/// An SQLite database file. All operations throw EDatabaseError.
class TDatabase {
 public:
  /// Opens the file, which exists; an empty file is an empty database.
  explicit TDatabase(const std::filesystem::path& file);
  ~TDatabase();
  TDatabase(const TDatabase&) = delete;
  TDatabase& operator=(const TDatabase&) = delete;

  /// How long an operation waits while another process writes.
  void SetPatience(std::chrono::milliseconds patience);
  /// Runs statements that take no values and give no rows.
  void Execute(const std::string& sql);
  /// The statement, kept for the next call with the same text. Two uses of it must not overlap.
  TStatement& Prepared(const std::string& sql);
  /// The number of the row that was inserted last.
  std::int64_t LastRow() const;

 private:
  friend class TStatement;
  sqlite3* handle_ = nullptr;
  std::map<std::string, std::unique_ptr<TStatement>> prepared_;
};

/// One SQL statement. Values for its parameters are numbers, texts and empty optionals (NULL).
class TStatement {
 public:
  TStatement(TDatabase& database, const std::string& sql);
  ~TStatement();
  TStatement(const TStatement&) = delete;
  TStatement& operator=(const TStatement&) = delete;

  /// Starts the statement again with these values, the first for the first parameter.
  template <typename... TValues>
  TStatement& With(const TValues&... values) {
    Reset();
    int parameter = 0;
    (Bind(++parameter, values), ...);
    return *this;
  }
  /// Goes to the next row of the result; false at its end.
  bool Next();
  /// Runs a statement that has no result with these values.
  template <typename... TValues>
  void Run(const TValues&... values) {
    With(values...).Next();
    Reset();
  }

  // Columns of the row, counted from 0. NULL is 0 or "".
  std::int64_t Number(int column) const;
  double Real(int column) const;
  std::string Text(int column) const;
  bool IsNull(int column) const;

 private:
  void Reset();
  void Bind(int parameter, std::int64_t value);
  void Bind(int parameter, double value);
  void Bind(int parameter, std::string_view value);
  void Bind(int parameter, const std::optional<std::int64_t>& value);
  void Check(int code) const;

  sqlite3* const database_;
  sqlite3_stmt* handle_ = nullptr;
};

/// A time as a column: seconds since 1970, UTC; NULL for zero, an unknown time.
std::optional<std::int64_t> ToColumn(TDateTime time);
TDateTime TimeOf(const TStatement& row, int column);
/// A path as a column: absolute, and written in one way.
std::string PathColumn(const std::filesystem::path& path);
/// The first of the rows, or nothing.
template <typename T>
std::optional<T> FirstOf(const std::vector<T>& rows) {
  return rows.empty() ? std::nullopt : std::optional(rows.front());
}

/// Changes that become visible and lasting together with Commit; without it they are undone.
class TTransaction {
 public:
  explicit TTransaction(TDatabase& database) : database_(database) { database_.Execute("BEGIN IMMEDIATE"); }
  ~TTransaction();
  TTransaction(const TTransaction&) = delete;
  TTransaction& operator=(const TTransaction&) = delete;

  void Commit();

 private:
  TDatabase& database_;
  bool committed_ = false;
};

}  // namespace skyreel
