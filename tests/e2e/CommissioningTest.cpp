// The operator's commands of the real binary against the sandbox: `--check` on a kiosk that is
// right and on each fault it must name, and `--test-page` measured at the printer; on Linux
// and, as the Windows exe, under Wine.
#include <gtest/gtest.h>

#include <regex>

#include "tests/e2e/Journey.h"

namespace kps {
namespace {

const std::string kCups = "CUPS_SERVER=localhost:18631 ";

// Every line of a check's report starts with its verdict.
bool everyLineHasAVerdict(const std::string& report) {
  std::istringstream lines(report);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    if (!std::regex_match(line, std::regex("(OK  |WARN|FAIL) [^ ].*?: .+"))) return false;
  return count > 0;
}

// The commands' checks on either platform: the same faults, named the same way.
template <class Journey>
class Commands : public Journey {
 protected:
  using Journey::commandOut;
  using Journey::root;
  using Journey::runCommand;
  using Journey::work;
  using Journey::writeConfig;

  // Each fault named by its own line, and the exit code a script acts on. `paperLine` is what
  // the platform says of paper size 8 (A3), which neither driver offers, and `paperCode` whether
  // that fails the check (CUPS prints no copy on other paper). A stopped queue is CUPS's alone:
  // Wine's spooler never shows one (the printing layer's tests script it).
  void expectEachFaultNamed(const std::string& paperLine, int paperCode, bool queuesStop) {
    struct Case {
      const char* name;
      std::function<void()> arrange, undo;
      std::string line;
      int code;
    };
    const std::string kept = root.read(work + "/config.ini");
    const auto restore = [&] { root.write(work + "/config.ini", kept); };
    const Case cases[] = {
        {"a printer name that matches nothing", [&] { writeConfig("no-such-printer", "256", "258"); }, restore,
         "FAIL printer \"no-such-printer\": matches no installed printer; installed: kps-", 1},
        {"a stopped queue", [&] { sh(kCups + "cupsdisable kps-virtual"); }, [&] { sh(kCups + "cupsenable kps-virtual"); },
         "FAIL printer \"kps-virtual\": selects kps-virtual, which is stopped\n", 1},
        {"a paper size the driver lacks", [&] { writeConfig("kps-virtual", "8", "258"); }, restore, paperLine, paperCode},
        {"a missing setting", [&] { root.write(work + "/config.ini", sampleConfig({{"FourWidth", ""}})); }, restore,
         "FAIL config.ini [FourWidth] width: missing; the service would end with \"invalid stoi argument\"\n", 1},
        {"a picture size that draws nothing", [&] { root.write(work + "/config.ini", sampleConfig({{"FourWidth", "0"}})); }, restore,
         "FAIL config.ini [FourWidth] width: 0: draws nothing: every copy of the product types it sizes fails\n", 1},
        {"a status file over the store", [&] { root.write(work + "/config.ini", kept + "[StatusFile]\npath=PrintData.db\n"); },
         restore,
         "FAIL config.ini [StatusFile] path: \"PrintData.db\": PrintData.db is one of the service's own files: the service "
         "writes no status file\n", 1},
        {"a metrics file over the status file",
         [&] { root.write(work + "/config.ini", kept + "[StatusFile]\npath=health.prom\n\n[MetricsFile]\npath=health.prom\n"); },
         restore,
         "FAIL config.ini [MetricsFile] path: \"health.prom\": health.prom is one of the service's own files: the service "
         "writes no metrics file\n", 1},
        {"a metrics file the collectors would not read", [&] { root.write(work + "/config.ini", kept + "[MetricsFile]\npath=kiosk.txt\n"); },
         restore, "WARN config.ini [MetricsFile] path: \"kiosk.txt\": the collectors read only files whose names end in .prom\n", 0},
        {"a wrong object-store secret", [&] { root.write("sandbox/oss-secret", "another-secret"); },
         [&] { fs::remove(root.file("sandbox/oss-secret")); },
         "FAIL object store https://127.0.0.1:18900 bucket qzlp: SignatureDoesNotMatch: ", 1},
        {"a kiosk clock the store refuses", [&] { root.write("sandbox/oss-clock", "{\"ahead\": 3600}"); },
         [&] { fs::remove(root.file("sandbox/oss-clock")); },
         "FAIL object store https://127.0.0.1:18900 bucket qzlp: RequestTimeTooSkewed: ", 1},
        {"a store that is not one", [&] { root.write(work + "/PrintData.db", std::string(4096, 'x')); },
         [&] { fs::remove(root.file(work + "/PrintData.db")); }, "FAIL store PrintData.db: ", 1},
        {"a backend that is down", [&] { root.write("sandbox/backend-mode", "down"); },
         [&] { fs::remove(root.file("sandbox/backend-mode")); },
         "FAIL backend https://localhost:18444/print/task/list: no answer: ", 1},
    };
    for (const auto& c : cases) {
      if (!queuesStop && std::string(c.name) == "a stopped queue") continue;
      c.arrange();
      EXPECT_EQ(runCommand({"--check"}), c.code) << c.name << "\n" << commandOut;
      EXPECT_NE(commandOut.find(c.line), std::string::npos) << c.name << "\n" << commandOut;
      EXPECT_TRUE(everyLineHasAVerdict(commandOut)) << c.name << "\n" << commandOut;
      c.undo();
    }
  }
};

using Commissioning = Commands<ServiceJourney>;

TEST_F(Commissioning, CheckOnARightKioskPassesAndChangesNothing) {
  root.write(work + "/kiosk-print-service-check.probe", "the operator's own");  // a file of the probe's name
  const std::string queueBefore = output(kCups + "HOME=" + root.path() + " lpoptions -p kps-virtual");
  const std::string defaultBefore = output(kCups + "HOME=" + root.path() + " lpstat -d");
  ASSERT_EQ(runCommand({"--check"}), 0) << commandOut;
  EXPECT_TRUE(everyLineHasAVerdict(commandOut)) << commandOut;
  for (const std::string line : {"OK   config.ini [FourSize] value: 256\n", "OK   printer \"kps-virtual\": selects kps-virtual (ready)\n",
                                 "OK   backend https://localhost:18444/print/task/list: code \"100\" for screen E2E, 0 task(s)",
                                 "OK   kiosk clock: ", "OK   object store https://127.0.0.1:18900 bucket qzlp: this build's keys",
                                 "OK   store PrintData.db: absent (created at first start)\n", "TLS trust: the sandbox CA"})
    EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
  EXPECT_NE(commandOut.find("OK   working directory "), std::string::npos) << commandOut;  // writable all the same
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db")));
  EXPECT_EQ(std::distance(fs::directory_iterator(root.file(work)), fs::directory_iterator()), 2);  // config.ini, the probe's namesake
  EXPECT_EQ(root.read(work + "/kiosk-print-service-check.probe"), "the operator's own");
  EXPECT_EQ(output(kCups + "HOME=" + root.path() + " lpoptions -p kps-virtual"), queueBefore);
  EXPECT_EQ(output(kCups + "HOME=" + root.path() + " lpstat -d"), defaultBefore);

  // A store the service left: read as it is, with nothing beside it afterwards.
  {
    SqliteFile store(root.file(work + "/PrintData.db"));
    ASSERT_TRUE(store.exec("CREATE TABLE local (uuid TEXT, path TEXT, status INTEGER);"
                           "INSERT INTO local VALUES ('a', 'p/a.jpg', 0), ('b', 'p/b.jpg', 0), ('c', 'p/c.jpg', 2), ('d', 'p/d.jpg', 4);"));
  }
  root.write(work + "/p/a.jpg", "jpeg");
  fs::last_write_time(root.file(work + "/p/a.jpg"), fs::file_time_type::clock::now() - 3h);
  ASSERT_EQ(runCommand({"--check"}), 0) << commandOut;
  EXPECT_NE(commandOut.find("OK   store PrintData.db: quick check ok; orders: 2 pending, 1 printed, 1 failed; "
                            "oldest pending order 3 h\n"), std::string::npos) << commandOut;
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db-wal")));
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db-shm")));
}

TEST_F(Commissioning, EachCheckNamesItsFault) {
  expectEachFaultNamed("FAIL paper for postcards: paper size 8 (iso_a3_297x420mm) is not offered by the driver; it offers ", 1, true);
}

// Photo printers' own drivers (Gutenprint's dye-sub drivers in the sandbox): each product
// type's paper as the driver names it, a size it lacks a FAIL with what it offers, one that only
// a cut or composite sheet holds a WARN naming it, and no tray or media type where the driver
// has none; the driver's PPD fetched once for the whole check; the test page on the driver's paper.
TEST_F(Commissioning, CheckAndTestPageOnDyeSubDrivers) {
  const std::string noTray = "OK   paper source: the driver has no paper source to choose; Rearfeeder 7 (auto) is not sent\n";
  const std::string noType =
      "OK   media type: the driver has no media type to choose; media type 326 (photographic-glossy) is not sent\n";
  const std::tuple<const char*, const char*, int, std::vector<std::string>> cases[] = {
      {"kps-ds620", "256", 0,
       {"OK   paper for postcards: paper size 256 (na_index-4x6_4x6in) offered as the driver's w288h432 (4x6, 104.99 x 162.56 mm)\n",
        "OK   paper for frames: paper size 256 (na_index-4x6_4x6in) offered as the driver's w288h432 (4x6, 104.99 x 162.56 mm)\n",
        "OK   paper for cardsets: paper size 258 (oe_photo-l_3.5x5in) offered as the driver's B7 (3.5x5, 92.12 x 162.56 mm)\n",
        "OK   paper for fridgemagnets: paper size 258 (oe_photo-l_3.5x5in) offered as the driver's B7 (3.5x5, 92.12 x 162.56 mm)\n",
        noTray, noType}},
      {"kps-cp1300", "256", 1,
       {"OK   paper for postcards: paper size 256 (na_index-4x6_4x6in) offered as the driver's Postcard (Postcard 100x148mm, 105.66 x 158.5 mm)\n",
        "FAIL paper for cardsets: paper size 258 (oe_photo-l_3.5x5in) is not offered by the driver; it offers Postcard (Postcard "
        "100x148mm, 105.66 x 158.5 mm), w253h337 (CP_L 89x119mm, 97.54 x 124.63 mm), w155h244 (Card 54x86mm, 56.56 x 92.12 mm)\n",
        noTray, noType}},
      {"kps-dnp-qw410", "256", 1,  // a 4 in roll: no 3.5 x 5 in
       {"OK   paper for postcards: paper size 256 (na_index-4x6_4x6in) offered as the driver's w288h432 (4x6, 119.21 x 155.45 mm)\n"}},
      {"kps-hiti-p510k", "70", 0,
       {"WARN paper for postcards: paper size 70 (iso_a6_105x148mm) offered only as the driver's cut or composite w288h432-div2 "
        "(2x6*2, 105.31 x 155.61 mm): none of its plain papers holds the size\n"}},
      {"kps-virtual", "256", 0,
       {"OK   paper for postcards: paper size 256 (na_index-4x6_4x6in) offered\n",
        "OK   paper for cardsets: paper size 258 (oe_photo-l_3.5x5in) offered\n", "OK   paper source: Rearfeeder 7 (auto) offered\n",
        "OK   media type: media type 326 (photographic-glossy) offered\n"}},
  };
  for (const auto& [queue, fourSize, code, lines] : cases) {
    writeConfig(queue, fourSize, "258");
    const std::string ppd = std::string("\"GET /printers/") + queue + ".ppd HTTP/1.1\" 200 ";
    const std::size_t fetched = count(root.read("sandbox/cups/log/access_log"), ppd);
    EXPECT_EQ(runCommand({"--check"}), code) << queue << "\n" << commandOut;
    EXPECT_LE(count(root.read("sandbox/cups/log/access_log"), ppd), fetched + 1) << queue;
    for (const std::string& line : lines) EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
  }
  writeConfig("kps-ds620", "256", "258");
  ASSERT_EQ(runCommand({"--test-page", "cardsets"}), 0) << commandOut;
  EXPECT_NE(commandOut.find("test page cardsets (100 x 150, drawn 94 x 145 mm) on the driver's B7 (3.5x5, 92.12 x 162.56 mm): "
                            "result 0 (printed)\n"),
            std::string::npos) << commandOut;
  const std::string log = root.read("sandbox/cups/log/error_log");
  const std::regex used(R"(\[Job (\d+)\] Gutenprint: +Using page size (\S+) with)");
  std::string last;
  for (std::sregex_iterator it(log.begin(), log.end(), used), end; it != end; ++it) last = (*it)[2].str();
  EXPECT_EQ(last, "B7");
}

// The printer's condition and its prints left where an operator looks: --check's line and
// --status's, going down with each print, low at [MediaLow], out of paper at none; --status needs
// attention while the media is low or the printer needs a person.
TEST_F(Commissioning, PrintsLeftAndThePrintersConditionInCheckAndStatus) {
  writeConfig("kps-script", "256", "258");
  addToConfig("[MediaLow]\nprints=1\n");
  setMediaLeft(2);
  SqliteFile store(root.file(work + "/PrintData.db"));
  ASSERT_TRUE(store.exec("CREATE TABLE local (uuid TEXT, path TEXT, status INTEGER, updateTime TEXT, syncTime TEXT, failReason TEXT)"));
  const auto lines = [&](const std::vector<std::string>& args, int code, const std::vector<std::string>& wanted) {
    EXPECT_EQ(runCommand(args), code) << args.front() << "\n" << commandOut;
    for (const auto& line : wanted) EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
  };
  lines({"--check"}, 0, {"OK   printer condition: ready\n"});  // no job yet: the driver has said nothing
  lines({"--test-page", "postcards"}, 0, {": result 0 (printed)\n"});
  lines({"--check"}, 0, {"WARN printer condition: media low: 1 print remaining on 4x6 media\n"});
  lines({"--status"}, 1, {"printer kps-script: media low: 1 print remaining on 4x6 media\n",
                          "attention: the printer's media low: 1 print remaining on 4x6 media\n", "needs attention\n"});
  lines({"--test-page", "postcards"}, 0, {": result 0 (printed)\n"});
  lines({"--test-page", "postcards"}, 1, {": result -3 (IPP_JOB_HELD)\n"});  // out of paper: it waits at the printer
  lines({"--check"}, 1, {"FAIL printer condition: needs a person: out of paper (media-empty)\n"});
  lines({"--status"}, 1, {"attention: the printer needs a person: out of paper (media-empty)\n"});
  setMediaLeft(400);  // a new roll: the waiting page comes out
  EXPECT_TRUE(waitUntil([] { return output(kCups + "lpstat -o").empty(); }, 30s));
  lines({"--check"}, 0, {"OK   printer condition: ready, 399 prints remaining on 4x6 media\n"});
}

// The calibration page of each size: the picture at its configured size at the page's top left
// (width x 3.7 by height x 3.8 hundredths of an inch), its arrow in the corner, nothing stored.
TEST_F(Commissioning, TestPageHasTheConfiguredSizeAtTheTopLeft) {
  // Its words say the size it is drawn at, in millimetres.
  const std::tuple<const char*, int, int, const char*> cases[] = {{"postcards", 370, 570, " (100 x 150, drawn 94 x 145 mm) on "},
                                                                  {"fridgemagnets", 296, 304, " (80 x 80, drawn 75 x 77 mm) on "}};
  std::size_t printed = 0;
  for (const auto& [type, width, height, words] : cases) {
    ASSERT_EQ(runCommand({"--test-page", type}), 0) << type << commandOut;
    EXPECT_NE(commandOut.find(std::string("test page ") + type + words), std::string::npos) << commandOut;
    EXPECT_NE(commandOut.find(": result 0 (printed)\n"), std::string::npos) << commandOut;
    std::vector<std::string> pages;
    ASSERT_TRUE(waitUntil([&] { return (pages = keptPages()).size() == printed + 1; }, 30s)) << type;
    ++printed;
    int w = 0, h = 0, x = -1, y = -1;
    std::sscanf(renderPage(pages.back(), root.file("page.png")).c_str(), "%dx%d+%d+%d", &w, &h, &x, &y);
    EXPECT_NEAR(w, width, 3) << type;
    EXPECT_NEAR(h, height, 3) << type;
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 0)) << type;
    int r = 0, g = 0, b = 0;
    std::sscanf(pixel(root.file("page.png"), 14, 14).c_str(), "%d,%d,%d", &r, &g, &b);
    EXPECT_TRUE(r > 150 && g < 90 && b < 90) << type << " " << r << "," << g << "," << b;
  }
  EXPECT_EQ(runCommand({"--test-page", "posters"}), 2);
  EXPECT_NE(commandOut.find("unknown product type: posters"), std::string::npos) << commandOut;
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db")));
}

