#include "extensions/fleet/Sqlite.h"

#include <sqlite3.h>

namespace gk::fleet {

bool SqliteError::isDamage() const noexcept {
  const int primary = fCode & 0xFF;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

SqliteFile::SqliteFile(const std::string& path, const char* vfs) : fPath(path) {
  sqlite3* file = nullptr;
  const int code = sqlite3_open_v2(
      path.c_str(), &file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, vfs);
  fFile.reset(file, sqlite3_close_v2);
  expect(code);
  sqlite3_extended_result_codes(file, 1);
}

void SqliteFile::expect(int code) const {
  if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
    const char* why = fFile != nullptr ? sqlite3_errmsg(fFile.get()) : sqlite3_errstr(code);
    throw SqliteError(code, fPath + ": " + why);
  }
}

void SqliteFile::run(const char* sql) const {
  expect(sqlite3_exec(fFile.get(), sql, nullptr, nullptr, nullptr));
}

std::string SqliteFile::text(const char* sql) const {
  SqliteStatement statement(*this, sql);
  return statement.step() ? statement.text(0) : std::string();
}

SqliteStatement::SqliteStatement(const SqliteFile& file, const char* sql)
    : fFile(file), fStatement(nullptr, sqlite3_finalize) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(file.get(), sql, -1, &statement, nullptr);
  fStatement.reset(statement);
  file.expect(code);
}

SqliteStatement& SqliteStatement::bind(int place, std::int64_t value) {
  fFile.expect(sqlite3_bind_int64(fStatement.get(), place, value));
  return *this;
}

SqliteStatement& SqliteStatement::bind(int place, std::string_view value) {
  fFile.expect(sqlite3_bind_text(fStatement.get(), place, value.data(),
                                 static_cast<int>(value.size()), SQLITE_TRANSIENT));
  return *this;
}

SqliteStatement& SqliteStatement::bindNull(int place) {
  fFile.expect(sqlite3_bind_null(fStatement.get(), place));
  return *this;
}

bool SqliteStatement::step() {
  const int code = sqlite3_step(fStatement.get());
  if (code == SQLITE_ROW) {
    return true;
  }
  if (code != SQLITE_DONE) {
    try {
      fFile.expect(code);
    } catch (...) {
      reset();
      throw;
    }
  }
  reset();
  return false;
}

void SqliteStatement::reset() const noexcept {
  sqlite3_reset(fStatement.get());
}

std::int64_t SqliteStatement::integer(int column) const {
  return sqlite3_column_int64(fStatement.get(), column);
}

std::string SqliteStatement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(fStatement.get(), column));
  const int size = sqlite3_column_bytes(fStatement.get(), column);
  return bytes == nullptr ? std::string() : std::string(bytes, static_cast<std::size_t>(size));
}

bool SqliteStatement::isNull(int column) const {
  return sqlite3_column_type(fStatement.get(), column) == SQLITE_NULL;
}

} // namespace gk::fleet
