// The sandbox journeys' fixtures: the real binary against the sandbox (backend, object store,
// CUPS), on Linux and, as the Windows exe, under Wine. Shared by the journeys and the
// operator commands' tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/Shell.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"
#include "tests/support/WaitUntil.h"

namespace kps {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
inline std::string report(const std::string& id, int status, int completed, const std::string& reason = "") {
  return "{\"taskId\":\"" + id + "\",\"status\":" + std::to_string(status) + ",\"completedNumber\":" +
         std::to_string(completed) + (reason.empty() ? "" : ",\"failReason\":\"" + reason + "\"") + "}";
}

class ServiceJourney : public ::testing::Test {
 protected:
  void SetUp() override {
    // The scheduler's filters run as lp: they must be able to reach the sandbox's folders.
    fs::permissions(root.path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    ASSERT_EQ(sh(KPS_SOURCE_DIR "/sandbox/start " + data), 0);
    writeConfig("kps-virtual", "256", "258");
  }
  void TearDown() override {
    service.reset();
    if (!mounted.empty()) sh("umount " + mounted);
    sh(KPS_SOURCE_DIR "/sandbox/stop " + data);
  }
  void writeConfig(const std::string& printer, const char* fourSize, const char* threeSize) {
    root.write(work + "/config.ini", sampleConfig({{"PrinterName", printer}, {"ScreenId", "E2E"},
                                                   {"FourSize", fourSize}, {"ThreeSize", threeSize}, {"Rearfeeder", "7"}}));
  }
  // Sections added to the kiosk's config.ini.
  void addToConfig(const std::string& sections) { root.write(work + "/config.ini", root.read(work + "/config.ini") + sections); }
  // The test queue's prints left, counted by its backend (as lp) and reported after every job.
  void setMediaLeft(int prints) {
    fs::permissions(root.write("sandbox/cups/media-left", std::to_string(prints) + "\n"), fs::perms::all, fs::perm_options::add);
  }
  void setTasks(const std::vector<std::string>& tasks) {
    root.write("sandbox/tasks.tmp", "{\"E2E\":" + taskList(tasks) + "}");
    fs::rename(root.file("sandbox/tasks.tmp"), root.file("sandbox/tasks.json"));
  }
  void putPicture(const std::string& key) {
    fs::create_directories(fs::path(root.file("sandbox/objects/" + key)).parent_path());
    ASSERT_TRUE(writeTestJpeg(root.file("sandbox/objects/" + key), 400, 600));
  }
  // Two picture bombs (a PNG of 30000 x 30000 pixels in 110 KB, an SVG of 32000 x 32000 in 120
  // bytes) listed before a good picture, and the service started.
  void startWithPictureBombsBeforeAGoodOrder() {
    fs::create_directories(root.file("sandbox/objects/b"));
    ASSERT_TRUE(writePictureBomb("png", 30000, 30000, root.file("sandbox/objects/b/bomb.png")));
    ASSERT_TRUE(writePictureBomb("svg", 32000, 32000, root.file("sandbox/objects/b/bomb.svg")));
    putPicture("p/good.jpg");
    setTasks({task("T-png", "b/bomb.png"), task("T-svg", "b/bomb.svg", 2, "frames"), task("T-good", "p/good.jpg")});
    startService();
  }
  static constexpr const char* kBombLines[] = {"] picture refused, 30000 x 30000 pixels, more than the 100 MP or 20000 pixels a side a print takes: ",
                                               "] picture refused, not a JPEG, PNG, BMP, GIF or TIFF picture: "};

  // The binary and the environment it runs in; the Windows exe under Wine overrides both.
  virtual std::vector<std::string> binary() const { return {KPS_BINARY}; }
  virtual std::map<std::string, std::string> environment() const {
    return {{"CUPS_SERVER", "localhost:18631"}, {"HOME", root.path()}};
  }
  void startService() { service = std::make_unique<ChildProcess>(binary(), root.file(work), environment()); }
  // An operator's command in the working directory, bounded in time: its exit code (-1 when it
  // did not end by itself), its output in `commandOut`.
  int runCommand(const std::vector<std::string>& args) {
    std::vector<std::string> argv = binary();
    argv.insert(argv.end(), args.begin(), args.end());
    const int code = runToEnd(argv, root.file(work), environment(), 90s, commandOut);
    // The Windows exe ends its lines with CR LF; the lines are what is compared.
    commandOut.erase(std::remove(commandOut.begin(), commandOut.end(), '\r'), commandOut.end());
    return code;
  }
  std::string syncLog() { return root.read("sandbox/sync.log"); }
  // The last object the backend received for a task, or "".
  std::string lastReport(const std::string& id) {
    const std::string log = syncLog();
    const std::regex object("\\{\"taskId\":\"" + id + "\"[^}]*\\}");
    std::string last;
    for (std::sregex_iterator it(log.begin(), log.end(), object), end; it != end; ++it) last = it->str();
    return last;
  }
  // The documents the virtual printer kept, in job order.
  std::vector<std::string> keptPages() {
    const std::string kept = root.file("sandbox/cups/eve");
    std::istringstream names(output("ls -v " + kept + "/*.pdf " + kept + "/*.ps 2>/dev/null"));
    std::vector<std::string> pages;
    for (std::string name; std::getline(names, name);) pages.push_back(name);
    return pages;
  }

  // The newest job the sandbox's scheduler gave, 0 for none.
  int lastJob() { return newestCupsJob("CUPS_SERVER=localhost:18631 "); }
  // The kps-script jobs that came out.
  std::set<int> pagesOut() {
    std::istringstream lines(root.read("sandbox/cups/pages"));
    std::set<int> jobs;
    for (int job; lines >> job;) jobs.insert(job);
    return jobs;
  }

  TempDir root;
  const std::string data = root.file("sandbox"), work = "work";
  std::string mounted;  // a file system the test mounted, unmounted when it ends
  std::unique_ptr<ChildProcess> service;
  std::string commandOut;
};

// The Windows exe under headless Wine, in one prefix for the whole test program, made at first
// use; its wineserver is stopped when the program ends, whatever the outcome. While the exe
// runs, only what crosses its boundaries is watched (reports at the backend, pages at the
// printer): this machine's SQLite cannot see the locks a Windows process holds under Wine, so
// PrintData.db is read only once the whole wineserver is down.
class WineJourney : public ServiceJourney {
 protected:
  void SetUp() override {
    if (std::string(KPS_WINDOWS_EXE).empty())
      GTEST_SKIP() << "no Windows build: scripts/build-windows, then configure with -DKPS_WINDOWS_EXE=...";
    ServiceJourney::SetUp();
    writeConfig("kps-virtual", "1", "9");  // Windows paper numbers Wine's driver knows: letter, A4
    static const TempDir prefix;  // for the whole program
    wine = {{"WINEPREFIX", prefix.file("prefix")}, {"WINEDEBUG", "-all"}, {"DISPLAY", ""},
            {"WINEDLLOVERRIDES", "mscoree,mshtml=;winemenubuilder.exe=d"}, {"CUPS_SERVER", "localhost:18631"},
            {"HOME", root.path()}};
    static const bool made = sh(env() + "timeout 180 wine wineboot --init && " + env() + "timeout 60 wineserver -w") == 0;
    ASSERT_TRUE(made);
  }
  void TearDown() override {
    if (service) stopService();
    ServiceJourney::TearDown();
  }
  std::string env() const {
    std::string text = "env -u DISPLAY";
    for (const auto& [name, value] : wine) if (!value.empty()) text += " '" + name + "=" + value + "'";
    return text + " ";
  }
  std::vector<std::string> binary() const override { return {"/usr/bin/wine", KPS_WINDOWS_EXE}; }
  std::map<std::string, std::string> environment() const override { return wine; }
  // Ends every Windows process of the prefix at once, as pulling the plug would.
  void stopService() {
    output_ += service->out();
    errors_ += service->err();
    sh(env() + "timeout 30 wineserver -k");
    service.reset();
  }
  bool allFinal(const std::vector<std::string>& ids) {
    for (const auto& id : ids)
      if (!std::regex_search(lastReport(id), std::regex("\"status\":[24]"))) return false;
    return true;
  }
  // Wine's GetJobA fails once EndDoc has handed the job to CUPS: with error 6 (the wait takes
  // the job as gone, so the copy as printed) or 0 (any other error: the copy failed, -1). The
  // service's own line says which; the order must end as the code defines for it.
  std::string printedRow() {
    const bool gone = output_.find("GetJob failed: job might have been deleted or finished. Error code:6") != std::string::npos;
    EXPECT_NE(gone, errors_.find("GetJob failed. Error code: ") != std::string::npos) << output_ << errors_;
    return gone ? "2|1|-" : "4|-|IPP_JOB_HELD_NOT_PRINTER";
  }
  std::map<std::string, std::string> wine;
  std::string output_, errors_;
};

}  // namespace kps
