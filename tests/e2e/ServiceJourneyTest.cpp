// Whole journeys of the real binary against the sandbox: backend, object store, CUPS.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestPictures.h"

namespace kps {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::size_t count(const std::string& text, const std::string& needle) {
  std::size_t n = 0;
  for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

std::string task(const std::string& id, const std::string& pic, int copies, const std::string& type) {
  return "{\"taskId\":\"" + id + "\",\"pic\":\"" + pic + "\",\"businessOrderId\":\"O-" + id +
         "\",\"status\":0,\"number\":" + std::to_string(copies) + ",\"type\":\"" + type + "\"}";
}

class ServiceJourney : public ::testing::Test {
 protected:
  void SetUp() override {
    data = root.path() + "/sandbox";
    work = root.path() + "/work";
    fs::create_directories(work);
    // The scheduler's filters run as lp: they must be able to reach the sandbox's folders.
    fs::permissions(root.path(), fs::perms::owner_all | fs::perms::group_read |
                                     fs::perms::group_exec | fs::perms::others_read |
                                     fs::perms::others_exec);
    ASSERT_EQ(sh(KPS_SOURCE_DIR "/sandbox/start " + data), 0);
    writeConfig("kps-virtual");
  }
  void TearDown() override {
    service.reset();
    sh(KPS_SOURCE_DIR "/sandbox/stop " + data);
  }

  static int sh(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str());
  }
  void writeConfig(const std::string& printer) {
    std::ofstream(work + "/config.ini")
        << sampleConfig({{"PrinterName", printer}, {"ScreenId", "E2E"}, {"FourSize", "256"},
                         {"ThreeSize", "258"}, {"Rearfeeder", "7"}});
  }
  void setTasks(const std::vector<std::string>& tasks) {
    std::string list;
    for (const auto& t : tasks) list += (list.empty() ? "" : ",") + t;
    std::ofstream(data + "/tasks.json.tmp")
        << "{\"E2E\":{\"code\":\"100\",\"msg\":\"success\",\"data\":[" + list + "]}}";
    fs::rename(data + "/tasks.json.tmp", data + "/tasks.json");
  }
  void putPicture(const std::string& key) {
    fs::create_directories(fs::path(data + "/objects/" + key).parent_path());
    ASSERT_TRUE(writeTestJpeg(data + "/objects/" + key, 400, 600));
  }
  void setMode(const std::string& file, const std::string& mode) {
    std::ofstream(data + "/" + file) << mode;
  }
  void startService() {
    service = std::make_unique<ChildProcess>(
        std::vector<std::string>{KPS_BINARY}, work,
        std::map<std::string, std::string>{{"CUPS_SERVER", "localhost:18631"},
                                           {"HOME", root.path()}});
  }
  std::string syncLog() {
    std::ifstream in(data + "/sync.log");
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // The last object the backend received for a task, or "".
  std::string lastReport(const std::string& id) {
    const std::string log = syncLog();
    std::string last;
    const std::regex item("\\{\"taskId\":\"" + id + "\"[^}]*\\}");
    for (auto it = std::sregex_iterator(log.begin(), log.end(), item); it != std::sregex_iterator(); ++it)
      last = it->str();
    return last;
  }
  static bool waitUntil(const std::function<bool()>& done, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(100ms);
    }
    return true;
  }
  std::vector<std::string> keptPages() {
    std::vector<std::string> pages;
    for (const auto& entry : fs::directory_iterator(data + "/cups/eve"))
      if (entry.path().extension() == ".pdf") pages.push_back(entry.path().string());
    std::sort(pages.begin(), pages.end());
    return pages;
  }

