// Adding, finding and removing the rows of one business order, an order's status by its task,
// and the final orders whose pictures retention looks at.
#include <iostream>

#include "store/Database.h"

namespace kps {

bool Database::insertOrder(const std::string& table, const std::string& orderNo,
                           const std::string& uuid, const std::string& path, std::int32_t status,
                           std::int32_t realNumber, const std::string& type) {
  std::lock_guard<std::mutex> lock(mutex);
  SqliteStatement insert(db, "INSERT INTO " + table +
                                 " (orderNo, uuid, path,status,realNumber,type) VALUES (?, ?, ?, "
                                 "?,?,?);");
  if (!insert.ok()) {
    std::cerr << "Failed to prepare statement: " << errorMessage() << std::endl;
    return false;
  }
  insert.bind(1, orderNo);
  insert.bind(2, uuid);
  insert.bind(3, path);
  insert.bind(4, status);
  insert.bind(5, realNumber);
  insert.bind(6, type);
  if (insert.step() == SQLITE_DONE) return true;
  std::cerr << "Execution failed: " << errorMessage() << std::endl;
  return false;
}

bool Database::deleteOrder(const std::string& table, const std::string& orderNo) {
  std::lock_guard<std::mutex> lock(mutex);
  SqliteStatement remove(db, "DELETE FROM " + table + " WHERE orderNo = ?;");
  if (!remove.ok()) {
    std::cerr << "Failed to prepare statement: " << errorMessage() << std::endl;
    return false;
  }
  remove.bind(1, orderNo);
  if (remove.step() == SQLITE_DONE) return true;
  std::cerr << "Execution failed: " << errorMessage() << std::endl;
  return false;
}

std::optional<std::int32_t> Database::storedStatus(const std::string& uuid) {
  SqliteStatement query(db, "SELECT status FROM local WHERE uuid = ?;");
  if (!query.ok()) return std::nullopt;
  query.bind(1, uuid);
  if (query.step() != SQLITE_ROW) return std::nullopt;
  return query.integer(0);
}

void Database::getOrdersByOrderNo(const std::string& table, const std::string& orderNo,
                                  std::vector<OrderStatusRecord>& list) {
  SqliteStatement query(db, "SELECT uuid, status, completedNumber FROM " + table +
                                " WHERE orderNo = ?;");
  if (!query.ok()) {
    std::cerr << "Failed to prepare statement: " << errorMessage() << std::endl;
    return;
  }
  query.bind(1, orderNo);
  int result;
  while ((result = query.step()) == SQLITE_ROW) {
    const char* uuid = query.text(0);
    list.push_back(OrderStatusRecord{query.integer(2), query.integer(1), uuid ? uuid : ""});
  }
  if (result != SQLITE_DONE) std::cerr << "sqlite3_finalize: " << errorMessage() << std::endl;
}

void Database::createRetentionIndex() {
  char* message = nullptr;
  if (sqlite3_exec(db, "CREATE INDEX IF NOT EXISTS local_updated ON local(updateTime) WHERE status != 0;",
                   nullptr, nullptr, &message) != SQLITE_OK)
    std::cerr << "Failed to create index: " << (message ? message : "") << std::endl;
  sqlite3_free(message);
}

bool Database::finalOrdersChangedBefore(const std::string& cutoff, const std::string& afterTime,
                                        std::int64_t afterRow, int batch, std::vector<FinalOrderPicture>& rows) {
  SqliteStatement query(db,
                        "SELECT rowid, path, status, syncTime, updateTime, EXISTS (SELECT 1 FROM local "
                        "AS p WHERE p.status = 0 AND p.path = local.path) FROM local WHERE status != 0 "
                        "AND updateTime < ? AND (updateTime > ? OR (updateTime = ? AND rowid > ?)) "
                        "ORDER BY updateTime, rowid LIMIT ?;");
  if (!query.ok()) {
    std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
    return false;
  }
  query.bind(1, cutoff);
  query.bind(2, afterTime);
  query.bind(3, afterTime);
  sqlite3_bind_int64(query.get(), 4, afterRow);
  query.bind(5, batch);
  while (query.step() == SQLITE_ROW) {
    FinalOrderPicture row;
    row.rowid = sqlite3_column_int64(query.get(), 0);
    if (query.text(1)) row.path = query.text(1);
    row.status = query.integer(2);
    row.syncTime = query.text(3) ? query.text(3) : "";
    row.updateTime = query.text(4);
    row.pendingUse = query.integer(5) != 0;
    rows.push_back(std::move(row));
  }
  return true;
}

}  // namespace kps
