// Whole journeys of the real binary against the sandbox: backend, object store, CUPS.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <regex>
#include <sstream>
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
    if (!mounted.empty()) sh("umount " + mounted);
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
  virtual void startService() {
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
  // The documents the virtual printer kept, in job order.
  std::vector<std::string> keptPages() {
    std::vector<std::pair<int, std::string>> pages;
    for (const auto& entry : fs::directory_iterator(data + "/cups/eve"))
      if (entry.path().extension() == ".pdf" || entry.path().extension() == ".ps")
        pages.emplace_back(std::stoi(entry.path().filename().string()), entry.path().string());
    std::sort(pages.begin(), pages.end());
    std::vector<std::string> names;
    for (const auto& page : pages) names.push_back(page.second);
    return names;
  }
  static std::string output(const std::string& command) {
    std::string text;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
      char buffer[256];
      while (std::fgets(buffer, sizeof buffer, pipe)) text += buffer;
      ::pclose(pipe);
    }
    return text;
  }

  static std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  TempDir root;
  std::string data, work;
  std::string mounted;  // a file system the test mounted, unmounted when it ends
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
    const std::string info = output("pdfinfo " + pages[i]);
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

// A full disk under the working directory, its own log included: no crash, no fragment at a
// picture's path, a store that stays whole; once there is room again the tasks still listed
// come in and print, and the log goes on.
TEST_F(ServiceJourney, AFullDiskIsWaitedOutAndNothingIsLost) {
  if (::geteuid() != 0) GTEST_SKIP() << "a small disk for this test is mounted as root only";
  const std::string disk = root.path() + "/disk";
  fs::create_directories(disk);
  if (sh("mount -t tmpfs -o size=16m tmpfs " + disk) != 0) GTEST_SKIP() << "no tmpfs could be mounted";
  mounted = work = disk;
  writeConfig("kps-virtual");
  service = std::make_unique<ChildProcess>(
      std::vector<std::string>{"/bin/sh", "-c", "exec " KPS_BINARY " >>service.log 2>&1"}, work,
      std::map<std::string, std::string>{{"CUPS_SERVER", "localhost:18631"}, {"HOME", root.path()}});
  ASSERT_TRUE(waitUntil([&] { return read(disk + "/service.log").find("] response :") != std::string::npos; }, 20s));
  sh("dd if=/dev/zero of=" + disk + "/filler bs=64k");  // ends when the disk is full
  sh("yes 'the test filled the disk' | dd of=" + disk + "/service.log oflag=append conv=notrunc");  // and the log's last page

  std::vector<std::string> ids, keys;
  for (int i = 0; i < 3; ++i) {
    ids.push_back("F-" + std::to_string(i));
    keys.push_back("full/" + std::to_string(i) + ".jpg");
    fs::create_directories(data + "/objects/full");
    ASSERT_EQ(sh("convert -size 500x500 xc: +noise Random " + data + "/objects/" + keys.back()), 0);
  }
  setTasks({task(ids[0], keys[0], 1, "postcards"), task(ids[1], keys[1], 1, "frames"),
            task(ids[2], keys[2], 1, "cardsets")});
  // Two polls tried the first picture and could not keep it.
  ASSERT_TRUE(waitUntil([&] { return count(read(data + "/oss-requests.log"), keys[0] + "\n") >= 8; }, 60s));
  EXPECT_EQ(service->waitForExit(0ms), -1) << "the service ended";
  SqliteFile db(disk + "/PrintData.db");
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(db.scalar("SELECT count(*) FROM local"), "0");  // left for later, not stored as failed
  EXPECT_EQ(output("find " + disk + " -name '*.jpg*'"), "");  // no picture, no fragment

  fs::remove(disk + "/filler");
  ASSERT_TRUE(waitUntil([&] {
    for (const auto& id : ids)
      if (lastReport(id) != "{\"taskId\":\"" + id + "\",\"status\":2,\"completedNumber\":1}") return false;
    return true;
  }, 60s)) << syncLog();
  for (const auto& key : keys) EXPECT_EQ(read(disk + "/" + key), read(data + "/objects/" + key)) << key;
  EXPECT_EQ(keptPages().size(), 3u);
  EXPECT_NE(read(disk + "/service.log").find("] ----receive backup data to printer---"), std::string::npos);
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
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

// The Windows exe under headless Wine, for the whole test program: one prefix, made at first
// use; its wineserver is stopped when the program ends, whatever the outcome.
class WinePrefix {
 public:
  static WinePrefix& get() {
    static WinePrefix prefix;
    return prefix;
  }
  std::map<std::string, std::string> environment(const std::string& home) const {
    return {{"WINEPREFIX", dir_.path() + "/prefix"}, {"WINEDEBUG", "-all"},
            {"WINEDLLOVERRIDES", "mscoree,mshtml=;winemenubuilder.exe=d"}, {"DISPLAY", ""},
            {"CUPS_SERVER", "localhost:18631"}, {"HOME", home}};
  }
  // Ends every Windows process of the prefix at once, as a power cut would.
  void killAll() const { run("timeout 30 wineserver -k"); }
  ~WinePrefix() { killAll(); }

 private:
  WinePrefix() { run("timeout 180 wine wineboot --init && timeout 60 wineserver -w"); }
  void run(const std::string& command) const {
    std::system(("env -u DISPLAY WINEPREFIX=" + dir_.path() +
                 "/prefix WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d' sh -c '" +
                 command + "' >/dev/null 2>&1").c_str());
  }
  TempDir dir_;
};

// While the exe runs, only what crosses its boundaries is watched (reports at the backend, pages
// at the printer): this machine's SQLite cannot see the locks a Windows process holds on the
// file under Wine, so PrintData.db is read only once the whole wineserver is down.
class WineJourney : public ServiceJourney {
 protected:
  void SetUp() override {
    if (std::string(KPS_WINDOWS_EXE).empty())
      GTEST_SKIP() << "no Windows build: scripts/build-windows, then configure with -DKPS_WINDOWS_EXE=...";
    ServiceJourney::SetUp();
    // Windows paper numbers Wine's printer driver knows: letter and A4.
    std::ofstream(work + "/config.ini")
        << sampleConfig({{"PrinterName", "kps-virtual"}, {"ScreenId", "E2E"}, {"FourSize", "1"},
                         {"ThreeSize", "9"}, {"Rearfeeder", "7"}});
  }
  void TearDown() override {
    if (service) stopService();
    ServiceJourney::TearDown();
  }
  void startService() override {
    service = std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/bin/wine", KPS_WINDOWS_EXE},
                                             work, WinePrefix::get().environment(root.path()));
  }
  // Ends every Windows process of the prefix at once, as pulling the plug would.
  void stopService() {
    service->drain();
    output_ += service->out();
    errors_ += service->err();
    WinePrefix::get().killAll();
    service.reset();
  }
  // True once the backend's last report of every order is final (single copies: the report of
  // a status change is then the order's final state).
  bool allReported(const std::vector<std::string>& ids) {
    for (const auto& id : ids) {
      const std::string report = lastReport(id);
      if (report.find("\"status\":4") == std::string::npos && report.find("\"status\":2") == std::string::npos)
        return false;
    }
    return true;
  }
  // Wine's GetJobA fails once EndDoc has handed the job to CUPS: with error 6 (the wait takes
  // the job as gone, so the copy as printed) or 0 (any other error: the copy failed, -1). The
  // service's own line says which; the order must end as the code defines for it.
  std::string printedRow() {
    const bool gone = output_.find("GetJob failed: job might have been deleted or finished. Error code:6") !=
                      std::string::npos;
    const bool failed = errors_.find("GetJob failed. Error code: ") != std::string::npos;
    EXPECT_NE(gone, failed) << output_ << errors_;
    return gone ? "2|1|-" : "4|-|IPP_JOB_HELD_NOT_PRINTER";
  }
  std::string row(SqliteFile& db, const std::string& id) {
    return db.scalar("SELECT status||'|'||ifnull(completedNumber,'-')||'|'||ifnull(failReason,'-') "
                     "FROM local WHERE uuid='" + id + "'");
  }
  std::string output_, errors_;
};

