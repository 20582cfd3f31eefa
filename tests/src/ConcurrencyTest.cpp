// Intake, print run and status sync at once, as the service's three threads run them: two
// store objects on one file, the wake-up hand-off, and an HTTPS backend.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "src/Runtime.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/ScriptedPrinterManager.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TestTransport.h"
#include "tests/support/WorkingDirectory.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

TEST(Concurrency, IntakePrintRunAndSyncTogetherLoseNothing) {
  constexpr int kBodies = 12, kTasksPerBody = 4;
  TestTransport transport;
  HttpsServer backend;
  std::atomic<int> reports{0};
  backend.routes().Post("/print/task/sync", [&](const httplib::Request&, httplib::Response& res) {
    ++reports;
    res.set_content("{\"code\":\"100\"}", "application/json");
  });
  const std::string url = backend.start() + "/print/task/sync";

  TempDir dir;
  WorkingDirectory cwd(dir.path());
  RemoteOrderIdManger intake("PrintData.db");
  auto shared = std::make_shared<Database>("PrintData.db");
  std::atomic<int> copies{0};
  scriptedPrintImage = [&](const std::wstring&, const std::wstring&, const std::string&) {
    ++copies;
    return 0;
  };

  OutputWatcher log;  // the store and intake lines, kept off the test's output
  std::atomic<bool> stop{false};
  std::thread printer([&] {
    std::unique_lock<std::mutex> lock(newOrderMutex);
    while (!stop) printWorkerCycle(lock, [&] { shared->printPendingOrders(); });
  });
  std::thread sync([&] {
    while (!stop) shared->syncStatus(url);
  });
  std::thread poll([&] {
    for (int body = 0; body < kBodies; ++body) {
      std::string data;
      for (int t = 0; t < kTasksPerBody; ++t) {
        const std::string id = std::to_string(body) + "-" + std::to_string(t);
        dir.write("p/" + id + ".jpg", "jpeg");  // on disk already: no download
        data += std::string(data.empty() ? "" : ",") + "{\"taskId\":\"T" + id + "\",\"pic\":\"p/" +
                id + ".jpg\",\"businessOrderId\":\"O\",\"number\":2,\"type\":\"frames\"}";
      }
      intake.ReceiveBackupData("{\"code\":\"100\",\"msg\":\"success\",\"data\":[" + data + "]}");
      // The service's poll pause guarantees the next pass starts only once the run it woke
      // holds its locks or is over (the two take them in opposite orders); here the pass waits
      // for the wake-up to be consumed instead of 3 s.
      for (;;) {
        {
          std::lock_guard<std::mutex> lock(newOrderMutex);
          if (!newOrderFlag) break;
        }
        std::this_thread::yield();
      }
    }
  });
  poll.join();

  SqliteFile file(dir.file("PrintData.db"));
  const auto allReported = [&] {
    return file.scalar("SELECT count(*) FROM local WHERE status = 2 AND completedNumber = 2 AND "
                       "syncTime IS NOT NULL AND syncTime >= updateTime") ==
           std::to_string(kBodies * kTasksPerBody);
  };
  bool done = false;
  for (int i = 0; i < 300 && !(done = allReported()); ++i) std::this_thread::sleep_for(100ms);
  stop = true;
  announceNewOrders(nullptr);
  printer.join();
  sync.join();
  {
    std::lock_guard<std::mutex> lock(newOrderMutex);
    newOrderFlag = false;
  }
  scriptedPrintImage = nullptr;

  EXPECT_TRUE(done) << file.scalar("SELECT group_concat(uuid||':'||status||':'||ifnull(syncTime,'-')) FROM local");
  EXPECT_EQ(copies.load(), kBodies * kTasksPerBody * 2);  // every copy printed once, no more
  EXPECT_GT(reports.load(), 0);
  EXPECT_EQ(file.scalar("PRAGMA integrity_check"), "ok");
}

}  // namespace
}  // namespace kps
