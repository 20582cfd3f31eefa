// Whole journeys of the real binary against the sandbox (backend, object store, CUPS), on Linux
// and, as the Windows exe, under Wine.
#include <gtest/gtest.h>

#include <rapidjson/document.h>

#include "base/Log.h"
#include "tests/e2e/Journey.h"
#include "tests/support/NodeExporter.h"
#include "tests/support/PrometheusText.h"

namespace kps {
namespace {

TEST_F(ServiceJourney, EveryProductTypePrintedAndReportedOnce) {
  // A backslash separates folders as a slash does: that picture is kept, and printed, at p/card.jpg.
  for (const char* key : {"p/post.jpg", "p/frame.jpg", "p\\card.jpg", "p/magnet.jpg"}) putPicture(key);
  setTasks({task("T-post", "p/post.jpg", 1, "postcards"), task("T-frame", "p/frame.jpg", 2, "frames"),
            task("T-card", "p\\card.jpg", 1, "cardsets"), task("T-magnet", "p/magnet.jpg", 1, "fridgemagnets"),
            task("T-bad", "p/post.jpg", 1, "posters")});
  startService();
  const std::pair<std::string, std::string> finals[] = {
      {"T-post", report("T-post", 2, 1)}, {"T-card", report("T-card", 2, 1)}, {"T-magnet", report("T-magnet", 2, 1)},
      {"T-bad", report("T-bad", 4, 0, "IPP_JOB_HELD_NOT_PRINTER")}};
  // The two-copy order is reported after its first copy. When its second copy lands between the
  // sync's query and its stamp, the stamp covers the newer state although the request carried
  // the older one (the system's defined behaviour): its final state is then in the store only.
  SqliteFile db(root.file("work/PrintData.db"));
  ASSERT_TRUE(waitUntil([&] {
    for (const auto& [id, json] : finals)
      if (lastReport(id) != json) return false;
    return db.order("T-frame") == "2|2|-" && lastReport("T-frame").find("\"status\":2") != std::string::npos;
  }, 90s)) << syncLog();

  // The task list is served on every poll: two more polls print nothing more.
  const auto seen = count(service->out(), "] response :");
  ASSERT_TRUE(waitUntil([&] { return count(service->out(), "] response :") >= seen + 2; }, 15s));
  EXPECT_EQ(keptPages().size(), 5u);
  for (const auto& [id, json] : finals) EXPECT_EQ(count(syncLog(), json), 1u) << id;  // each final status once
}

// The store fails a picture's first sixteen requests and the backend drops every sync: the
// failed picture uses its whole budget, the next is fetched and printed, the missing one fails
// at once; the statuses wait and then reach the backend together, in one request.
TEST_F(ServiceJourney, FailuresUseTheRetryBudgetAndStatusesWaitOutTheBackend) {
  root.write("sandbox/backend-mode", "sync-down");
  std::string faults;  // four calls of four requests each (the client retries a 500 three times)
  for (int i = 0; i < 16; ++i) faults += "{\"error\":500}\n";
  root.write("sandbox/oss-faults", faults);
  putPicture("p/a.jpg");
  putPicture("p/b.jpg");
  setTasks({task("T-1", "p/a.jpg"), task("T-2", "p/b.jpg", 1, "frames"), task("T-3", "p/c.jpg")});
  startService();
  SqliteFile db(root.file("work/PrintData.db"));
  ASSERT_TRUE(waitUntil([&] { return db.scalar("SELECT group_concat(status) FROM local") == "4,2,4"; }, 60s))
      << db.scalar("SELECT group_concat(uuid||':'||status) FROM local") << service->out();
  ASSERT_TRUE(service->waitForOutput("URL_UPDATE_PRINTSTATUS ERROR \n", 10s));
  EXPECT_EQ(count(service->out(), "GetObjectToFile fail,code:InternalError"), 4u);  // 1 + 3, one budget per body
  EXPECT_EQ(count(service->out(), "GetObjectToFile fail,code:NoSuchKey"), 1u);
  EXPECT_EQ(syncLog(), "");
  root.write("sandbox/backend-mode", "ok");
  ASSERT_TRUE(waitUntil([&] { return !syncLog().empty(); }, 15s));
  EXPECT_EQ(syncLog(), "[" + report("T-1", 4, 0) + "," + report("T-2", 2, 1) + "," + report("T-3", 4, 0) + "]\n");
  EXPECT_EQ(keptPages().size(), 1u);
}

TEST_F(ServiceJourney, KilledAtRandomMomentsLosesNoOrder) {
  std::mt19937 random(20261121);
  std::vector<std::string> tasks;
  for (int i = 0; i < 8; ++i) {
    putPicture("k/" + std::to_string(i) + ".jpg");
    tasks.push_back(task("K-" + std::to_string(i), "k/" + std::to_string(i) + ".jpg", 1 + i % 2));
  }
  setTasks(tasks);
  std::set<std::string> known;
  for (int round = 0; round < 4; ++round) {
    startService();
    std::this_thread::sleep_for(std::chrono::milliseconds(400 + random() % 2500));  // the moment
    service->kill();
    SqliteFile db(root.file("work/PrintData.db"));
    EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
    for (const auto& id : known) EXPECT_EQ(db.scalar("SELECT count(*) FROM local WHERE uuid = '" + id + "'"), "1") << id;
    for (int i = 0; i < 8; ++i)
      if (db.scalar("SELECT count(*) FROM local WHERE uuid = 'K-" + std::to_string(i) + "'") == "1")
        known.insert("K-" + std::to_string(i));
  }
  // A new order wakes the print worker: then every order ends in a final state.
  putPicture("k/new.jpg");
  tasks.push_back(task("K-new", "k/new.jpg", 1, "frames"));
  setTasks(tasks);
  startService();
  SqliteFile db(root.file("work/PrintData.db"));
  EXPECT_TRUE(waitUntil([&] { return db.scalar("SELECT count(*) FROM local WHERE status IN (2, 4, 5)") == "9"; }, 90s))
      << db.scalar("SELECT group_concat(uuid||':'||status) FROM local");
}

// A full disk under the working directory, its own log included: no crash, no fragment at a
// picture's path, a store that stays whole; once there is room again the tasks still listed
// come in and print, and the log goes on.
TEST_F(ServiceJourney, AFullDiskIsWaitedOutAndNothingIsLost) {
  if (::geteuid() != 0) GTEST_SKIP() << "a small disk for this test is mounted as root only";
  const std::string disk = root.file("work");
  if (sh("mount -t tmpfs -o size=16m tmpfs " + disk) != 0) GTEST_SKIP() << "no tmpfs could be mounted";
  mounted = disk;
  writeConfig("kps-virtual", "256", "258");
  service = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/bin/sh", "-c", "exec " KPS_BINARY " >>service.log 2>&1"}, disk,
      std::map<std::string, std::string>{{"CUPS_SERVER", "localhost:18631"}, {"HOME", root.path()}});
  ASSERT_TRUE(waitUntil([&] { return root.read("work/service.log").find("] response :") != std::string::npos; }, 20s));
  sh("dd if=/dev/zero of=" + disk + "/filler bs=64k");  // ends when the disk is full
  sh("yes 'the test filled the disk' | dd of=" + disk + "/service.log oflag=append conv=notrunc");  // and the log's last page
  const std::vector<std::string> ids = {"F-0", "F-1", "F-2"};
  for (const auto& id : ids) ASSERT_EQ(sh("mkdir -p " + data + "/objects/full && convert -size 500x500 xc: +noise Random " +
                                          data + "/objects/full/" + id + ".jpg"), 0);
  setTasks({task("F-0", "full/F-0.jpg"), task("F-1", "full/F-1.jpg", 1, "frames"), task("F-2", "full/F-2.jpg", 1, "cardsets")});
  // Two polls tried the first picture and could not keep it.
  ASSERT_TRUE(waitUntil([&] { return count(root.read("sandbox/oss-requests.log"), "full/F-0.jpg\n") >= 8; }, 60s));
  EXPECT_EQ(service->waitForExit(0ms), -1) << "the service ended";
  SqliteFile db(disk + "/PrintData.db");
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(db.scalar("SELECT count(*) FROM local"), "0");  // left for later, not stored as failed
  EXPECT_EQ(output("find " + disk + " -name '*.jpg*'"), "");  // no picture, no fragment

