// The real binary, started in a fresh working directory.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "base/Log.h"
#include "Deployment.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrometheusText.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/SqliteFile.h"
#include "tests/support/WaitUntil.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

TEST(ServiceBinary, PrintsConfigurationAndSyncUrlByEnvironment) {
  const std::pair<const char*, std::string> cases[] = {{"0", deployment::kBackendTestUrl},
                                                       {"1", deployment::kBackendProductionUrl},
                                                       {"-1", deployment::kBackendProductionUrl},
                                                       {"7", deployment::kBackendProductionUrl}};
  for (const auto& [environment, syncBase] : cases) {
    TempDir dir;
    dir.write("config.ini", sampleConfig({{"environment", environment}}));
    ChildProcess service({KPS_BINARY}, dir.path());
    ASSERT_TRUE(service.waitForOutput("] url : " + syncBase + "/print/task/sync\n", 10s)) << environment << service.out();
    EXPECT_NE(service.out().find("--PrinterConfig.FourHeight--150\n--PrinterConfig.PrinterName--EPSON L8160 Series\n"
                                 "--PrinterConfig.ScreenId--SCREEN-001\n--PrinterConfig.Rearfeeder--15\n"),
              std::string::npos) << service.out();
    EXPECT_NE(service.out().find("[..\\..\\..\\src\\task:"), std::string::npos);
  }
}

// What ends a start and what does not. Nothing catches a configuration's or a store's error:
// the run-time aborts.
TEST(ServiceBinary, StartFailuresEndTheProcessWithTheirMessages) {
  struct Case {
    const char* name;
    std::function<void(TempDir&)> arrange;
    bool runsOn;
    std::vector<std::string> errors;
  };
  const Case cases[] = {
      {"environment missing", [](TempDir& d) { d.write("config.ini", sampleConfig({{"environment", ""}})); }, false,
       {"invalid stoi argument"}},
      {"a folder where the store goes", [](TempDir& d) { std::filesystem::create_directory(d.file("PrintData.db")); },
       false, {"Can't open or create database: ", "Failed to open or create database"}},
      {"history indexes that cannot be made",
       [](TempDir& d) { SqliteFile(d.file("PrintData.db")).exec("CREATE TABLE local (other TEXT); CREATE VIEW local_unreported AS SELECT 1;"); },
       true, {"Failed to create index: "}},
  };
  // With [LogFile] the same lines, and why the process ended, are in today's file: the stores
  // open after the log, and the run-time's own last words go there too.
  for (const bool logFile : {false, true})
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + (logFile ? " with a log file" : ""));
      TempDir dir;
      dir.write("config.ini", sampleConfig({}));
      c.arrange(dir);
      if (logFile) dir.write("config.ini", dir.read("config.ini") + "[LogFile]\nfolder=logs\n");
      ChildProcess service({KPS_BINARY}, dir.path());
      const auto said = [&] {
        return logFile ? dir.read("logs/kiosk-print-service-" + localTimeString(std::time(nullptr)).substr(0, 10) + ".log")
                       : service.out() + service.err();
      };
      waitUntil([&] { return said().find("] url : ") != std::string::npos || service.waitForExit(0ms) != -1; }, 10s);
      EXPECT_EQ(said().find("] url : ") != std::string::npos, c.runsOn);
      const int status = service.waitForExit(c.runsOn ? 0ms : 10s);
      EXPECT_TRUE(c.runsOn || (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT)) << status;
      for (const auto& error : c.errors) EXPECT_NE(said().find(error), std::string::npos) << said();
      if (logFile) {
        EXPECT_EQ(service.out() + service.err(), "");
      }
    }
}

