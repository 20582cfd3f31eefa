// The real binary, started in a fresh working directory.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "Deployment.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

struct EnvironmentCase {
  const char* value;
  std::string syncBase;
};

TEST(ServiceBinary, PrintsConfigurationAndSyncUrlByEnvironment) {
  const EnvironmentCase cases[] = {{"0", deployment::kBackendTestUrl},
                                   {"1", deployment::kBackendProductionUrl},
                                   {"-1", deployment::kBackendProductionUrl},
                                   {"7", deployment::kBackendProductionUrl}};
  for (const auto& c : cases) {
    TempDir dir;
    dir.write("config.ini", sampleConfig({{"environment", c.value}}));
    ChildProcess service({KPS_BINARY}, dir.path());
    const std::string urlLine = "] url : " + c.syncBase + "/print/task/sync\n";
    ASSERT_TRUE(service.waitForOutput(urlLine, 10s)) << c.value << "\n" << service.out();
    EXPECT_NE(service.out().find("--PrinterConfig.FourHeight--150\n"
                                 "--PrinterConfig.PrinterName--EPSON L8160 Series\n"
                                 "--PrinterConfig.ScreenId--SCREEN-001\n"
                                 "--PrinterConfig.Rearfeeder--15\n"),
              std::string::npos)
        << service.out();
    EXPECT_NE(service.out().find("[..\\..\\..\\src\\task:"), std::string::npos);
  }
}

TEST(ServiceBinary, MissingEnvironmentEndsTheProcess) {
  TempDir dir;
  dir.write("config.ini", sampleConfig({{"environment", ""}}));
  ChildProcess service({KPS_BINARY}, dir.path());
  const int status = service.waitForExit(10s);
  ASSERT_NE(status, -1) << "still running";
  EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_NE(service.err().find("invalid stoi argument"), std::string::npos) << service.err();
}

TEST(ServiceBinary, StoreThatCannotBeSetUpEndsTheStartWithItsMessage) {
  struct Case {
    const char* name;
    std::function<void(TempDir&)> prepare;
    const char* message;
  };
  const Case cases[] = {
      {"a folder where the file should be",
       [](TempDir& dir) { std::filesystem::create_directory(dir.file("PrintData.db")); },
       "Can't open or create database: "},
      {"history indexes that cannot be made",
       [](TempDir& dir) {
         SqliteFile file(dir.file("PrintData.db"));
         file.exec("CREATE TABLE local (other TEXT); CREATE VIEW local_unsynced AS SELECT 1;");
       },
       "Failed to create index: "},
  };
  for (const auto& c : cases) {
    TempDir dir;
    dir.write("config.ini", sampleConfig({}));
    c.prepare(dir);
    ChildProcess service({KPS_BINARY}, dir.path());
    // The message arrives whether the start then fails or goes on; the process never crashes.
    service.waitForOutput("] url : ", 5s);
    service.kill();
    EXPECT_NE(service.err().find(c.message), std::string::npos) << c.name << ": " << service.err();
    const int status = service.waitForExit(1s);
    EXPECT_FALSE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << c.name;
  }
}

}  // namespace
}  // namespace kps
