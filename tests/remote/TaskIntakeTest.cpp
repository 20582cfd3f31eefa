// Task list intake over a real store file, an HTTPS backend double and an object-store double.
#include <gtest/gtest.h>

#include <filesystem>

#include "remote/HttpRequest.h"
#include "remote/RemoteOrderIdManger.h"
#include "src/Runtime.h"
#include "tests/support/ObjectStoreDouble.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TestTransport.h"
#include "tests/support/WorkingDirectory.h"

namespace kps {
namespace {

std::string task(const std::string& id, const std::string& pic, int number = 1,
                 const std::string& type = "postcards") {
  std::string key;
  for (const char c : pic) key += (c == '\\' || c == '"') ? std::string{'\\', c} : std::string{c};
  return "{\"taskId\":\"" + id + "\",\"pic\":\"" + key + "\",\"businessOrderId\":\"O-" + id +
         "\",\"status\":0,\"number\":" + std::to_string(number) + ",\"type\":\"" + type + "\"}";
}

std::string body(const std::vector<std::string>& tasks) {
  std::string data;
  for (const auto& t : tasks) data += (data.empty() ? "" : ",") + t;
  return "{\"code\":\"100\",\"msg\":\"success\",\"data\":[" + data + "]}";
}

std::size_t count(const std::string& text, const std::string& needle) {
  std::size_t n = 0;
  for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

// Takes the wake-up flag: true if an intake pass raised it since the last call.
bool takeWakeUp() {
  std::lock_guard<std::mutex> lock(newOrderMutex);
  const bool raised = newOrderFlag;
  newOrderFlag = false;
  return raised;
}

class TaskIntakeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ossSettings() = store.settings();
    takeWakeUp();
  }
  std::string rows() {
    return file.scalar("SELECT group_concat(uuid||':'||status||':'||ifnull(failReason,'-'), ' ') "
                       "FROM (SELECT * FROM local ORDER BY uuid)");
  }

