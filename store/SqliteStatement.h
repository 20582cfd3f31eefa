// RAII for a prepared SQLite statement: finalised on every path out of its scope.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace kps {

class SqliteStatement {
 public:
  // Prepares sql on db; ok() tells whether it worked. A null db (a store whose connection was
  // closed after a failed set-up) fails without calling SQLite.
  SqliteStatement(sqlite3* db, const std::string& sql) {
    if (db) ok_ = sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt_, nullptr) == SQLITE_OK;
  }
  ~SqliteStatement() { sqlite3_finalize(stmt_); }
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  bool ok() const { return ok_; }
  sqlite3_stmt* get() const { return stmt_; }

  // Text is bound without a copy: the caller's string outlives the statement.
  void bind(int index, const std::string& text) {
    sqlite3_bind_text(stmt_, index, text.c_str(), -1, SQLITE_STATIC);
  }
  void bind(int index, std::int32_t value) { sqlite3_bind_int(stmt_, index, value); }
  int step() { return sqlite3_step(stmt_); }

  // Column text, or nullptr for NULL.
  const char* text(int column) const {
    return reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
  }
  std::int32_t integer(int column) const { return sqlite3_column_int(stmt_, column); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
  bool ok_ = false;
};

}  // namespace kps
