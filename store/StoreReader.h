// A look at the store from outside the service: its own read-only connection, never creating
// the file, never writing, never holding a lock the service would wait for.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kps {

class StoreReader {
 public:
  explicit StoreReader(const std::string& path);
  ~StoreReader();
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  bool opened() const { return db_ != nullptr; }
  const std::string& error() const { return error_; }

  // "ok", or what SQLite's quick check found first.
  std::string quickCheck();
  // The pending orders, and the oldest one's age in seconds (-1 without one): the store keeps
  // no time for a pending order, its picture file was written when it was taken in.
  std::pair<std::int64_t, std::int64_t> pendingOrders();
  // Every row of a query, each column as text ("" for NULL); text parameters bound in order.
  // Empty with error() set when it fails.
  std::vector<std::vector<std::string>> rows(const std::string& sql,
                                             const std::vector<std::string>& parameters = {});

 private:
  sqlite3* db_ = nullptr;
  std::string error_;
};

}  // namespace kps
