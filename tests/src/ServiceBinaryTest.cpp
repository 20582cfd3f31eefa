// The real binary, started in a fresh working directory.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
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

TEST(ServiceBinary, StoreThatCannotBeOpenedEndsTheProcessWithItsMessage) {
  TempDir dir;
  dir.write("config.ini", sampleConfig({}));
  std::filesystem::create_directory(dir.file("PrintData.db"));  // a folder where the file goes
  ChildProcess service({KPS_BINARY}, dir.path());
  const int status = service.waitForExit(10s);
  ASSERT_NE(status, -1) << "still running";
  // Uncaught, as nothing catches a store's error before main: the run-time aborts.
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  EXPECT_NE(service.err().find("Can't open or create database: "), std::string::npos) << service.err();
  EXPECT_NE(service.err().find("Failed to open or create database"), std::string::npos);
  EXPECT_EQ(service.out().find("] url : "), std::string::npos);  // no worker ever started
}

TEST(ServiceBinary, HistoryIndexesThatCannotBeMadeAreReportedAndTheServiceRuns) {
  TempDir dir;
  dir.write("config.ini", sampleConfig({}));
  {
    SqliteFile file(dir.file("PrintData.db"));
    file.exec("CREATE TABLE local (other TEXT); CREATE VIEW local_unreported AS SELECT 1;");
  }
  ChildProcess service({KPS_BINARY}, dir.path());
  EXPECT_TRUE(service.waitForOutput("] url : ", 10s)) << service.err();
  service.drain();
  EXPECT_NE(service.err().find("Failed to create index: "), std::string::npos) << service.err();
}

// C++ orders the construction of namespace-scope objects only within one file, so the listed
// order holds only while all of them are defined in the entry point's file, in that order.
TEST(ServiceBinary, ProcessWideObjectsAreDefinedInTheirOrderInOneFile) {
  std::ifstream in(KPS_SOURCE_DIR "/src/task.cpp");
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  std::size_t last = 0;
  for (const char* definition :
       {"kps::PrinterSettingsRecord kps::PrinterSettings;", "std::mutex kps::logMutex;",
        "std::mutex kps::databaseMutex;", "kps::RemoteOrderIdManger intakeDatabase(",
        "std::mutex kps::newOrderMutex;", "std::condition_variable kps::newOrderCondition;",
        "std::shared_ptr<kps::Database> sharedDatabase ="}) {
    const auto at = text.find(definition);
    ASSERT_NE(at, std::string::npos) << definition;
    EXPECT_GT(at, last) << definition;
    last = at;
  }
}

}  // namespace
}  // namespace kps
