// The intake of task-list bodies over a real store file and the sandbox's object store: what is
// taken in, what is refused with a line, and what holds back nothing after it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/remote/IntakeFixture.h"

namespace kps {
namespace {

TEST_F(Intake, OnlyAnAcceptedBodyIsTakenIn) {
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
      "not json at all", "", "  \n ",
      std::string(10000, '[') + std::string(10000, ']'),
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":{\"taskId\":\"X\"}}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[1,2,null,true]}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[]}",
      "{\"code\":\"100\",\"msg\":\"success\"}",
      "{\"code\":\"100\",\"msg\":\"success\",\"data\":[{\"taskId\":\"\xC3\x28\"}]}",
  };
  OutputWatcher log;
  for (const auto& text : rejected) intake.ReceiveBackupData(text);
  // Only the refusal the backend would not expect says why; the others are silent.
  EXPECT_EQ(count(log.text(), "\n"), 1u) << log.text();
  EXPECT_NE(log.text().find("] task list refused: not valid UTF-8 (byte 49)\n"), std::string::npos) << log.text();
  EXPECT_EQ(store.requests(), 0);
  EXPECT_EQ(rows(), "NULL");
  EXPECT_FALSE(takeWakeUp());
}

TEST_F(Intake, TaskListedOnEveryPollIsStoredOnceAndWakesOnce) {
  store.put("pics/a.jpg", "jpeg-a");
  store.put("pics/b.jpg", "jpeg-b");
  const std::string text = taskList({task("T-1", "pics/a.jpg", 2), task("T-2", "pics/b.jpg")});
  OutputWatcher log;
  intake.ReceiveBackupData(text);
  EXPECT_TRUE(takeWakeUp());
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
  EXPECT_EQ(file.scalar("SELECT orderNo||'|'||path||'|'||realNumber||'|'||type FROM local WHERE uuid='T-1'"),
            "O-T-1|" + dir.path() + "/pics/a.jpg|2|postcards");
  EXPECT_EQ(dir.read("pics/a.jpg"), "jpeg-a");
  EXPECT_NE(log.text().find("dir create success: \"" + dir.path() + "/pics\"\n"), std::string::npos);
  EXPECT_EQ(count(log.text(), "] receive backup data :" + text + "\n"), 1u);
  EXPECT_EQ(count(log.text(), "] ----receive backup data to printer---\n"), 1u);  // once per body

  intake.ReceiveBackupData(text);
  intake.ReceiveBackupData(text);
  EXPECT_FALSE(takeWakeUp());
  EXPECT_EQ(count(log.text(), "----receive backup data to printer---"), 1u);
  EXPECT_EQ(store.requests(), 2);  // pictures on disk are never fetched again
  EXPECT_EQ(rows(), "T-1:0:- T-2:0:-");
}

TEST_F(Intake, FailingPicturesShareOneRetryBudgetAndAPendingOrderIsMarked) {
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-1", "gone.jpg", 0, 1, "frames"));
  ASSERT_TRUE(intake.insertOrder("local", "O", "T-2", "gone.jpg", 2, 1, "frames"));
  OutputWatcher log;
  const Counted counted;
  intake.ReceiveBackupData(taskList({task("T-1", "gone.jpg"), task("T-2", "gone.jpg"), task("T-3", "x/3.jpg"),
                                     task("T-4", "x/4.jpg")}));
  // Each failed order once, each download that failed (a retry is one).
  EXPECT_EQ(counted.since(), "failed none x2, failed IPP_JOB_HELD_PIC_PATH_NOT_EXIST, download failed x5");
  // T-1 and T-2 are orders already: nothing of them is fetched. 1 + 3 for T-3, 1 for T-4.
  EXPECT_EQ(store.requests(), 1 + 3 + 1);
  EXPECT_EQ(rows(), "T-1:4:IPP_JOB_HELD_PIC_PATH_NOT_EXIST T-2:2:- T-3:4:- T-4:4:-");
  EXPECT_NE(file.scalar("SELECT updateTime FROM local WHERE uuid='T-1'"), "NULL");
  EXPECT_EQ(count(log.text(), "]  insertOrder fail \n"), 1u);
  EXPECT_EQ(count(log.text(), " insertOrder success \n"), 2u);
  EXPECT_FALSE(takeWakeUp());
}

// A task the backend lists again after it was stored (its report not taken yet) is not fetched
// again, whatever became of it: a refused picture is not downloaded on every poll, and no
// insert fails on the table's key.
TEST_F(Intake, ATaskAlreadyStoredIsNotFetchedAgain) {
  store.put("pics/big.jpg", std::string(3000, 'b'));
  store.put("pics/ok.jpg", "jpeg");
  ossSettings().mostObjectBytes = 2000;
  const std::string text = taskList({task("T-big", "pics/big.jpg"), task("T-ok", "pics/ok.jpg"), task("T-bad", "../x.jpg")});
  Counted counted;
  intake.ReceiveBackupData(text);
  EXPECT_EQ(rows(), "T-bad:4:- T-big:4:- T-ok:0:-");
  EXPECT_EQ(counted.since(), "failed none x2, download failed");  // the refused key is never asked for
  counted = Counted();
  EXPECT_EQ(store.requests(), 2);
  std::filesystem::remove(dir.file("pics/ok.jpg"));  // gone before it printed
  OutputWatcher log;
  testing::internal::CaptureStderr();
  intake.ReceiveBackupData(text);
  intake.ReceiveBackupData(text);
  EXPECT_EQ(testing::internal::GetCapturedStderr().find("UNIQUE constraint failed"), std::string::npos);
  EXPECT_EQ(store.requests(), 2);
  EXPECT_EQ(log.text().find("refused picture key"), std::string::npos) << log.text();
  EXPECT_EQ(rows(), "T-bad:4:- T-big:4:- T-ok:4:IPP_JOB_HELD_PIC_PATH_NOT_EXIST");
  EXPECT_EQ(counted.since(), "failed IPP_JOB_HELD_PIC_PATH_NOT_EXIST");  // once, though listed twice
}

// Keys that cannot be a picture here, and copy counts no kiosk prints: each task is stored
// failed with one line, and holds back none of the tasks after it.
TEST_F(Intake, BadKeysAndCopyCountsAreStoredFailedWithALineAndThePassGoesOn) {
  dir.write("file", "a file where a folder would be");
  std::filesystem::create_directories(dir.file("folder"));
  store.put("ok.jpg", "jpeg");
  const std::string leaves = "leaves the working directory", noFile = "does not name a file";
  const std::string own = "names one of the service's own files";
  const std::string windows = "holds a character Windows does not allow in a name", device = "names a device on Windows";
  const std::string tooLong(300, 'n');
  ASSERT_EQ(::mkfifo(dir.file("fifo.jpg").c_str(), 0600), 0);
  // A folder of a temporary's name, left by an older version: the next download beside it
  // takes a shorter temporary name.
  std::filesystem::create_directories(dir.file("pics/~~~~~~~~"));
  store.put("pics/beside.jpg", "jpeg");
  const std::pair<std::string, std::string> cases[] = {
      {"../escape.jpg", leaves}, {"a/../../escape.jpg", leaves}, {"/etc/escape.jpg", leaves},
      {"\\\\server\\share.jpg", leaves}, {"C:\\escape.jpg", leaves}, {"c:x.jpg", leaves}, {"..", leaves},
      {"", noFile}, {"x/", noFile}, {".", noFile}, {"a/./b.jpg", noFile}, {"a//b.jpg", noFile},
      {std::string("a\0b", 3), "holds a NUL character"}, {"folder", noFile},
      {"file/x.jpg", "its folder is a file"}, {"file/sub/x.jpg", "Not a directory"},
      {tooLong + "/x.jpg", "File name too long"}, {tooLong + ".jpg", "File name too long"},
      {"config.ini", own}, {"PrintData.db", own}, {"PrintData.db-wal", own}, {"PrintData.db-journal", own},
      {"x/~~~~~~~~", own}, {"pics/~~~~~~~~/x.jpg", own},
      // Names Windows cannot hold: refused on both platforms.
      {"what?.jpg", windows}, {"a<b>.jpg", windows}, {"star*.jpg", windows}, {"pipe|.jpg", windows},
      {"quote\".jpg", windows}, {"a.jpg:stream", windows}, {"tab\t.jpg", windows}, {"photo.jpg.", "ends in a dot or a blank, which Windows drops"},
      {"folder /x.jpg", "ends in a dot or a blank, which Windows drops"}, {"aux.jpg", device}, {"x/CON", device},
      {"Com9.tar.gz", device}, {"lpt1 .jpg", device}, {"nul/x.jpg", device},
      {"fifo.jpg", "does not name a regular file"},
  };
  std::vector<std::string> tasks;
  for (std::size_t i = 0; i < std::size(cases); ++i) tasks.push_back(task("T-" + std::to_string(i), cases[i].first));
  // A name that fits the file system only just: its download's temporary file fits too.
  const std::string longest = "long/" + std::string(251, 'l') + ".jpg";
  store.put(longest, "jpeg");
  tasks.push_back(task("T-longest", longest));
  tasks.push_back(task("T-copies", "ok.jpg", 1000));
  tasks.push_back(task("T-ok", "ok.jpg", 999));
  tasks.push_back(task("T-ok2", "..a/b..c.jpg"));  // dots inside names are names
  store.put("..a/b..c.jpg", "jpeg");
  tasks.push_back(task("T-beside", "pics/beside.jpg"));
  tasks.push_back(task("T-device-like", "console.jpg"));  // a device's name only as a whole
  store.put("console.jpg", "jpeg");
  // An object larger than any picture (the bound shortened here) fails its task the same way.
  ossSettings().mostObjectBytes = 100;
  store.put("huge.jpg", std::string(101, 'h'));
  tasks.push_back(task("T-huge", "huge.jpg"));
  OutputWatcher log;
  intake.ReceiveBackupData(taskList(tasks));
  EXPECT_NE(log.text().find("] refused picture key: huge.jpg (larger than 100 bytes, more than any picture)\n"), std::string::npos);
  for (const auto& [key, why] : cases)
    EXPECT_NE(log.text().find("] refused picture key: " + key + " (" + why + ")\n"), std::string::npos) << key;
  EXPECT_NE(log.text().find("] task refused, more copies than 999: T-copies (1000)\n"), std::string::npos);
  EXPECT_EQ(log.text().find("task left for a later poll"), std::string::npos) << log.text();
  EXPECT_EQ(store.requests(), 6);  // only the good tasks' pictures, and the huge one's once
  EXPECT_EQ(file.scalar("SELECT count(*) FROM local WHERE status = 4"), std::to_string(std::size(cases) + 2));
  EXPECT_EQ(file.scalar("SELECT group_concat(uuid||':'||status||':'||realNumber) FROM (SELECT * FROM local WHERE uuid "
                        "IN ('T-longest', 'T-copies', 'T-ok', 'T-ok2', 'T-beside', 'T-device-like') ORDER BY uuid)"),
            "T-beside:0:1,T-copies:4:1000,T-device-like:0:1,T-longest:0:1,T-ok:0:999,T-ok2:0:1");
  EXPECT_EQ(dir.read("pics/beside.jpg"), "jpeg");
  EXPECT_EQ(dir.read(longest), "jpeg");
  EXPECT_TRUE(takeWakeUp());
  EXPECT_FALSE(std::filesystem::exists(dir.path() + "/../escape.jpg"));
}

TEST_F(Intake, ElementsOfOtherShapesAreSkippedWithALine) {
  store.put("a.jpg", "jpeg");
  OutputWatcher log;
  intake.ReceiveBackupData(taskList({
      "{\"taskId\":\"T-1\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":\"2\",\"type\":\"frames\"}",
      "{\"taskId\":\"T-2\",\"pic\":\"a.jpg\",\"businessOrderId\":7,\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-3\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1}",
      "{\"taskId\":\"T-4\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1e99,\"type\":\"frames\"}",
      "{\"taskId\":\"T-5\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":9999999999,\"type\":\"frames\"}",
      "{\"taskId\":6,\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      // Escapes that make no text: a lone surrogate, a NUL that would cut the id short.
      "{\"taskId\":\"T-\\udc00\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-7\\u0000x\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-8\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\\udfff\",\"number\":1,\"type\":\"frames\"}",
      "{\"taskId\":\"T-9\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\\u0000\"}",
      "{\"taskId\":\"T-10\",\"pic\":\"a\\udc00.jpg\",\"businessOrderId\":\"O\",\"number\":1,\"type\":\"frames\"}",
      "{\"pic\":\"a.jpg\"}", "42",
      "{\"taskId\":\"D\",\"taskId\":\"E\",\"pic\":\"a.jpg\",\"businessOrderId\":\"O\",\"number\":-3,\"type\":\"frames\","
      "\"pad\":\"" + std::string(8 << 20, 'x') + "\"}",
  }));
  EXPECT_EQ(rows(), "D:0:- T-10:4:-");  // the first of two taskIds, its negative copies as sent; a key refused
  EXPECT_NE(log.text().find(" (is not UTF-8 text)\n"), std::string::npos) << log.text();
  EXPECT_EQ(count(log.text(), "] task skipped, malformed member: ?\n"), 3u);  // 6, the lone surrogate, the NUL
  for (const char* name : {"T-1", "T-2", "T-3", "T-4", "T-5", "?", "T-8", "T-9"})
    EXPECT_NE(log.text().find(std::string("] task skipped, malformed member: ") + name + "\n"), std::string::npos) << name;
  EXPECT_TRUE(takeWakeUp());
}

}  // namespace
}  // namespace kps
