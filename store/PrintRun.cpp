// The print run: every pending order of table local, copy by copy, with its outcome recorded;
// also every order a run left with copies still to end (the service stopped, a copy waits).
#include <iostream>
#include <vector>

#include "base/Health.h"
#include "base/Log.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "store/PrinterWait.h"
#include "store/Runtime.h"

namespace kps {

std::string Database::printResultName(std::int32_t code) {
  switch (code) {
    case -1: return "IPP_JOB_HELD_NOT_PRINTER";
    case -2: return "IPP_JOB_FILE_NOT_EXIST";
    case -3: return "IPP_JOB_HELD";
    case -4: return "IPP_JOB_STOPPED";
    case -5: return "IPP_JOB_CANCELED";
    case -6: return "IPP_JOB_ABORTED";
    case -7: return "IPP_TIME_OUT";
    default: return "";
  }
}

std::vector<std::string> Database::failReasonNames() {
  std::vector<std::string> names;
  for (std::int32_t code = -1; !printResultName(code).empty(); --code) names.push_back(printResultName(code));
  names.push_back(kPictureMissing);
  return names;
}

std::int32_t Database::printImage(const std::string& printerName, const std::string& path,
                                  const std::string& type, CopyJob* copy) {
  std::int32_t code;
  {
    PrinterManager manager;
    code = manager.PrintImage(utf8ToWide(printerName), utf8ToWide(path), type, copy);
  }
  if (code != 0 && code != kPrintWaiting) logLine(KPS_TAG_DATABASE, __LINE__, "printImage failed ");
  return code;
}

bool Database::waitingForPrinter() const { return printerWait_->waiting(); }

std::vector<OrderToPrint> Database::ordersToPrint() {
  // The rows are read in full before the first copy: a statement left open across a run of
  // minutes would hold every status update of the run uncommitted until its end.
  std::vector<OrderToPrint> orders;
  const auto read = [&](SqliteStatement& query) {
    int result;
    while ((result = query.step()) == SQLITE_ROW) {
      const char* uuid = query.text(0);
      const char* path = query.text(1);
      const char* deleteTime = query.text(3);
      const char* type = query.text(6);
      if (!uuid || !path || !type) {
        logLine(KPS_TAG_DATABASE, __LINE__, "order skipped, NULL uuid, path or type: ", uuid ? uuid : "");
        continue;
      }
      OrderToPrint order;
      order.uuid = uuid, order.path = path, order.deleteTime = deleteTime ? deleteTime : "";
      order.realNumber = query.integer(4), order.type = type;
      orders.push_back(std::move(order));
    }
    return result;
  };
  {
    SqliteStatement query(db, "SELECT uuid, path, status, deleteTime, realNumber, printerName,type FROM local WHERE status = 0;");
    if (!query.ok()) {
      std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
      return orders;
    }
    if (read(query) != SQLITE_DONE) std::cerr << "Failed to fetch data: " << errorMessage() << std::endl;
  }
  // An order reads printed after its first copy: whatever its status, it is unfinished while a
  // copy of it has not ended.
  SqliteStatement unfinished(db, "SELECT uuid, path, status, deleteTime, realNumber, printerName,type FROM local "
                                 "WHERE status IN (2, 4, 5) AND uuid IN (SELECT uuid FROM jobs WHERE result IS NULL);");
  if (unfinished.ok()) read(unfinished);
  return orders;
}

void Database::printPendingOrders() {
  std::lock_guard<std::mutex> run(databaseMutex);
  printerWait_->setWaiting(false);
  for (const auto& order : ordersToPrint()) {
    if (!order.deleteTime.empty()) {
      updateStatus(order.uuid, 3, 0);
      updateTime(order.uuid);
      continue;
    }
    // A copy waits for a person at the printer: the run ends, and the intake goes on.
    if (!printOrder(order)) {
      printerWait_->setWaiting(true);
      return;
    }
  }
}

bool Database::printOrder(const OrderToPrint& order) {
  if (order.realNumber > 0) planCopies(order.uuid, order.realNumber);
  const std::map<std::int32_t, CopyRecord> records = copyRecords(order.uuid);
  int succeeded = 0, failed = 0;
  std::int32_t firstFailure = 0;  // the order's failReason is the first failed copy's
  for (std::int32_t i = 0; i < order.realNumber; ++i) {
    const auto found = records.find(i + 1);
    const CopyRecord* record = found == records.end() ? nullptr : &found->second;
    std::int32_t code;
    if (record && record->result) {
      code = *record->result;  // ended before: its row was written then
    } else {
      code = makeCopy(order, i + 1, record);
      if (code == kPrintWaiting) return false;
      if (code != 0) {
        logLine(KPS_TAG_DATABASE, __LINE__, "uuid : ", order.uuid);
        const std::string name = printResultName(code);
        updateFailStatus(order.uuid, 4, name);
        updateTime(order.uuid);
        logLine(KPS_TAG_DATABASE, __LINE__, "Print faild : ", name);
      } else {
        updateStatus(order.uuid, 2, i + 1);
        updateTime(order.uuid);
      }
      // After the row: a stop between the two follows the job again, and writes the row again.
      recordCopyEnd(order.uuid, i + 1, code);
    }
    code == 0 ? ++succeeded : ++failed;
    if (code != 0 && firstFailure == 0) firstFailure = code;
  }
  // Counted here, where every copy has ended, so that an order counts once whatever its copies did.
  if (order.realNumber > 1 && succeeded > 0 && failed > 0) {
    updateStatus(order.uuid, 5, succeeded);
    logLine(KPS_TAG_DATABASE, __LINE__, "Print faild PARTIAL_COMPLETED ");
    Health::instance().noteOrderEnded(OrderEnd::Partial);
  } else if (succeeded == order.realNumber) {
    updateStatus(order.uuid, 2, order.realNumber);
    logLine(KPS_TAG_DATABASE, __LINE__, "Print success ");
    Health::instance().noteOrderEnded(OrderEnd::Printed);
  } else if (failed > 0) {
    Health::instance().noteOrderEnded(OrderEnd::Failed, printResultName(firstFailure));
  }
  return true;
}

}  // namespace kps
