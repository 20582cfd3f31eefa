#include "store/StoreReader.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "base/FilePath.h"
#include "store/SqliteStatement.h"

namespace kps {

namespace {

std::string uriPath(const std::string& path) {
  std::string text;
  for (const char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      static const char* const hex = "0123456789ABCDEF";
      text += '%';
      text += hex[(c >> 4) & 0xF];
      text += hex[c & 0xF];
    } else {
      text += c == '\\' ? '/' : c;
    }
  }
  return text;
}

}  // namespace

StoreReader::StoreReader(const std::string& path) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(toPath(path), ignored)) {
    error_ = "no store at " + path;
    return;
  }
  // A store closed cleanly has no write-ahead log: reading it as it stands creates none (a
  // read-only connection would otherwise leave an empty log and index file behind). With a log
  // (the service runs, or was killed), the log's files are there already and are read too.
  const bool logged = std::filesystem::exists(toPath(path + "-wal"), ignored);
  const std::string uri = "file:" + uriPath(path) + (logged ? "?mode=ro" : "?mode=ro&immutable=1");
  if (sqlite3_open_v2(uri.c_str(), &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) != SQLITE_OK) {
    error_ = db_ ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close(db_);
    db_ = nullptr;
    return;
  }
  sqlite3_busy_timeout(db_, 2000);
}

StoreReader::~StoreReader() { sqlite3_close(db_); }

std::string StoreReader::quickCheck() {
  SqliteStatement check(db_, "PRAGMA quick_check;");
  if (!check.ok()) return db_ ? sqlite3_errmsg(db_) : error_;
  if (check.step() != SQLITE_ROW) return sqlite3_errmsg(db_);
  return check.text(0) ? check.text(0) : "";
}

std::pair<std::int64_t, std::int64_t> StoreReader::pendingOrders() {
  // Counted in full; the oldest is looked for among the first taken in, a bounded few.
  const auto count = rows("SELECT count(*) FROM local WHERE status = 0;");
  if (count.empty()) return {0, -1};
  const auto pictures = rows("SELECT path FROM local WHERE status = 0 AND path IS NOT NULL ORDER BY rowid LIMIT 1000;");
  const auto now = std::filesystem::file_time_type::clock::now();
  std::int64_t oldest = -1;
  for (const auto& row : pictures) {
    std::error_code error;
    const auto written = std::filesystem::last_write_time(toPath(row[0]), error);
    if (!error)
      oldest = std::max<std::int64_t>(oldest, std::chrono::duration_cast<std::chrono::seconds>(now - written).count());
  }
  return {std::stoll(count[0][0]), oldest};
}

std::vector<std::vector<std::string>> StoreReader::rows(const std::string& sql,
                                                        const std::vector<std::string>& parameters) {
  std::vector<std::vector<std::string>> result;
  if (db_) error_.clear();  // each query says its own failure
  SqliteStatement query(db_, sql);
  if (!query.ok()) {
    error_ = db_ ? sqlite3_errmsg(db_) : error_;
    return result;
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) query.bind(static_cast<int>(i + 1), parameters[i]);
  int step;
  while ((step = query.step()) == SQLITE_ROW) {
    std::vector<std::string> row;
    for (int column = 0; column < sqlite3_column_count(query.get()); ++column)
      row.emplace_back(query.text(column) ? query.text(column) : "");
    result.push_back(std::move(row));
  }
  if (step != SQLITE_DONE) {
    error_ = sqlite3_errmsg(db_);
    result.clear();
  }
  return result;
}

}  // namespace kps