  fs::remove(disk + "/filler");
  ASSERT_TRUE(waitUntil([&] {
    for (const auto& id : ids) if (lastReport(id) != report(id, 2, 1)) return false;
    return true;
  }, 60s)) << syncLog();
  for (const auto& id : ids) EXPECT_EQ(root.read("work/full/" + id + ".jpg"), root.read("sandbox/objects/full/" + id + ".jpg"));
  EXPECT_EQ(keptPages().size(), 3u);
  EXPECT_NE(root.read("work/service.log").find("] ----receive backup data to printer---"), std::string::npos);
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
}



// [StatusFile] and [MetricsFile]: after a poll, a sync, a printed and a failed order, the
// heartbeat says each, and so do the metrics as node_exporter serves them; `--status` beside the
// running service finds the status file fresh and the kiosk healthy.
TEST_F(ServiceJourney, StatusAndMetricsFilesAfterAPrintedAndAFailedOrder) {
  addToConfig("[StatusFile]\npath=status.json\n\n[MetricsFile]\npath=kiosk.prom\n");
  putPicture("p/a.jpg");
  setTasks({task("T-ok", "p/a.jpg"), task("T-bad", "p/a.jpg", 1, "posters")});
  const double start = static_cast<double>(std::time(nullptr));
  startService();
  rapidjson::Document status;
  const auto read = [&] { return !status.Parse(root.read(work + "/status.json").c_str()).HasParseError() && status.IsObject(); };
  std::map<std::string, double> metrics;
  const auto finished = [&](const char* end) {
    metrics = prometheusSamples(root.read(work + "/kiosk.prom"));
    const auto found = metrics.find(std::string("kioskprint_orders_finished_total{status=\"") + end + "\"}");
    return found == metrics.end() ? -1 : found->second;
  };
  ASSERT_TRUE(waitUntil([&] {
    return lastReport("T-ok") == report("T-ok", 2, 1) && lastReport("T-bad").find("\"status\":4") != std::string::npos &&
           read() && status["today"]["printed"] == 1 && status["today"]["failed"] == 1 && status["lastSync"].IsObject() &&
           status["lastSync"]["outcome"] == "reported" && finished("printed") == 1 && finished("failed") == 1 &&
           metrics["kioskprint_backend_last_success_timestamp_seconds{request=\"sync\"}"] >= start;
  }, 90s)) << syncLog() << root.read(work + "/status.json") << root.read(work + "/kiosk.prom");
  NodeExporter exporter(root.file(work));
  ASSERT_TRUE(exporter.ready()) << exporter.log();
  const auto served = prometheusSamples(exporter.scrape());
  EXPECT_EQ(served.at("node_textfile_scrape_error"), 0);
  const std::pair<std::string, double> said[] = {
      {"kioskprint_orders_finished_total{status=\"printed\"}", 1},
      {"kioskprint_orders_finished_total{status=\"failed\"}", 1},
      {"kioskprint_orders_finished_total{status=\"partial\"}", 0},
      {"kioskprint_orders_failed_total{reason=\"IPP_JOB_HELD_NOT_PRINTER\"}", 1},
      {"kioskprint_orders_failed_total{reason=\"none\"}", 0},
      {"kioskprint_orders_pending", 0},
      {"kioskprint_printer_ready{printer=\"kps-virtual\"}", 1},
      {"kioskprint_backend_requests_failed_total{request=\"download\"}", 0},
  };
  for (const auto& [series, value] : said) {
    ASSERT_EQ(served.count(series), 1u) << series << "\n" << root.read(work + "/kiosk.prom");
    EXPECT_EQ(served.at(series), value) << series;
  }
  EXPECT_GE(served.at("kioskprint_backend_last_success_timestamp_seconds{request=\"poll\"}"), start);
  EXPECT_FALSE(std::string(status["version"].GetString()).empty());
  EXPECT_TRUE(std::regex_match(status["time"].GetString(), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
  EXPECT_EQ(std::string(status["lastPoll"]["outcome"].GetString()), "HTTP 200, code \"100\", 2 task(s)");
  EXPECT_GE(status["lastSync"]["rowsSent"].GetInt(), 1);
  EXPECT_EQ(std::string(status["printer"]["name"].GetString()), "kps-virtual");
  EXPECT_TRUE(status["printer"]["ready"].GetBool());
  EXPECT_EQ(status["pending"]["count"].GetInt(), 0);
  EXPECT_TRUE(status["pending"]["oldestAgeSeconds"].IsNull());
  EXPECT_EQ(std::string(status["lastFailure"]["task"].GetString()), "T-bad");
  EXPECT_EQ(std::string(status["lastFailure"]["failReason"].GetString()), "IPP_JOB_HELD_NOT_PRINTER");
  EXPECT_FALSE(fs::exists(root.file(work + "/status.json.tmp")));
  EXPECT_FALSE(fs::exists(root.file(work + "/kiosk.prom.tmp")));

  EXPECT_EQ(runCommand({"--status"}), 0) << commandOut;
  for (const char* line : {"): 1 printed, 1 failed\n", "failure reasons the last 7 days: IPP_JOB_HELD_NOT_PRINTER 1\n",
                           "status file status.json: written ", "healthy\n"})
    EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
}

// Picture bombs pending before a good order: each bomb's copies fail with one line naming the
// picture, its order is failed and reported, the good order prints, and the process lives on.
TEST_F(ServiceJourney, PictureBombsFailTheirOrdersAndTheNextOnePrints) {
  startWithPictureBombsBeforeAGoodOrder();
  ASSERT_TRUE(waitUntil([&] {
    return lastReport("T-png") == report("T-png", 4, 0, "IPP_JOB_ABORTED") &&
           lastReport("T-svg") == report("T-svg", 4, 0, "IPP_JOB_ABORTED") && lastReport("T-good") == report("T-good", 2, 1);
  }, 90s)) << syncLog() << service->out();
  EXPECT_EQ(service->waitForExit(0ms), -1) << "the service ended";
  const std::string log = service->out();
  EXPECT_EQ(count(log, kBombLines[0]), 1u) << log;
  EXPECT_EQ(count(log, kBombLines[1]), 2u) << log;  // one a copy
  EXPECT_EQ(keptPages().size(), 1u);
}

TEST_F(WineJourney, PictureBombsFailTheirOrdersAndTheNextOnePrints) {
  startWithPictureBombsBeforeAGoodOrder();
  ASSERT_TRUE(waitUntil([&] { return allFinal({"T-png", "T-svg", "T-good"}) && keptPages().size() == 1; }, 120s))
      << syncLog() << service->out() << service->err();
  EXPECT_EQ(service->waitForExit(0ms), -1) << "the service ended";
  stopService();
  EXPECT_EQ(lastReport("T-png"), report("T-png", 4, 0, "IPP_JOB_ABORTED"));
  EXPECT_EQ(lastReport("T-svg"), report("T-svg", 4, 0, "IPP_JOB_ABORTED"));
  EXPECT_EQ(count(output_, kBombLines[0]), 1u) << output_;
  EXPECT_EQ(count(output_, kBombLines[1]), 2u) << output_;
  SqliteFile db(root.file("work/PrintData.db"));
  EXPECT_EQ(db.order("T-good"), printedRow());
}

// Keys Windows cannot hold (a device, a stream, a character it forbids), a key naming another
// task's picture by another spelling, and one through a folder of a download's temporary name:
// each task is failed and reported, and none holds back the tasks after it; a download beside a
// folder of that name (left by an older version) takes a shorter temporary name.
TEST_F(WineJourney, KeysWindowsCannotHoldOrSpelledAnotherWayHoldNothingBack) {
  fs::create_directories(root.file("work/pics/~~~~~~~~"));
  for (const char* key : {"Photo.JPG", "photo.jpg", "pics/longname.jpg", "last.jpg"}) putPicture(key);
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"aux.jpg", "names a device on Windows"}, {"x/CON", "names a device on Windows"},
      {"a.jpg:x", "holds a character Windows does not allow in a name"},
      {"what?.jpg", "holds a character Windows does not allow in a name"},
      {"photo.jpg", "names an existing file or folder by another spelling"},
      {"PICS/other.jpg", "names an existing file or folder by another spelling"},
      {"pics/~~~~~~~~/x.jpg", "names one of the service's own files"}};
  std::vector<std::string> tasks = {task("T-first", "Photo.JPG")}, ids = {"T-first", "T-beside", "T-last"};
  for (std::size_t i = 0; i < refused.size(); ++i) {
    tasks.push_back(task("T-refused-" + std::to_string(i), refused[i].first));
    ids.push_back("T-refused-" + std::to_string(i));
  }
  tasks.push_back(task("T-beside", "pics/longname.jpg"));
  tasks.push_back(task("T-last", "last.jpg"));
  setTasks(tasks);
  startService();
  ASSERT_TRUE(waitUntil([&] { return allFinal(ids) && keptPages().size() == 3; }, 120s)) << syncLog() << service->out();
  stopService();
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_EQ(lastReport("T-refused-" + std::to_string(i)), report("T-refused-" + std::to_string(i), 4, 0)) << refused[i].first;
    EXPECT_NE(output_.find("] refused picture key: " + refused[i].first + " (" + refused[i].second + ")"), std::string::npos)
        << refused[i].first << "\n" << output_;
  }
  EXPECT_EQ(output_.find("task left for a later poll"), std::string::npos) << output_;
  SqliteFile db(root.file("work/PrintData.db"));
  for (const char* id : {"T-first", "T-beside", "T-last"}) EXPECT_EQ(db.order(id), printedRow()) << id;
  EXPECT_EQ(root.read("work/Photo.JPG"), root.read("sandbox/objects/Photo.JPG"));  // the first key's picture, kept
  EXPECT_TRUE(fs::is_regular_file(root.file("work/pics/longname.jpg")));
}

