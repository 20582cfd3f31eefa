// What a long history costs: the status sync's pass with nothing to send and the print run's
// pending query, on PrintData.db files of 10 k, 100 k and 1 M orders, with the store's partial
// indexes and, as the reference, on the same file without them.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "store/Database.h"

namespace {

const char* kPrintQuery =
    "SELECT uuid, path, status, deleteTime, realNumber, printerName,type FROM local WHERE status = 0;";

// A history of `rows` printed and reported orders, plus `pending` waiting ones; built once.
std::string historyFile(long rows, int pending) {
  const std::string dir = std::filesystem::temp_directory_path().string() + "/kps-bench-history";
  std::filesystem::create_directories(dir);
  const std::string path = dir + "/" + std::to_string(rows) + "-" + std::to_string(pending) + ".db";
  if (std::filesystem::exists(path)) return path;
  { kps::Database schema(path); }
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "DROP INDEX local_unreported; DROP INDEX local_pending; BEGIN;", nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db,
                     "INSERT INTO local (orderNo, uuid, path, status, syncTime, updateTime, "
                     "completedNumber, realNumber, type) VALUES (?, ?, 'pic/a.jpg', ?, "
                     "'2026-01-01 10:00:01', '2026-01-01 10:00:00', 1, 1, 'postcards')",
                     -1, &insert, nullptr);
  for (long i = 0; i < rows + pending; ++i) {
    const std::string id = "T-" + std::to_string(i);
    sqlite3_bind_text(insert, 1, ("O-" + std::to_string(i / 3)).c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(insert, 2, id.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int(insert, 3, i < rows ? 2 : 0);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  return path;
}

// A store on the file, with its indexes (as the service opens it) or with them dropped.
std::unique_ptr<kps::Database> openStore(const std::string& path, bool indexed) {
  auto store = std::make_unique<kps::Database>(path);
  if (!indexed) {
    store->executeSQL("DROP INDEX IF EXISTS local_unreported;");
    store->executeSQL("DROP INDEX IF EXISTS local_pending;");
  }
  return store;
}

void BM_SyncPassNothingToSend(benchmark::State& state) {
  const bool indexed = state.range(1) != 0;
  auto store = openStore(historyFile(state.range(0), 0), indexed);
  for (auto _ : state) store->syncStatus("https://127.0.0.1:9/print/task/sync");
  state.SetLabel(indexed ? "indexed" : "scan (reference)");
  store.reset();
  if (!indexed) openStore(historyFile(state.range(0), 0), true);  // leave the file indexed
}

void BM_PrintQuery(benchmark::State& state) {
  const bool indexed = state.range(0) != 0;
  const std::string path = historyFile(1000000, 10);
  auto store = openStore(path, indexed);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  long rows = 0;
  for (auto _ : state) {
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(db, kPrintQuery, -1, &query, nullptr);
    while (sqlite3_step(query) == SQLITE_ROW) ++rows;
    sqlite3_finalize(query);
  }
  sqlite3_close(db);
  state.counters["pending"] = static_cast<double>(rows) / static_cast<double>(state.iterations());
  state.SetLabel(indexed ? "indexed" : "scan (reference)");
  store.reset();
  if (!indexed) openStore(path, true);
}

}  // namespace

BENCHMARK(BM_SyncPassNothingToSend)
    ->ArgsProduct({{10000, 100000, 1000000}, {1, 0}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PrintQuery)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