using WineCommissioning = Commands<WineJourney>;

TEST_F(WineCommissioning, EachCheckNamesItsFault) {
  expectEachFaultNamed("WARN paper for postcards: paper size 8 is not offered by the driver; it offers ", 0, false);
}

TEST_F(WineCommissioning, CheckAgainstTheSandboxAndAWinePrinter) {
  ASSERT_EQ(runCommand({"--check"}), 0) << commandOut;
  EXPECT_TRUE(everyLineHasAVerdict(commandOut)) << commandOut;
  for (const std::string line : {"OK   printer \"kps-virtual\": selects kps-virtual (ready)\n",
                                 "OK   paper for postcards: paper size 1 offered\n", "OK   paper for fridgemagnets: paper size 9 offered\n",
                                 "OK   backend https://localhost:18444/print/task/list: code \"100\"",
                                 "OK   object store https://127.0.0.1:18900 bucket qzlp: this build's keys",
                                 "OK   store PrintData.db: absent (created at first start)\n"})
    EXPECT_NE(commandOut.find(line), std::string::npos) << line << "\n" << commandOut;
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db")));
}

// The page measured at the printer. Wine's GetJobA may fail once the job is handed to CUPS;
// the code the command prints is then the one the wait defines for it.
TEST_F(WineCommissioning, TestPageHasTheConfiguredSizeAtTheTopLeft) {
  const int code = runCommand({"--test-page", "frames"});
  std::vector<std::string> pages;
  ASSERT_TRUE(waitUntil([&] { return (pages = keptPages()).size() == 1; }, 60s)) << commandOut;
  EXPECT_TRUE((code == 0 && commandOut.find(": result 0 (printed)\n") != std::string::npos) ||
              (code == 1 && commandOut.find(": result -1 (IPP_JOB_HELD_NOT_PRINTER)\n") != std::string::npos))
      << code << commandOut;
  int w = 0, h = 0;
  std::sscanf(renderPage(pages.back(), root.file("page.png")).c_str(), "%dx%d", &w, &h);
  EXPECT_NEAR(w, 370, 3);
  EXPECT_NEAR(h, 570, 3);
  EXPECT_FALSE(fs::exists(root.file(work + "/PrintData.db")));
}

}  // namespace
}  // namespace kps
