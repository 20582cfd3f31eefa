// A second, independent connection on a store's file: for reading back what the store wrote
// and for holding locks against it.
#pragma once

#include <sqlite3.h>

#include <string>

namespace kps {

class SqliteFile {
 public:
  explicit SqliteFile(const std::string& path) { sqlite3_open(path.c_str(), &db_); }
  ~SqliteFile() { sqlite3_close(db_); }
  SqliteFile(const SqliteFile&) = delete;
  SqliteFile& operator=(const SqliteFile&) = delete;

  bool exec(const std::string& sql) { return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK; }

  // The first column of the first row as text; "NULL" for NULL, "" for no row.
  std::string scalar(const std::string& sql) {
    sqlite3_stmt* stmt = nullptr;
    std::string value;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
      const auto* text = sqlite3_column_text(stmt, 0);
      value = text ? reinterpret_cast<const char*>(text) : "NULL";
    }
    sqlite3_finalize(stmt);
    return value;
  }
  // An order as "status|completedNumber|failReason", '-' for NULL.
  std::string order(const std::string& uuid) {
    return scalar("SELECT status||'|'||ifnull(completedNumber,'-')||'|'||ifnull(failReason,'-') FROM local "
                  "WHERE uuid='" + uuid + "'");
  }

 private:
  sqlite3* db_ = nullptr;
};

}  // namespace kps
