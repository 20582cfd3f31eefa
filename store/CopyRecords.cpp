// Table jobs: each copy of an order the print run took, the job made for it and how it ended.
// The orders table keeps the columns it always had; this one is the service's own memory of
// what is at the spooler, read again after a restart.
#include <iostream>

#include "store/Database.h"

namespace kps {

void Database::createCopyTable() {
  // jobId: NULL while the copy is planned, 0 while its job is being made (not yet known to the
  // spooler, or not yet recorded), the spooler's id after; result: NULL until the copy ended.
  executeEach({"CREATE TABLE IF NOT EXISTS jobs (uuid TEXT NOT NULL, copy INTEGER NOT NULL, name TEXT NOT NULL, "
               "jobId INTEGER, result INTEGER, PRIMARY KEY (uuid, copy));",
               // The copies not ended yet: what a run looks for among every copy ever made.
               "CREATE INDEX IF NOT EXISTS jobs_open ON jobs(uuid) WHERE result IS NULL;"},
              "Failed to create table jobs: ");
}

bool Database::writeCopy(const std::string& sql, const std::function<void(SqliteStatement&)>& bind) {
  std::lock_guard<std::mutex> lock(mutex);
  SqliteStatement statement(db, sql);
  if (statement.ok()) {
    bind(statement);
    if (statement.step() == SQLITE_DONE) return true;
  }
  std::cerr << "Failed to record a copy: " << errorMessage() << std::endl;
  return false;
}

std::map<std::int32_t, CopyRecord> Database::copyRecords(const std::string& uuid) {
  std::map<std::int32_t, CopyRecord> records;
  SqliteStatement query(db, "SELECT copy, name, jobId, result FROM jobs WHERE uuid = ?;");
  if (!query.ok()) return records;
  query.bind(1, uuid);
  while (query.step() == SQLITE_ROW) {
    CopyRecord& record = records[query.integer(0)];
    record.name = query.text(1) ? query.text(1) : "";
    if (sqlite3_column_type(query.get(), 2) != SQLITE_NULL) record.jobId = query.integer(2);
    if (sqlite3_column_type(query.get(), 3) != SQLITE_NULL) record.result = query.integer(3);
  }
  return records;
}

void Database::planCopies(const std::string& uuid, std::int32_t copies) {
  // One statement: an order is planned whole or not at all.
  const std::string prefix = copyJobPrefix(uuid, copies);
  writeCopy("WITH RECURSIVE n(copy) AS (SELECT 1 UNION ALL SELECT copy + 1 FROM n WHERE copy < ?1) "
            "INSERT OR IGNORE INTO jobs (uuid, copy, name) SELECT ?2, copy, ?3 || ' ' || copy || '/' || ?1 FROM n;",
            [&](SqliteStatement& s) {
              s.bind(1, copies);
              s.bind(2, uuid);
              s.bind(3, prefix);
            });
}

void Database::recordJobId(const std::string& uuid, std::int32_t copy, std::int32_t jobId) {
  writeCopy("UPDATE jobs SET jobId = ? WHERE uuid = ? AND copy = ?;", [&](SqliteStatement& s) {
    s.bind(1, jobId);
    s.bind(2, uuid);
    s.bind(3, copy);
  });
}

void Database::recordCopyEnd(const std::string& uuid, std::int32_t copy, std::int32_t result) {
  writeCopy("UPDATE jobs SET result = ? WHERE uuid = ? AND copy = ?;", [&](SqliteStatement& s) {
    s.bind(1, result);
    s.bind(2, uuid);
    s.bind(3, copy);
  });
}

}  // namespace kps
