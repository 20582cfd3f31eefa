// The intake's test fixture: a real store file in a folder of its own as the working directory,
// and the sandbox's object store, which checks every signature.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "remote/Crc64.h"
#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"
#include "remote/TaskList.h"
#include "store/Runtime.h"
#include "tests/support/Counted.h"
#include "tests/support/HttpsServer.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/SandboxObjectStore.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TaskBodies.h"

namespace kps {

// Everything in the folder but the store's own files: what a download left behind.
inline std::vector<std::string> filesIn(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    if (entry.path().filename().string().rfind("PrintData.db", 0) != 0) names.push_back(entry.path().filename().string());
  return names;
}

// Takes the wake-up flag: true if an intake pass raised it since the last call.
inline bool takeWakeUp() {
  std::lock_guard<std::mutex> lock(newOrderMutex);
  return std::exchange(newOrderFlag, false);
}

class Intake : public ::testing::Test {
 protected:
  void SetUp() override {
    ossSettings() = store.settings();
    takeWakeUp();
  }
  void TearDown() override { takeWakeUp(); }
  std::string rows() {
    return file.scalar("SELECT group_concat(uuid||':'||status||':'||ifnull(failReason,'-'), ' ') "
                       "FROM (SELECT * FROM local ORDER BY uuid)");
  }

  TestTransport transport;
  SandboxObjectStore store;
  TempDir dir;
  WorkingDirectory cwd{dir.path()};
  RemoteOrderIdManger intake{"PrintData.db"};
  SqliteFile file{dir.file("PrintData.db")};
};

}  // namespace kps