  TempDir root;
  std::string data, work;
  std::unique_ptr<ChildProcess> service;
};

TEST_F(ServiceJourney, EveryProductTypePrintedAndReportedOnce) {
  for (const char* key : {"p/post.jpg", "p/frame.jpg", "p/card.jpg", "p/magnet.jpg"}) putPicture(key);
  setTasks({task("T-post", "p/post.jpg", 1, "postcards"), task("T-frame", "p/frame.jpg", 2, "frames"),
            task("T-card", "p/card.jpg", 1, "cardsets"), task("T-magnet", "p/magnet.jpg", 1, "fridgemagnets"),
            task("T-bad", "p/post.jpg", 1, "posters")});
  startService();
  const std::map<std::string, std::string> expected = {
      {"T-post", "{\"taskId\":\"T-post\",\"status\":2,\"completedNumber\":1}"},
      {"T-card", "{\"taskId\":\"T-card\",\"status\":2,\"completedNumber\":1}"},
      {"T-magnet", "{\"taskId\":\"T-magnet\",\"status\":2,\"completedNumber\":1}"},
      {"T-bad", "{\"taskId\":\"T-bad\",\"status\":4,\"completedNumber\":0,"
                "\"failReason\":\"IPP_JOB_HELD_NOT_PRINTER\"}"}};
  // The two-copy order is reported after its first copy. When its second copy lands between the
  // sync's query and its stamp, the stamp covers the newer state although the request carried
  // the older one (the system's defined behaviour): its final state is then in the store only.
  SqliteFile db(work + "/PrintData.db");
  ASSERT_TRUE(waitUntil([&] {
    for (const auto& [id, json] : expected) if (lastReport(id) != json) return false;
    return db.scalar("SELECT status||':'||completedNumber FROM local WHERE uuid='T-frame'") == "2:2" &&
           lastReport("T-frame").find("\"status\":2") != std::string::npos;
  }, 90s)) << syncLog();

  // The task list is served on every poll: two more polls print nothing more.
  const auto polls = [&] {
    service->drain();
    return count(service->out(), "] response :");
  };
  const auto seen = polls();
  ASSERT_TRUE(waitUntil([&] { return polls() >= seen + 2; }, 15s));
  const auto pages = keptPages();
  ASSERT_EQ(pages.size(), 5u);

  // Page sizes in job order: postcard and frames on 4x6 in, card set and magnet on 3.5x5 in.
  const char* sizes[] = {"288 x 432", "288 x 432", "288 x 432", "252 x 360", "252 x 360"};
  for (std::size_t i = 0; i < pages.size(); ++i) {
    std::string info;
    if (FILE* pipe = ::popen(("pdfinfo " + pages[i]).c_str(), "r")) {
      char buffer[256];
      while (std::fgets(buffer, sizeof buffer, pipe)) info += buffer;
      ::pclose(pipe);
    }
    EXPECT_NE(info.find(std::string("Page size:       ") + sizes[i] + " pts"), std::string::npos)
        << pages[i] << "\n" << info;
  }
  // Each final status went to the backend once (a copy's own status may go before it).
  for (const auto& [id, json] : expected) EXPECT_EQ(count(syncLog(), json), 1u) << id;
}

TEST_F(ServiceJourney, FailingPicturesUseTheRetryBudgetAndAreReported) {
  setMode("oss-mode", "fail");
  putPicture("p/a.jpg");
  setTasks({task("T-1", "p/a.jpg", 1, "postcards"), task("T-2", "p/b.jpg", 1, "postcards")});
  startService();
  ASSERT_TRUE(waitUntil([&] {
    return lastReport("T-1") == "{\"taskId\":\"T-1\",\"status\":4,\"completedNumber\":0}" &&
           lastReport("T-2") == "{\"taskId\":\"T-2\",\"status\":4,\"completedNumber\":0}";
  }, 60s)) << syncLog() << (service->drain(), service->out()) << service->err();
  service->drain();
  EXPECT_EQ(count(service->out(), "GetObjectToFile fail,code:InternalError"), 5u)
      << service->out();  // 1 + 3 for the first task, 1 for the second: one budget per body
  EXPECT_TRUE(keptPages().empty());
}

TEST_F(ServiceJourney, StatusesQueueWhileTheBackendIsDownAndArriveTogether) {
  setMode("backend-mode", "sync-down");
  putPicture("p/a.jpg");
  putPicture("p/b.jpg");
  setTasks({task("T-1", "p/a.jpg", 1, "postcards"), task("T-2", "p/b.jpg", 1, "frames"),
            task("T-3", "p/c.jpg", 1, "frames")});
  startService();
  SqliteFile db(work + "/PrintData.db");
  ASSERT_TRUE(waitUntil([&] {
    return db.scalar("SELECT count(*) FROM local WHERE status != 0") == "3";
  }, 60s));
  ASSERT_TRUE(service->waitForOutput("URL_UPDATE_PRINTSTATUS ERROR \n", 10s));
  EXPECT_EQ(syncLog(), "");
  setMode("backend-mode", "ok");
  ASSERT_TRUE(waitUntil([&] { return !syncLog().empty(); }, 15s));
  const std::string log = syncLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;  // one request carried all
  for (const char* id : {"T-1", "T-2", "T-3"}) EXPECT_NE(log.find(id), std::string::npos) << id;
}

TEST_F(ServiceJourney, KilledAtRandomMomentsLosesNoOrder) {
  std::mt19937 random(20261121);
  std::vector<std::string> tasks;
  for (int i = 0; i < 8; ++i) {
    putPicture("k/" + std::to_string(i) + ".jpg");
    tasks.push_back(task("K-" + std::to_string(i), "k/" + std::to_string(i) + ".jpg", 1 + i % 2, "postcards"));
  }
  setTasks(tasks);
  std::set<std::string> known;
  for (int round = 0; round < 4; ++round) {
    startService();
    std::this_thread::sleep_for(std::chrono::milliseconds(400 + random() % 2500));
    ::kill(service->pid(), SIGKILL);
    service.reset();
    SqliteFile db(work + "/PrintData.db");
    EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
    for (const auto& id : known)
      EXPECT_EQ(db.scalar("SELECT count(*) FROM local WHERE uuid = '" + id + "'"), "1") << id;
    const std::string ids = db.scalar("SELECT group_concat(uuid) FROM local");
    for (std::size_t at = 0; ids != "NULL" && at != std::string::npos;) {
      const auto comma = ids.find(',', at);
      known.insert(ids.substr(at, comma - at));
      at = comma == std::string::npos ? comma : comma + 1;
    }
  }
  // A new order wakes the print worker: then every order ends in a final state.
  putPicture("k/new.jpg");
  tasks.push_back(task("K-new", "k/new.jpg", 1, "frames"));
  setTasks(tasks);
  startService();
  SqliteFile db(work + "/PrintData.db");
  EXPECT_TRUE(waitUntil([&] {
    return db.scalar("SELECT count(*) FROM local WHERE status IN (2, 4, 5)") == "9";
  }, 90s)) << db.scalar("SELECT group_concat(uuid||':'||status) FROM local");
}

// Takes its minute: the queue never finishes the job, so the wait runs out.
TEST_F(ServiceJourney, SlowQueueNeverFinishingTimesOutAfterAMinute) {
  setMode("cups/script-mode", "hang");
  writeConfig("kps-script");
  putPicture("p/a.jpg");
  setTasks({task("T-slow", "p/a.jpg", 1, "postcards")});
  startService();
  ASSERT_TRUE(waitUntil([&] {
    return lastReport("T-slow") ==
           "{\"taskId\":\"T-slow\",\"status\":4,\"completedNumber\":0,\"failReason\":\"IPP_TIME_OUT\"}";
  }, 120s)) << syncLog();
}

}  // namespace
}  // namespace kps