TEST_F(WineJourney, EveryProductTypeANonAsciiKeyAndAMissingPicture) {
  for (const char* key : {"p/post.jpg", "p/frame.jpg", "p/card.jpg", "照片/猫咪 1.jpg"}) putPicture(key);
  const std::vector<std::string> ids = {"T-post", "T-frame", "T-card", "T-magnet", "T-missing"};
  setTasks({task("T-post", "p/post.jpg", 1, "postcards"), task("T-frame", "p/frame.jpg", 1, "frames"),
            task("T-card", "p/card.jpg", 1, "cardsets"), task("T-magnet", "照片/猫咪 1.jpg", 1, "fridgemagnets"),
            task("T-missing", "p/none.jpg", 1, "postcards")});
  startService();
  std::vector<std::string> pages;
  ASSERT_TRUE(waitUntil([&] {
    return allReported(ids) && (pages = keptPages()).size() == 4 &&
           output("CUPS_SERVER=localhost:18631 lpstat -o").empty();
  }, 120s)) << syncLog() << (service->drain(), service->out()) << service->err();
  stopService();

  // The key's folder and file under their own names on the Windows side too.
  EXPECT_TRUE(fs::is_regular_file(fs::u8path(work + "/照片/猫咪 1.jpg")));
  SqliteFile db(work + "/PrintData.db");
  for (const char* id : {"T-post", "T-frame", "T-card", "T-magnet"}) EXPECT_EQ(row(db, id), printedRow()) << id;
  EXPECT_EQ(row(db, "T-missing"), "4|-|-");
  EXPECT_EQ(lastReport("T-missing"), "{\"taskId\":\"T-missing\",\"status\":4,\"completedNumber\":0}");

  // The pictures at their sizes on the pages, in job order: width x 3.7 by height x 3.8
  // hundredths of an inch (370 x 570 for 100 x 150; 296 x 304 for 80 x 80), at 100 dpi.
  const std::pair<int, int> sizes[] = {{370, 570}, {370, 570}, {370, 570}, {296, 304}};
  for (std::size_t i = 0; i < pages.size(); ++i) {
    const std::string png = root.path() + "/page" + std::to_string(i) + ".png";
    ASSERT_EQ(std::system(("gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=png16m -r100 -o " + png + " " +
                           pages[i] + " >/dev/null 2>&1").c_str()), 0) << pages[i];
    int width = 0, height = 0;
    std::istringstream(output("convert " + png + " -fuzz 10% -trim -format '%w %h' info:")) >> width >> height;
    EXPECT_NEAR(width, sizes[i].first, 3) << pages[i];
    EXPECT_NEAR(height, sizes[i].second, 3) << pages[i];
  }
}