TEST_F(WineJourney, EveryProductTypeANonAsciiKeyAndAMissingPicture) {
  for (const char* key : {"p/post.jpg", "p/frame.jpg", "p/card.jpg", "照片/猫咪 1.jpg"}) putPicture(key);
  setTasks({task("T-post", "p/post.jpg"), task("T-frame", "p/frame.jpg", 1, "frames"),
            task("T-card", "p/card.jpg", 1, "cardsets"), task("T-magnet", "照片/猫咪 1.jpg", 1, "fridgemagnets"),
            task("T-missing", "p/none.jpg")});
  startService();
  std::vector<std::string> pages;
  ASSERT_TRUE(waitUntil([&] {
    return allFinal({"T-post", "T-frame", "T-card", "T-magnet", "T-missing"}) && (pages = keptPages()).size() == 4 &&
           output("CUPS_SERVER=localhost:18631 lpstat -o").empty();
  }, 120s)) << syncLog() << service->out() << service->err();
  stopService();

  EXPECT_TRUE(fs::is_regular_file(fs::u8path(root.file("work/照片/猫咪 1.jpg"))));  // its own name on Windows too
  SqliteFile db(root.file("work/PrintData.db"));
  for (const char* id : {"T-post", "T-frame", "T-card", "T-magnet"}) EXPECT_EQ(db.order(id), printedRow()) << id;
  EXPECT_EQ(db.order("T-missing"), "4|-|-");
  EXPECT_EQ(lastReport("T-missing"), report("T-missing", 4, 0));
  // The pictures at their sizes, top left, in job order: width x 3.7 by height x 3.8 hundredths
  // of an inch (370 x 570 for 100 x 150, 296 x 304 for 80 x 80), red left of blue.
  const int sizes[][2] = {{370, 570}, {370, 570}, {370, 570}, {296, 304}};
  for (std::size_t i = 0; i < pages.size(); ++i) {
    int width = 0, height = 0;
    std::sscanf(renderPage(pages[i], root.file("page.png")).c_str(), "%dx%d", &width, &height);
    EXPECT_NEAR(width, sizes[i][0], 3) << pages[i];
    EXPECT_NEAR(height, sizes[i][1], 3) << pages[i];
  }
}

