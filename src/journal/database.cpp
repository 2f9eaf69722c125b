#include "journal/database.h"

#include <sqlite3.h>

namespace skyreel {

namespace {

EDatabaseError::TCause CauseOf(int code) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return EDatabaseError::TCause::Busy;
    case SQLITE_ERROR:  // a table or column that is not as it should be
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_CONSTRAINT:
      return EDatabaseError::TCause::Damaged;
    default:
      return EDatabaseError::TCause::Outside;
  }
}

void Check(sqlite3* database, int code) {
  if (code != SQLITE_OK) throw EDatabaseError(CauseOf(code), sqlite3_errmsg(database));
}

}  // namespace

TDatabase::TDatabase(const std::filesystem::path& file) {
  const int code = sqlite3_open_v2(file.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr);
  if (code == SQLITE_OK) return;
  const std::string what = sqlite3_errmsg(handle_);
  sqlite3_close(handle_);
  throw EDatabaseError(CauseOf(code), what);
}

TDatabase::~TDatabase() {
  prepared_.clear();
  sqlite3_close(handle_);
}

void TDatabase::SetPatience(std::chrono::milliseconds patience) {
  sqlite3_busy_timeout(handle_, static_cast<int>(patience.count()));
}

void TDatabase::Execute(const std::string& sql) {
  Check(handle_, sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr));
}

TStatement& TDatabase::Prepared(const std::string& sql) {
  std::unique_ptr<TStatement>& statement = prepared_[sql];
  if (!statement) statement = std::make_unique<TStatement>(*this, sql);
  return *statement;
}

std::int64_t TDatabase::LastRow() const {
  return sqlite3_last_insert_rowid(handle_);
}

TStatement::TStatement(TDatabase& database, const std::string& sql) : database_(database.handle_) {
  Check(sqlite3_prepare_v2(database_, sql.c_str(), static_cast<int>(sql.size()), &handle_, nullptr));
}

TStatement::~TStatement() {
  sqlite3_finalize(handle_);
}

bool TStatement::Next() {
  const int code = sqlite3_step(handle_);
  if (code != SQLITE_ROW && code != SQLITE_DONE) Check(code);
  return code == SQLITE_ROW;
}

std::int64_t TStatement::Number(int column) const {
  return sqlite3_column_int64(handle_, column);
}

double TStatement::Real(int column) const {
  return sqlite3_column_double(handle_, column);
}

std::string TStatement::Text(int column) const {
  const auto* const text = static_cast<const char*>(sqlite3_column_blob(handle_, column));
  return {text, text == nullptr ? 0 : static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

bool TStatement::IsNull(int column) const {
  return sqlite3_column_type(handle_, column) == SQLITE_NULL;
}

void TStatement::Reset() {
  // Its code is that of the last step, which has been reported already.
  sqlite3_reset(handle_);
}

void TStatement::Bind(int parameter, std::int64_t value) {
  Check(sqlite3_bind_int64(handle_, parameter, value));
}

void TStatement::Bind(int parameter, double value) {
  Check(sqlite3_bind_double(handle_, parameter, value));
}

void TStatement::Bind(int parameter, std::string_view value) {
  // An empty view may have no address, which would mean NULL.
  Check(sqlite3_bind_text(handle_, parameter, value.empty() ? "" : value.data(),
                          static_cast<int>(value.size()), SQLITE_TRANSIENT));
}

void TStatement::Bind(int parameter, const std::optional<std::int64_t>& value) {
  if (value) return Bind(parameter, *value);
  Check(sqlite3_bind_null(handle_, parameter));
}

void TStatement::Check(int code) const {
  skyreel::Check(database_, code);
}

std::optional<std::int64_t> ToColumn(TDateTime time) {
  return time.IsZero() ? std::nullopt : std::optional(time.UnixTime());
}

TDateTime TimeOf(const TStatement& row, int column) {
  return row.IsNull(column) ? TDateTime() : TDateTime::FromUnixTime(row.Number(column));
}

std::string PathColumn(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::absolute(path, ignored).lexically_normal().string();
}

TTransaction::~TTransaction() {
  if (committed_) return;
  try {
    database_.Execute("ROLLBACK");
  } catch (const EDatabaseError&) {
    // Some failures have already undone the transaction.
  }
}

void TTransaction::Commit() {
  database_.Execute("COMMIT");
  committed_ = true;
}

}  // namespace skyreel
