// Adding, finding and removing the rows of one business order.
#include <iostream>

#include "src/Database.h"

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

}  // namespace kps
