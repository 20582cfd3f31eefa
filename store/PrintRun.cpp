// The print run: every pending order of table local, copy by copy, with its outcome recorded.
#include <iostream>
#include <vector>

#include "base/Log.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "store/Runtime.h"

namespace kps {

namespace {

struct PendingOrder {
  std::string uuid;
  std::string path;
  std::string deleteTime;
  std::int32_t realNumber;
  std::string type;
};

}  // namespace

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

std::int32_t Database::printImage(const std::string& printerName, const std::string& path,
                                  const std::string& type) {
  std::int32_t code;
  {
    PrinterManager manager;
    code = manager.PrintImage(utf8ToWide(printerName), utf8ToWide(path), type);
  }
  if (code != 0) logLine(KPS_TAG_DATABASE, __LINE__, "printImage failed ");
  return code;
}

void Database::printPendingOrders() {
  std::lock_guard<std::mutex> run(databaseMutex);

  // The pending rows are read in full before the first copy: a statement left open across a
  // run of minutes would hold every status update of the run uncommitted until its end.
  std::vector<PendingOrder> orders;
  {
    SqliteStatement query(db,
                          "SELECT uuid, path, status, deleteTime, realNumber, printerName,type "
                          "FROM local WHERE status = 0;");
    if (!query.ok()) {
      std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
      return;
    }
    int result;
    while ((result = query.step()) == SQLITE_ROW) {
      const char* uuid = query.text(0);
      const char* path = query.text(1);
      const char* deleteTime = query.text(3);
      const char* type = query.text(6);
      if (!uuid || !path || !type) {
        logLine(KPS_TAG_DATABASE, __LINE__, "order skipped, NULL uuid, path or type: ",
                uuid ? uuid : "");
        continue;
      }
      orders.push_back({uuid, path, deleteTime ? deleteTime : "", query.integer(4), type});
    }
    if (result != SQLITE_DONE)
      std::cerr << "Failed to fetch data: " << errorMessage() << std::endl;
  }

  for (const auto& order : orders) {
    if (!order.deleteTime.empty()) {
      updateStatus(order.uuid, 3, 0);
      updateTime(order.uuid);
      continue;
    }
    int succeeded = 0, failed = 0;
    for (std::int32_t i = 0; i < order.realNumber; ++i) {
      const std::int32_t code = printImage(PrinterSettings.printerName, order.path, order.type);
      if (code != 0) {
        logLine(KPS_TAG_DATABASE, __LINE__, "uuid : ", order.uuid);
        const std::string name = printResultName(code);
        updateFailStatus(order.uuid, 4, name);
        updateTime(order.uuid);
        logLine(KPS_TAG_DATABASE, __LINE__, "Print faild : ", name);
        ++failed;
      } else {
        updateStatus(order.uuid, 2, i + 1);
        updateTime(order.uuid);
        ++succeeded;
      }
    }
    if (order.realNumber > 1 && succeeded > 0 && failed > 0) {
      updateStatus(order.uuid, 5, succeeded);
      logLine(KPS_TAG_DATABASE, __LINE__, "Print faild PARTIAL_COMPLETED ");
    } else if (succeeded == order.realNumber) {
      updateStatus(order.uuid, 2, order.realNumber);
      logLine(KPS_TAG_DATABASE, __LINE__, "Print success ");
    }
  }
}

}  // namespace kps
