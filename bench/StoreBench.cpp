// The store's cost over raw SQLite: insertOrder and updateStatus + updateTime against the same
// statements issued through the SQLite API directly, on a real WAL file.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "store/Database.h"

namespace {

std::string freshFile() {
  std::string dir = (std::filesystem::temp_directory_path() / "kps-bench-XXXXXX").string();
  if (!::mkdtemp(dir.data())) std::abort();
  return dir + "/PrintData.db";
}

void exec(sqlite3* db, const char* sql) { sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

void rawUpdateStatus(sqlite3* db, const std::string& uuid, int status, int completed) {
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, "UPDATE local SET status = ?, completedNumber = ? WHERE uuid = ?;", -1,
                     &stmt, nullptr);
  sqlite3_bind_int(stmt, 1, status);
  sqlite3_bind_int(stmt, 2, completed);
  sqlite3_bind_text(stmt, 3, uuid.c_str(), -1, SQLITE_STATIC);
  sqlite3_step(stmt);
  sqlite3_finalize(stmt);
}

void BM_StoreInsertOrder(benchmark::State& state) {
  const std::string path = freshFile();
  kps::Database store(path);
  long i = 0;
  for (auto _ : state)
    store.insertOrder("local", "O", "T-" + std::to_string(i++), "pic/a.jpg", 0, 1, "postcards");
  state.SetItemsProcessed(i);
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

void BM_RawInsertOrder(benchmark::State& state) {
  const std::string path = freshFile();
  { kps::Database schema(path); }
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  exec(db, "PRAGMA journal_mode=WAL;");
  long i = 0;
  for (auto _ : state) {
    const std::string uuid = "T-" + std::to_string(i++);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT INTO local (orderNo, uuid, path,status,realNumber,type) VALUES (?, "
                       "?, ?, ?,?,?);",
                       -1, &stmt, nullptr);
    sqlite3_bind_text(stmt, 1, "O", -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, uuid.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, "pic/a.jpg", -1, SQLITE_STATIC);
    sqlite3_bind_int(stmt, 4, 0);
    sqlite3_bind_int(stmt, 5, 1);
    sqlite3_bind_text(stmt, 6, "postcards", -1, SQLITE_STATIC);
    sqlite3_step(stmt);
    sqlite3_finalize(stmt);
  }
  state.SetItemsProcessed(i);
  sqlite3_close(db);
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

void BM_StoreUpdateStatusAndTime(benchmark::State& state) {
  const std::string path = freshFile();
  kps::Database store(path);
  store.insertOrder("local", "O", "T", "p", 0, 1, "postcards");
  long i = 0;
  for (auto _ : state) {
    store.updateStatus("T", 2, static_cast<int>(i++ & 7));
    store.updateTime("T");
  }
  state.SetItemsProcessed(i);
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

void BM_RawUpdateStatusAndTime(benchmark::State& state) {
  const std::string path = freshFile();
  {
    kps::Database schema(path);
    schema.insertOrder("local", "O", "T", "p", 0, 1, "postcards");
  }
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  exec(db, "PRAGMA journal_mode=WAL;");
  const std::string uuid = "T";
  long i = 0;
  for (auto _ : state) {
    rawUpdateStatus(db, uuid, 2, static_cast<int>(i++ & 7));
    const std::string now = kps::Database::currentTimeString();
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, "UPDATE local SET updateTime = ? WHERE uuid = ?;", -1, &stmt, nullptr);
    sqlite3_bind_text(stmt, 1, now.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, uuid.c_str(), -1, SQLITE_STATIC);
    sqlite3_step(stmt);
    sqlite3_finalize(stmt);
  }
  state.SetItemsProcessed(i);
  sqlite3_close(db);
  std::filesystem::remove_all(std::filesystem::path(path).parent_path());
}

}  // namespace

BENCHMARK(BM_StoreInsertOrder);
BENCHMARK(BM_RawInsertOrder);
BENCHMARK(BM_StoreUpdateStatusAndTime);
BENCHMARK(BM_RawUpdateStatusAndTime);
BENCHMARK_MAIN();
