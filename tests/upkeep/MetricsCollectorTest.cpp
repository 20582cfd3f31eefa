// The metrics file as the real tools take it: Debian's node_exporter, its textfile collector
// alone, serves every series the service wrote with the value it wrote; promtool's lint finds
// nothing in it; and a file replaced while the collector reads is never read half-written.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "base/FilePath.h"
#include "base/Health.h"
#include "tests/support/Kiosk.h"
#include "tests/support/NodeExporter.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/PrometheusText.h"
#include "tests/support/Shell.h"
#include "upkeep/MetricsFile.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

// A kiosk whose metrics hold every series: a pending order, a count of every kind, a printer
// with every condition and both media readings, and names the format must escape.
class EverySeries : public ::testing::Test {
 protected:
  void SetUp() override {
    kiosk.order("T-1", 0, -1, -1);
    Health& health = Health::instance();
    health.noteOrderEnded(OrderEnd::Printed);
    health.noteOrderEnded(OrderEnd::Partial);
    health.noteOrderEnded(OrderEnd::Failed, "IPP_JOB_HELD");
    health.notePoll("HTTP 200", true);
    health.noteSync(1, "reported", true);
    health.notePoll("transfer error", false);
    health.noteDownloadFailed();
    state.known = true;
    for (const Condition condition : kAllConditions) state.conditions.push_back({condition, Severity::Error});
    state.media = MediaReport{"4x6 \"glossy\"", 36, 18, false};
  }
  std::string file() const { return textfiles.file("kiosk.prom"); }
  std::string lint() { return output("promtool check metrics < " + file() + " 2>&1; echo exit $?"); }

  Kiosk kiosk;
  TempDir textfiles;
  PrinterState state;
  PrinterWatch printer{"DNP \"DS620\" \\ \xE7\x85\xA7\xE7\x89\x87\n2", 0, [this](const std::wstring&) { return state; }};
  MetricsFile metrics{file(), printer, kiosk.dir.file("PrintData.db")};
};

TEST_F(EverySeries, NodeExporterServesThemAsWrittenAndPromtoolFindsNothing) {
  metrics.writeIfDue(std::time(nullptr));
  const std::string written = textfiles.read("kiosk.prom");
  EXPECT_EQ(count(written, "# HELP kioskprint_"), 13u) << written;  // every family of the README's table
  NodeExporter exporter(textfiles.path());
  ASSERT_TRUE(exporter.ready()) << exporter.log();

  // The file as written, and two that the collector must refuse, so that a refusal shows here.
  struct Case {
    const char* name;
    std::function<std::string(std::string)> change;
    bool accepted;
  };
  const Case cases[] = {
      {"as written", [](std::string text) { return text; }, true},
      {"with CR LF line ends",
       [](std::string text) {
         for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2)) text.insert(at, "\r");
         return text;
       },
       false},
      {"without its final line feed", [](std::string text) { return text.substr(0, text.size() - 1); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::error_code error;
    ASSERT_TRUE(replaceFile(file(), c.change(written), error)) << error.message();
    const auto served = prometheusSamples(exporter.scrape());
    ASSERT_EQ(served.count("node_textfile_scrape_error"), 1u) << exporter.log();
    EXPECT_EQ(served.at("node_textfile_scrape_error"), c.accepted ? 0 : 1) << exporter.log();
    EXPECT_EQ(lint() == "exit 0\n", c.accepted) << lint();
    if (!c.accepted) continue;
    for (const auto& [series, value] : prometheusSamples(written)) {
      ASSERT_EQ(served.count(series), 1u) << series;
      EXPECT_EQ(served.at(series), value) << series;
    }
  }
}

// The service replaces the file while the collector reads it, again and again: every scrape
// finds a whole file.
TEST_F(EverySeries, AFileReplacedWhileTheCollectorReadsIsAlwaysWhole) {
  metrics.writeIfDue(std::time(nullptr));
  const std::size_t series = prometheusSamples(textfiles.read("kiosk.prom")).size();
  NodeExporter exporter(textfiles.path());
  ASSERT_TRUE(exporter.ready()) << exporter.log();
  std::atomic<bool> done{false};
  std::thread writer([&] {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 1; i <= 300; ++i) {
      Health::instance().noteDownloadFailed();
      metrics.writeIfDue(std::time(nullptr), start + i * 30s);
    }
    done = true;
  });
  int scrapes = 0;
  while (!done) {
    const auto served = prometheusSamples(exporter.scrape());
    EXPECT_EQ(served.count("node_textfile_scrape_error") ? served.at("node_textfile_scrape_error") : -1, 0);
    const auto ours = std::count_if(served.begin(), served.end(),
                                    [](const auto& sample) { return sample.first.rfind("kioskprint_", 0) == 0; });
    EXPECT_EQ(static_cast<std::size_t>(ours), series);
    ++scrapes;
  }
  writer.join();
  EXPECT_GT(scrapes, 0);
}

}  // namespace
}  // namespace kps
