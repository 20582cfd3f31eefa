// The order store: one SQLite connection on PrintData.db and the mutex that serialises this
// object's writing statements. Its operations are spread over files of their own: open and
// schema (Database.cpp), order records, status stamping, the print run and the status sync.
#pragma once

#include <rapidjson/document.h>
#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "printer/CopyJob.h"

#include "store/SqliteStatement.h"

namespace kps {

class PrinterWait;

// One row of table local.
struct PrintOrder {
  std::string orderNo;
  std::string uuid;
  std::string path;
  std::int32_t status = 0;
  std::string syncTime;
  std::string updateTime;
  std::string printerName;
  std::string failReason;
  std::string deleteTime;
  std::string createTime;
  std::int32_t completedNumber = 0;
  std::int32_t realNumber = 1;
  std::string type;
};

// A final order as picture retention sees it.
struct FinalOrderPicture {
  std::int64_t rowid = 0;
  std::optional<std::string> path;  // none where the row holds NULL
  std::int32_t status = 0;
  std::string syncTime;  // empty: never reported
  std::string updateTime;
  bool pendingUse = false;  // a pending order names the same file
};

// An order the print run takes.
struct OrderToPrint {
  std::string uuid;
  std::string path;
  std::string deleteTime;
  std::int32_t realNumber = 1;
  std::string type;
};

// One copy of an order as the print run planned, made and ended it (table jobs).
struct CopyRecord {
  std::string name;                   // its job's name at the spooler
  std::optional<std::int32_t> jobId;  // none: planned; 0: a job is being made, its id not yet known
  std::optional<std::int32_t> result;  // the copy's code once it ended
};

struct OrderStatusRecord {
  std::int32_t completedNumber = 0;
  std::int32_t status = 0;
  std::string uuid;
};

class Database {
 public:
  // Opens or creates the file (and the folders of its path) in WAL mode and makes sure tables
  // local and remote exist. Throws std::runtime_error when the store cannot be set up.
  explicit Database(const std::string& path, int busyTimeoutMs = 5000);
  virtual ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  bool tableExists(const std::string& name);
  void createTable(const std::string& name);
  void executeSQL(const std::string& sql);

  // Order records.
  bool insertOrder(const std::string& table, const std::string& orderNo, const std::string& uuid,
                   const std::string& path, std::int32_t status, std::int32_t realNumber,
                   const std::string& type);
  bool deleteOrder(const std::string& table, const std::string& orderNo);
  // The status of the order of this uuid in table local; none when there is no such order (or
  // the store cannot be asked).
  std::optional<std::int32_t> storedStatus(const std::string& uuid);
  void getOrdersByOrderNo(const std::string& table, const std::string& orderNo,
                          std::vector<OrderStatusRecord>& list);

  // Status stamping. A failure is written only over a pending order: true when it was.
  bool updateFailStatus(const std::string& uuid, std::int32_t status, const std::string& failReason);
  void updateStatus(const std::string& uuid, std::int32_t status, std::int32_t completedNumber);
  void updateTime(const std::string& uuid);
  void updateSyncTime(const std::string& uuid);
  static std::string currentTimeString();

  // Status sync: reports every changed row to the backend and stamps what was received.
  void syncStatus(std::string url);
  void postStatus(const std::string& url, const rapidjson::Document& document);
  std::int32_t sendRequest(const std::string& url, const std::string& body, const char* method,
                           std::string& response);

  // The print run: prints every pending order, copy by copy, and records the outcome; also the
  // orders a run left with copies still to make (the service stopped, or a copy waits).
  void printPendingOrders();
  static std::int32_t printImage(const std::string& printerName, const std::string& path,
                                 const std::string& type, CopyJob* copy = nullptr);
  static std::string printResultName(std::int32_t code);
  // The intake's failReason for an order whose picture cannot be had.
  static constexpr const char* kPictureMissing = "IPP_JOB_HELD_PIC_PATH_NOT_EXIST";
  // Every failReason an order can end with but the empty one: the print run's and the intake's.
  static std::vector<std::string> failReasonNames();
  // The last run ended with a copy waiting for its printer ([WaitForPrinter]): the worker looks
  // again soon without a new order.
  bool waitingForPrinter() const;
  PrinterWait& printerWait() { return *printerWait_; }

  // Table jobs: every copy of an order the print run took, its job and its end, written as they
  // happen, so that no moment of a stop leaves a job the service cannot find again.
  std::map<std::int32_t, CopyRecord> copyRecords(const std::string& uuid);
  // Copies 1..copies planned, where the order has none yet.
  void planCopies(const std::string& uuid, std::int32_t copies);
  void recordJobId(const std::string& uuid, std::int32_t copy, std::int32_t jobId);
  void recordCopyEnd(const std::string& uuid, std::int32_t copy, std::int32_t result);

  // For picture retention (upkeep/PictureRetention.cpp), with databaseMutex held: up to `batch`
  // final orders last changed before `cutoff`, after (afterTime, afterRow) in (updateTime, rowid)
  // order, each with whether a pending order uses the same picture. False, with one line on
  // standard error, when the query cannot be made.
  bool finalOrdersChangedBefore(const std::string& cutoff, const std::string& afterTime,
                                std::int64_t afterRow, int batch, std::vector<FinalOrderPicture>& rows);
  // The index that query walks: built once, at a retention's first pass.
  void createRetentionIndex();
  bool isOpen() const { return db != nullptr; }

  // The poll loop's task fetch: hands both strings to the intake's GetTaskList.
  void fetchTaskList(std::string screenNumber, std::string url);

 protected:
  // SQLite's message for this connection, or why there is none.
  const char* errorMessage() const;

  sqlite3* db = nullptr;  // null once a failed set-up has closed it
  std::mutex mutex;

 private:
  void createHistoryIndexes();
  void createCopyTable();
  // Each statement run on its own; one that fails is one line on standard error, and the rest run.
  void executeEach(std::initializer_list<const char*> statements, const char* failure);
  // The print run's parts (PrintRun.cpp, PrintCopy.cpp): the orders it takes; one order, false
  // when a copy of it waits for a person; one copy's code; a copy's wait, or its end.
  std::vector<OrderToPrint> ordersToPrint();
  bool printOrder(const OrderToPrint& order);
  std::int32_t makeCopy(const OrderToPrint& order, std::int32_t copy, const CopyRecord* record);
  std::int32_t waitOrGiveUp(const PrinterState& state, const CopyJob* job);
  // Runs one statement of table jobs under the store's mutex; false, with a line, when it fails.
  bool writeCopy(const std::string& sql, const std::function<void(SqliteStatement&)>& bind);
  // What the print run keeps between runs while copies wait for a person.
  std::unique_ptr<PrinterWait> printerWait_;
  // One status update under the store's mutex: prepare (a failure reported on standard error
  // after prepareFailure), bind, then step with the busy retry. True when it changed a row.
  bool updateRow(const char* sql, const char* prepareFailure,
                 const std::function<void(SqliteStatement&)>& bind, const char* failureLine,
                 const char* successLine);
  // Steps a status update up to five times while the database is busy; its last result.
  int stepWithBusyRetry(SqliteStatement& statement, const char* failureLine,
                         const char* successLine);
};

}  // namespace kps