TEST_F(WineJourney, KilledWithTheWholeWineServerAndStartedAgainLosesNoOrder) {
  std::vector<std::string> tasks, ids;
  for (int i = 0; i < 5; ++i) {
    ids.push_back("K-" + std::to_string(i));
    putPicture("k/" + std::to_string(i) + ".jpg");
    tasks.push_back(task(ids.back(), "k/" + std::to_string(i) + ".jpg"));
  }
  setTasks(tasks);
  startService();
  ASSERT_TRUE(waitUntil([&] { return !syncLog().empty(); }, 90s));
  stopService();  // mid-run: some orders reported, the others waiting or printing
  {
    SqliteFile db(root.file("work/PrintData.db"));
    EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(db.scalar("SELECT count(*) FROM local"), "5");
  }
  // A new order wakes the print worker of the new process: then every order ends final.
  putPicture("k/new.jpg");
  ids.push_back("K-new");
  tasks.push_back(task("K-new", "k/new.jpg", 1, "frames"));
  setTasks(tasks);
  startService();
  EXPECT_TRUE(waitUntil([&] { return allFinal(ids); }, 120s)) << syncLog();
  stopService();
  SqliteFile db(root.file("work/PrintData.db"));
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(db.scalar("SELECT count(*) FROM local WHERE status IN (2, 4)"), "6");
}