// [StatusFile] or [MetricsFile] naming one of the service's own files (for the metrics file,
// the status file's too): refused with one line at start, and the file is never replaced.
TEST(ServiceBinary, AFileForMonitoringOverTheServicesOwnFilesIsRefused) {
  TempDir dir;
  struct Case {
    const char* section;
    const char* file;  // as the line names it
    std::string path, beside;
  };
  const Case cases[] = {
      {"StatusFile", "status", "config.ini", ""},
      {"StatusFile", "status", "PrintData.db", ""},
      {"StatusFile", "status", dir.file("PrintData.db-wal"), ""},
      {"MetricsFile", "metrics", "config.ini", ""},
      {"MetricsFile", "metrics", dir.file("PrintData.db-shm"), ""},
      {"MetricsFile", "metrics", "health.prom", "[StatusFile]\npath=health.prom\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.section) + " " + c.path);
    const std::string config = sampleConfig({}) + c.beside + "[" + c.section + "]\npath=" + c.path + "\n";
    dir.write("config.ini", config);
    ChildProcess service({KPS_BINARY}, dir.path());
    EXPECT_TRUE(service.waitForOutput("] [" + std::string(c.section) + "] path refused, no " + c.file +
                                      " file is written: " + c.path + " is one of the service's own files\n", 10s))
        << service.out();
    EXPECT_TRUE(service.waitForOutput("] url : ", 10s));
    service.kill();
    EXPECT_EQ(dir.read("config.ini"), config);
    EXPECT_EQ(SqliteFile(dir.file("PrintData.db")).scalar("PRAGMA integrity_check"), "ok");
  }
}

// [MetricsFile] is opt-in: with it the file is there after the sync loop's first turn, with the
// configured printer and the heartbeat; without it there is none. The status file, written
// after it in the same turn, says when that turn is over.
TEST(ServiceBinary, AMetricsFileOnlyWithItsSetting) {
  for (const bool configured : {true, false}) {
    SCOPED_TRACE(configured ? "with [MetricsFile]" : "without");
    TempDir dir;
    dir.write("config.ini", sampleConfig({}) + "[StatusFile]\npath=status.json\n" +
                                (configured ? "[MetricsFile]\npath=kiosk.prom\n" : ""));
    const std::time_t start = std::time(nullptr);
    ChildProcess service({KPS_BINARY}, dir.path());
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(dir.file("status.json")); }, 20s)) << service.out();
    EXPECT_EQ(std::filesystem::exists(dir.file("kiosk.prom")), configured);
    if (!configured) continue;
    const auto samples = prometheusSamples(dir.read("kiosk.prom"));
    EXPECT_EQ(samples.count("kioskprint_printer_ready{printer=\"EPSON L8160 Series\"}"), 1u) << dir.read("kiosk.prom");
    const double started = samples.at("kioskprint_start_time_seconds"), written = samples.at("kioskprint_metrics_written_timestamp_seconds");
    EXPECT_LE(start, started);
    EXPECT_LE(started, written);
    EXPECT_LE(written, std::time(nullptr));
  }
}

// [LogFile]: every line of the process, the log writer's and the untimed ones of either stream,
// in today's file and none on the standard streams.
TEST(ServiceBinary, WithALogFileEveryLineGoesToTodaysFile) {
  TempDir dir;
  dir.write("config.ini", sampleConfig({{"PrinterName", "no such printer"}}) + "[LogFile]\nfolder=logs\nkeepDays=3\n");
  dir.write("logs/kiosk-print-service-2000-01-01.log", "long gone\n");
  ChildProcess service({KPS_BINARY}, dir.path());
  const std::string today = "logs/kiosk-print-service-" + localTimeString(std::time(nullptr)).substr(0, 10) + ".log";
  waitUntil([&] { return dir.read(today).find("curl_easy_perform() failed: ") != std::string::npos; }, 20s);
  service.kill();
  const std::string log = dir.read(today);
  for (const char* line : {"--PrinterConfig.PrinterName--no such printer\n", "] url : ", "curl_easy_perform() failed: "})
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
  EXPECT_EQ(service.out() + service.err(), "");
  EXPECT_FALSE(std::filesystem::exists(dir.file("logs/kiosk-print-service-2000-01-01.log")));
}

// The command line: without arguments the service; the operator's words; anything else the usage
// on standard error and 2. None of them opens or creates the store.
TEST(ServiceBinary, CommandLineWordsAndTheUsage) {
  const std::string usage = "usage: kiosk-print-service                    run the service";
  const std::tuple<std::vector<std::string>, int, std::string, std::string> cases[] = {
      {{"--version"}, 0, "kiosk-print-service " + std::string(deployment::kVersion) + "\n", ""},
      {{"--help"}, 0, usage, ""},
      {{"--bogus"}, 2, "", usage},
      {{"--check", "extra"}, 2, "", usage},
      {{"--test-page"}, 2, "", usage},
      {{"-"}, 2, "", usage},
  };
  for (const auto& [args, code, out, err] : cases) {
    TempDir dir;
    std::vector<std::string> argv{KPS_BINARY};
    argv.insert(argv.end(), args.begin(), args.end());
    ChildProcess command(argv, dir.path());
    const int status = command.waitForExit(10s);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == code) << args[0] << " " << status;
    EXPECT_EQ(command.out().rfind(out, 0), 0u) << args[0] << command.out();
    EXPECT_EQ(command.err().rfind(err, 0), 0u) << args[0] << command.err();
    EXPECT_FALSE(std::filesystem::exists(dir.file("PrintData.db"))) << args[0];
  }
}

}  // namespace
}  // namespace kps
