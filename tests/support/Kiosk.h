// A kiosk's working directory for the operator's view: a store of the service's own schema,
// config.ini, orders seeded with their pictures, and `--status` of the real binary run in it.
#pragma once

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>

#include "base/Log.h"
#include "store/Database.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {

// A kiosk's working directory with a store of the service's own schema.
struct Kiosk {
  Kiosk() {
    { Database store(dir.file("PrintData.db")); }
    dir.write("config.ini", sampleConfig({}));
  }
  // An order row; times are seconds before now, -1 for NULL.
  void order(const std::string& uuid, int status, long updatedAgo, long reportedAgo, const char* reason = nullptr) {
    const auto at = [](long ago) { return ago < 0 ? std::string("NULL") : "'" + localTimeString(std::time(nullptr) - ago) + "'"; };
    ASSERT_TRUE(SqliteFile(dir.file("PrintData.db"))
                    .exec("INSERT INTO local (orderNo, uuid, path, status, updateTime, syncTime, failReason, type) VALUES "
                          "('O', '" + uuid + "', '" + dir.file("p/" + uuid + ".jpg") + "', " + std::to_string(status) + ", " +
                          at(updatedAgo) + ", " + at(reportedAgo) + ", " + (reason ? "'" + std::string(reason) + "'" : "NULL") +
                          ", 'postcards')"));
    dir.write("p/" + uuid + ".jpg", std::string(1 << 20, 'j'));
  }
  void age(const std::string& name, std::chrono::seconds ago) {
    std::filesystem::last_write_time(dir.file(name), std::filesystem::file_time_type::clock::now() - ago);
  }
  int status() { return runToEnd({KPS_BINARY, "--status"}, dir.path(), {}, std::chrono::seconds(20), out); }
  TempDir dir;
  std::string out;
};

}  // namespace kps