// [LogFile] under Windows: the exe's own lines, without a redirection, in today's file.
TEST_F(WineJourney, WithALogFileTheLinesGoToTodaysFile) {
  addToConfig("[LogFile]\nfolder=logs\n");
  putPicture("p/post.jpg");
  setTasks({task("T-post", "p/post.jpg")});
  const std::string today = work + "/logs/kiosk-print-service-" + localTimeString(std::time(nullptr)).substr(0, 10) + ".log";
  startService();
  ASSERT_TRUE(waitUntil([&] { return allFinal({"T-post"}); }, 90s)) << syncLog();
  stopService();
  const std::string log = root.read(today);
  for (const char* line : {"--PrinterConfig.PrinterName--kps-virtual\n", "] url : ", "Default printer set to: kps-virtual\n"})
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
  EXPECT_EQ(log.find('\r'), std::string::npos);
  EXPECT_EQ(output_, "");
}

// `--status` of the Windows exe on a store the service left: counts, and a pending order waiting
// too long.
TEST_F(WineJourney, StatusOfAStoreTheServiceLeft) {
  {
    SqliteFile store(root.file(work + "/PrintData.db"));
    ASSERT_TRUE(store.exec("CREATE TABLE local (orderNo TEXT, uuid TEXT, path TEXT, status INTEGER, syncTime TEXT, "
                           "updateTime TEXT, failReason TEXT, type TEXT);"
                           "INSERT INTO local VALUES ('O', 'a', 'p/a.jpg', 2, '" + localTimeString() + "', '" + localTimeString() +
                           "', NULL, 'postcards'), ('O', 'b', 'p/b.jpg', 0, NULL, NULL, NULL, 'frames');"));
  }
  root.write(work + "/p/b.jpg", "jpeg");
  fs::last_write_time(root.file(work + "/p/b.jpg"), fs::file_time_type::clock::now() - 20min);
  EXPECT_EQ(runCommand({"--status"}), 1) << commandOut;
  for (const char* line : {"): 1 printed\n", "pending: 1, the oldest 20 min old\n",
                           "attention: an order has been pending for 20 min\n", "needs attention\n"})
    EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
}

}  // namespace
}  // namespace kps