TEST_F(WineJourney, KilledWithTheWholeWineServerAndStartedAgainLosesNoOrder) {
  std::vector<std::string> tasks, ids;
  for (int i = 0; i < 5; ++i) {
    ids.push_back("K-" + std::to_string(i));
    putPicture("k/" + std::to_string(i) + ".jpg");
    tasks.push_back(task(ids.back(), "k/" + std::to_string(i) + ".jpg", 1, "postcards"));
  }
  setTasks(tasks);
  startService();
  ASSERT_TRUE(waitUntil([&] { return !syncLog().empty(); }, 90s));
  stopService();  // mid-run: some orders reported, the others waiting or printing
  {
    SqliteFile db(work + "/PrintData.db");
    EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(db.scalar("SELECT count(*) FROM local"), "5");
  }
  // A new order wakes the print worker of the new process: then every order ends final.
  putPicture("k/new.jpg");
  ids.push_back("K-new");
  tasks.push_back(task("K-new", "k/new.jpg", 1, "frames"));
  setTasks(tasks);
  startService();
  EXPECT_TRUE(waitUntil([&] { return allReported(ids); }, 120s)) << syncLog();
  stopService();
  SqliteFile db(work + "/PrintData.db");
  EXPECT_EQ(db.scalar("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(db.scalar("SELECT count(*) FROM local WHERE status IN (2, 4)"), "6");
}

}  // namespace
}  // namespace kps
