#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace gk::fleet {

/// What SQLite could not do. The text tells the file.
class SqliteError : public std::runtime_error {
public:
  SqliteError(int code, const std::string& text) : std::runtime_error(text), fCode(code) {}

  /// The file is no database, or one with holes.
  bool isDamage() const noexcept;

private:
  int fCode;
};

/// A database file. For one thread.
class SqliteFile {
public:
  /// Opens or creates it. `vfs`: by which the file is reached; null for the system's.
  SqliteFile(const std::string& path, const char* vfs);

  /// Raises `SqliteError`, as everything here.
  void run(const char* sql) const;
  /// The first column of the first row.
  std::string text(const char* sql) const;
  /// Raises for a result that is none of a success.
  void expect(int code) const;

  sqlite3* get() const noexcept { return fFile.get(); }

private:
  std::string fPath;
  std::shared_ptr<sqlite3> fFile;
};

/// A statement that is run again and again. For one thread; must not outlive its file.
class SqliteStatement {
public:
  SqliteStatement(const SqliteFile& file, const char* sql);

  SqliteStatement& bind(int place, std::int64_t value);
  SqliteStatement& bind(int place, std::string_view value);
  SqliteStatement& bindNull(int place);

  /// Goes on to the next row; false at the end, where it is ready to be run again.
  bool step();
  /// Runs a statement without rows.
  void run() {
    while (step()) {
    }
  }
  /// Ends it before its end.
  void reset() const noexcept;

  std::int64_t integer(int column) const;
  std::string text(int column) const;
  bool isNull(int column) const;

private:
  const SqliteFile& fFile;
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> fStatement;
};

} // namespace gk::fleet