  TestTransport transport;
  ObjectStoreDouble store{"qzlp", "ak", "sk"};
  TempDir dir;
  WorkingDirectory cwd{dir.path()};
  RemoteOrderIdManger intake{"PrintData.db"};
  SqliteFile file{dir.file("PrintData.db")};
};

TEST_F(TaskIntakeTest, OnlyAnAcceptedBodyIsTakenIn) {
  store.put("a.jpg", "jpeg");
  const std::string tasks = "[" + task("T-1", "a.jpg") + "]";
  const std::string rejected[] = {
      "{\"code\":\"200\",\"msg\":\"success\",\"data\":" + tasks + "}",
      "{\"code\":\"100\",\"msg\":\"Success\",\"data\":" + tasks + "}",
      "{\"code\":100,\"msg\":\"success\",\"data\":" + tasks + "}",
      "{\"code\":\"100\",\"msg\":null,\"data\":" + tasks + "}",
      "{\"msg\":\"success\",\"data\":" + tasks + "}",
      "[{\"code\":\"100\",\"msg\":\"success\"}]",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":" + tasks,
      "not json at all",
      "",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[{\"taskId\":\"\xC3\x28\"}]}",
  };
  OutputWatcher log;
  for (const auto& text : rejected) intake.ReceiveBackupData(text);
  // Only the refusal the backend would not expect says why; the others are silent.
  EXPECT_EQ(count(log.text(), "\n"), 1u) << log.text();
  EXPECT_NE(log.text().find("] task list refused: not valid UTF-8 (byte 49)\n"), std::string::npos)
      << log.text();
  EXPECT_EQ(store.requests(), 0);
  EXPECT_EQ(rows(), "NULL");
  EXPECT_FALSE(takeWakeUp());

  intake.ReceiveBackupData("{\"code\":\"100\",\"msg\":\"success\",\"data\":[]}");
  intake.ReceiveBackupData("{\"code\":\"100\",\"msg\":\"success\"}");
  EXPECT_FALSE(takeWakeUp());
}

TEST_F(TaskIntakeTest, TaskListedOnEveryPollIsStoredOnceAndWakesOnce) {
  store.put("pics/a.jpg", "jpeg-a");
  store.put("pics/b.jpg", "jpeg-b");
  const std::string text = body({task("T-1", "pics/a.jpg", 2), task("T-2", "pics/b.jpg")});
  OutputWatcher log;
  intake.ReceiveBackupData(text);
  EXPECT_TRUE(takeWakeUp());
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
  EXPECT_EQ(file.scalar("SELECT orderNo||'|'||path||'|'||realNumber||'|'||type FROM local "
                        "WHERE uuid='T-1'"),
            "O-T-1|" + dir.path() + "/pics/a.jpg|2|postcards");
  EXPECT_EQ(dir.read("pics/a.jpg"), "jpeg-a");
  const std::string first = log.text();
  EXPECT_NE(first.find("dir create success: \"" + dir.path() + "/pics\"\n"), std::string::npos);
  EXPECT_EQ(count(first, "] receive backup data :" + text + "\n"), 1u);
  EXPECT_EQ(count(first, "] ----receive backup data to printer---\n"), 1u);  // once per body

  intake.ReceiveBackupData(text);
  intake.ReceiveBackupData(text);
  EXPECT_FALSE(takeWakeUp());
  EXPECT_EQ(count(log.text(), "----receive backup data to printer---"), 1u);
  EXPECT_EQ(store.requests(), 2);  // pictures on disk are never fetched again
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
}

TEST_F(TaskIntakeTest, FailingPicturesShareOneRetryBudget) {
  OutputWatcher log;
  intake.ReceiveBackupData(
      body({task("T-1", "x/1.jpg"), task("T-2", "x/2.jpg"), task("T-3", "x/3.jpg"),
            task("T-4", "x/4.jpg")}));
  EXPECT_EQ(store.requests(), 4 + 3);  // 1 + 3 for the first, 1 each for the rest
  EXPECT_EQ(rows(), "T-1:4:- T-2:4:- T-3:4:- T-4:4:-");
  EXPECT_FALSE(takeWakeUp());
  EXPECT_EQ(count(log.text(), " insertOrder success \n"), 4u);
}

TEST_F(TaskIntakeTest, MissingPictureMarksAnExistingPendingOrderFailed) {
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-1", "gone.jpg", 0, 1, "frames"));
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-2", "gone.jpg", 2, 1, "frames"));
  OutputWatcher log;
  intake.ReceiveBackupData(body({task("T-1", "gone.jpg"), task("T-2", "gone.jpg")}));
  EXPECT_EQ(rows(), "T-1:4:IPP_JOB_HELD_PIC_PATH_NOT_EXIST T-2:2:-");
  EXPECT_NE(file.scalar("SELECT updateTime FROM local WHERE uuid='T-1'"), "NULL");
  EXPECT_NE(log.text().find("]  insertOrder fail \n"), std::string::npos);
}

TEST_F(TaskIntakeTest, BadKeysAreStoredFailedWithALineAndThePassGoesOn) {
  dir.write("file", "a file where a folder would be");
  std::filesystem::create_directories(dir.file("folder"));
  store.put("ok.jpg", "jpeg");
  const std::string leaves = "leaves the working directory", noFile = "does not name a file";
  const std::string tooLong(300, 'n');
  const std::pair<std::string, std::string> cases[] = {
      {"../escape.jpg", leaves},   {"a/../../escape.jpg", leaves}, {"/etc/escape.jpg", leaves},
      {"\\\\server\\share.jpg", leaves}, {"C:\\escape.jpg", leaves}, {"..", leaves},
      {"", noFile}, {"x/", noFile}, {".", noFile}, {"a/./b.jpg", noFile}, {"a//b.jpg", noFile},
      {"folder", noFile},
      {"file/x.jpg", "its folder is a file"},
      {"file/sub/x.jpg", "Not a directory"},
      {tooLong + "/x.jpg", "File name too long"},
      {tooLong + ".jpg", "File name too long"},
  };
  std::vector<std::string> tasks;
  for (std::size_t i = 0; i < std::size(cases); ++i)
    tasks.push_back(task("T-" + std::to_string(i), cases[i].first));
  tasks.push_back(task("T-ok", "ok.jpg"));
  OutputWatcher log;
  intake.ReceiveBackupData(body(tasks));
  const std::string out = log.text();
  for (const auto& [key, why] : cases)
    EXPECT_NE(out.find("] refused picture key: " + key + " (" + why + ")\n"), std::string::npos) << key;
  EXPECT_EQ(store.requests(), 1);  // only the good task's picture
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE status = 4"), std::to_string(std::size(cases)));
  EXPECT_EQ(file.scalar("SELECT status FROM local WHERE uuid = 'T-ok'"), "0");
  EXPECT_TRUE(takeWakeUp());
  EXPECT_FALSE(std::filesystem::exists(dir.path() + "/../escape.jpg"));
}

TEST_F(TaskIntakeTest, MistypedElementsAreSkippedWithALine) {
  store.put("a.jpg", "jpeg");
  OutputWatcher log;
  intake.ReceiveBackupData(body({
      "{\"taskId\":\"T-1\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":\"2\",\"type\":\"frames\"}",
      "{\"taskId\":\"T-2\",\"pic\":\"a.jpg\",\"businessOrderId\":7,\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-3\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1}",
      "{\"taskId\":\"T-4\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1.5,\"type\":\"frames\"}",
      "{\"taskId\":\"T-5\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":9999999999,\"type\":\"frames\"}",
      "{\"taskId\":6,\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"pic\":\"a.jpg\"}",
      "42",
      task("T-ok", "a.jpg"),
  }));
  EXPECT_EQ(rows(), "T-ok:0:-");
  const std::string out = log.text();
  for (const char* name : {"T-1", "T-2", "T-3", "T-4", "T-5", "?"})
    EXPECT_NE(out.find(std::string("] task skipped, malformed member: ") + name + "\n"),
              std::string::npos) << name;
  EXPECT_TRUE(takeWakeUp());
}

TEST_F(TaskIntakeTest, GetTaskListAsksForThisScreen) {
  HttpsServer backend;
  std::string target;
  const std::string text = body({task("T-1", "a.jpg")});
  backend.routes().Get("/print/task/list", [&](const httplib::Request& req, httplib::Response& res) {
    target = req.target;
    res.set_content(text, "application/json");
  });
  const std::string origin = backend.start();
  store.put("a.jpg", "jpeg");
  OutputWatcher log;
  intake.GetTaskList("SCREEN-7", origin + "/print/task/list");
  backend.stop();
  EXPECT_EQ(target, "/print/task/list?screenNumber=SCREEN-7");
  EXPECT_NE(log.text().find("] response :" + text + "\n"), std::string::npos);
  EXPECT_EQ(rows(), "T-1:0:-");
  EXPECT_TRUE(takeWakeUp());
}

}  // namespace
}  // namespace kps
