// Opening the store and its schema.
#include "store/Database.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "base/FilePath.h"
#include "store/PrinterWait.h"

namespace kps {

namespace {

constexpr const char* kColumns =
    " (orderNo TEXT NOT NULL, uuid TEXT PRIMARY KEY NOT NULL, path TEXT NOT NULL, status INTEGER "
    "NOT NULL, syncTime TEXT, updateTime TEXT, printerName TEXT DEFAULT 'EPSON L8160 Series', "
    "failReason TEXT, deleteTime TEXT, createTime TEXT, completedNumber INTEGER, realNumber "
    "INTEGER DEFAULT 1, type TEXT NOT NULL);";

}  // namespace

Database::Database(const std::string& path, int busyTimeoutMs) : printerWait_(std::make_unique<PrinterWait>()) {
  const std::string directory = folderOf(path);
  if (!directory.empty()) {
    std::error_code error;
    const bool exists = std::filesystem::exists(toPath(directory), error);
    if (!error && !exists) std::filesystem::create_directories(toPath(directory), error);
    if (error) {
      std::cerr << "Error creating directory: " << error.message() << std::endl;
      throw std::runtime_error("Failed to create directory for database");
    }
  }

  // SQLite takes UTF-8 file names on every platform.
  if (sqlite3_open_v2(fromPath(toPath(path)).c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
      SQLITE_OK) {
    std::cerr << "Can't open or create database: " << sqlite3_errmsg(db) << std::endl;
    sqlite3_close(db);
    db = nullptr;
    throw std::runtime_error("Failed to open or create database");
  }

  char* message = nullptr;
  if (sqlite3_exec(db, "PRAGMA journal_mode=WAL;", nullptr, nullptr, &message) != SQLITE_OK) {
    std::cerr << "Failed to enable WAL mode: " << (message ? message : "") << std::endl;
    sqlite3_free(message);
    // Set-up goes on without a connection: every later operation reports its own failure
    // instead of touching the closed handle.
    sqlite3_close(db);
    db = nullptr;
  }

  if (db) sqlite3_busy_timeout(db, busyTimeoutMs);
  if (!tableExists("local")) createTable("local");
  if (!tableExists("remote")) createTable("remote");
  createHistoryIndexes();
  createCopyTable();
}

void Database::createHistoryIndexes() {
  // Table local only grows. These partial indexes hold just the rows the status sync and the
  // print run look for, so their queries cost the same at a million rows as at ten; the
  // queries' own text is unchanged (SQLite picks the index from their WHERE clause). Their key
  // is one value for every entry, so SQLite walks them in the table's own row order and the
  // rows come back in the order a scan would give. (An earlier key, status, reordered them.)
  // A local table of another shape (kept as found) cannot take them; the store works without.
  executeEach({"DROP INDEX IF EXISTS local_unsynced;",
               "CREATE INDEX IF NOT EXISTS local_unreported ON local((0)) "
               "WHERE syncTime IS NULL OR updateTime > syncTime;",
               "CREATE INDEX IF NOT EXISTS local_pending ON local(status) WHERE status = 0;"},
              "Failed to create index: ");
}

void Database::executeEach(std::initializer_list<const char*> statements, const char* failure) {
  if (!db) return;
  for (const char* sql : statements) {
    char* message = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK)
      std::cerr << failure << (message ? message : "") << std::endl;
    sqlite3_free(message);
  }
}

Database::~Database() { sqlite3_close(db); }

const char* Database::errorMessage() const {
  return db ? sqlite3_errmsg(db) : "the database connection is closed";
}

bool Database::tableExists(const std::string& name) {
  SqliteStatement query(db, "SELECT name FROM sqlite_master WHERE type='table' AND name='" + name +
                                "';");
  if (!query.ok()) {
    std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
    return false;
  }
  return query.step() == SQLITE_ROW;
}

void Database::createTable(const std::string& name) {
  executeSQL("CREATE TABLE IF NOT EXISTS " + name + kColumns);
}

void Database::executeSQL(const std::string& sql) {
  std::lock_guard<std::mutex> lock(mutex);
  SqliteStatement statement(db, sql);
  if (!statement.ok()) {
    std::cerr << "Failed to prepare SQL statement: " << errorMessage() << std::endl;
    throw std::runtime_error("Failed to execute SQL");
  }
  if (statement.step() != SQLITE_DONE) {
    std::cerr << "Failed to execute SQL statement: " << errorMessage() << std::endl;
    throw std::runtime_error("Failed to execute SQL");
  }
}

}  // namespace kps
