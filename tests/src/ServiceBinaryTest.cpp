// The real binary, started in a fresh working directory.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include "Deployment.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SampleConfig.h"
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

}  // namespace
}  // namespace kps
