// The CUPS printing layer against a private scheduler with a virtual printer.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <future>
#include <regex>
#include <thread>

#include "printer/cups/QueueMedia.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/PrivateCups.h"
#include "tests/support/Shell.h"
#include "tests/support/WaitUntil.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

PrivateCups* cups = nullptr;

class CupsPrinterTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { cups = new PrivateCups; }  // one scheduler for the whole program
  static void TearDownTestSuite() { delete cups; }
  void SetUp() override {
    saved_ = jobWaitTiming();
    jobWaitTiming() = JobWaitTiming{50, 100, 3000};
    PrinterSettings = PrinterSettingsRecord{};
    PrinterSettings.fourWidth = 100, PrinterSettings.fourHeight = 150, PrinterSettings.rearfeeder = 7;
    PrinterSettings.threeWidth = 80, PrinterSettings.threeHeight = 80;
    PrinterSettings.fourSize = 256, PrinterSettings.threeSize = 258;
    cups->setScriptMode("ok");
  }
  void TearDown() override {
    jobWaitTiming() = saved_;
    PrinterSettings.cancelTimedOutJobs = false;
    sh("cancel -a kps-script; cupsenable kps-script; cupsaccept kps-file; cupsenable kps-file");
    clearReasons();
  }
  // A backend's printer-state-reasons outlive its job; the next job's backend clears them.
  void clearReasons() {
    cups->setScriptMode("ok");
    const std::string id = "kps-script-" + std::to_string(submit("kps-script")) + " ";
    waitUntil([&] { return output("lpstat -W completed -o kps-script").find(id) != std::string::npos; }, 10s);
  }
  // The newest job id the scheduler gave, 0 for none.
  int lastJob() { return newestCupsJob(); }
  // Submits a tiny job with lp and returns its id.
  int submit(const std::string& queue, const std::string& options = "") {
    std::smatch id;
    const std::string out = output("lp -d " + queue + " " + options + " " + dir.write("job.txt", "page\n") + " 2>&1");
    return std::regex_search(out, id, std::regex(R"(request id is \S+-(\d+))")) ? std::stoi(id[1].str()) : -1;
  }

  TempDir dir;
  PrinterManager manager;

 private:
  JobWaitTiming saved_;
};

TEST_F(CupsPrinterTest, QueuesInTheSchedulersOrderAndTheMatchMadeTheDefault) {
  // In the scheduler's (alphabetical) order.
  const auto queues = [](bool withFile) {
    std::vector<std::wstring> names = {L"kps-cp1300", L"kps-dnp-qw410", L"kps-ds620", L"kps-file", L"kps-fujifilm-ask-300",
                                       L"kps-hiti-p510k", L"kps-script", L"kps-virtual"};
    if (!withFile) names.erase(names.begin() + 3);
    return names;
  };
  EXPECT_EQ(manager.EnumeratePrinters(), queues(true));
  for (const char* offline : {"cupsdisable kps-file", "cupsreject kps-file"}) {
    ASSERT_EQ(sh(offline), 0);
    EXPECT_EQ(manager.EnumeratePrinters(), queues(false)) << offline;
    EXPECT_EQ(manager.FindPrinter(L"file"), L"") << offline;
    sh("cupsenable kps-file; cupsaccept kps-file");
  }
  std::wstring full;
  OutputWatcher out;
  testing::internal::CaptureStderr();
  ASSERT_TRUE(manager.SelectPrinter(L"virtual", full));
  EXPECT_EQ(full, L"kps-virtual");
  EXPECT_NE(out.text().find("Default printer set to: kps-virtual\n"), std::string::npos);
  cups_dest_t* dest = cupsGetNamedDest(CUPS_HTTP_DEFAULT, nullptr, nullptr);
  ASSERT_NE(dest, nullptr);
  EXPECT_STREQ(dest->name, "kps-virtual");
  cupsFreeDests(1, dest);
  EXPECT_FALSE(manager.SelectPrinter(L"no such printer", full));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Target printer not found: no such printer\n");
}

TEST_F(CupsPrinterTest, ParametersBecomeTheQueueDefaultsOrFailWithTheirCodes) {
  for (const auto& [type, media] : {std::pair{"postcards", "na_index-4x6_4x6in"}, {"frames", "na_index-4x6_4x6in"},
                                    {"cardsets", "oe_photo-l_3.5x5in"}, {"fridgemagnets", "oe_photo-l_3.5x5in"}}) {
    OutputWatcher out;
    ASSERT_EQ(manager.SetPrintParams(L"kps-virtual", type), 0) << type;
    cups_dest_t* dest = cupsGetNamedDest(CUPS_HTTP_DEFAULT, "kps-virtual", nullptr);
    ASSERT_NE(dest, nullptr);
    std::string options;
    for (const char* name : {"media", "media-source", "media-type", "sides", "print-color-mode"}) {
      const char* value = cupsGetOption(name, dest->num_options, dest->options);
      options += std::string(value ? value : "-") + "|";
    }
    cupsFreeDests(1, dest);
    EXPECT_EQ(options, std::string(media) + "|auto|photographic-glossy|one-sided|color|") << type;
    EXPECT_NE(out.text().find("pi2->pDevMode->dmPaperSize  "), std::string::npos);
  }
  OutputWatcher out;
  testing::internal::CaptureStderr();
  EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "Postcards"), -1);
  EXPECT_EQ(manager.SetPrintParams(L"kps-missing", "postcards"), 1);
  PrinterSettings.fourSize = 4242;
  EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "postcards"), 2);
  // An unknown type fails before any printer call; a missing picture after the printer was chosen.
  PrinterSettings.fourSize = 256;
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", L"/x.jpg", "poster"), -1);
  // So does a picture size that draws nothing: no blank sheet reported printed.
  PrinterSettings.fourWidth = 0;
  const int before = lastJob();
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", L"/x.jpg", "frames"), -1);
  EXPECT_NE(out.text().find("] picture size draws nothing, no copy is made: frames 0 x 570 hundredths of an inch\n"),
            std::string::npos) << out.text();
  EXPECT_EQ(lastJob(), before);
  PrinterSettings.fourWidth = 100;
  EXPECT_EQ(out.text().find("Default printer set to"), std::string::npos);
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", utf8ToWide(dir.file("missing.jpg")), "postcards"), -6);
  EXPECT_NE(out.text().find("Default printer set to: kps-virtual"), std::string::npos);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unable to open printer: \nNo CUPS name for paper size 4242 of config.ini (see the README's paper table)\n"
            "printer type error\n");
  EXPECT_NE(out.text().find("printer type error\n"), std::string::npos);
}

// What no situation of the printer-failure table reaches: a job the scheduler has forgotten,
// and one a failing backend aborted.
TEST_F(CupsPrinterTest, ForgottenAndAbortedJobs) {
  {
    OutputWatcher out;
    EXPECT_EQ(manager.WaitForJobCompletion("kps-script", 999999), 0);
    EXPECT_NE(out.text().find("] GetJob failed: job might have been deleted or finished. Error code:1030\n"),
              std::string::npos) << out.text();
  }
  cups->setScriptMode("fail");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", submit("kps-script")), -1);
}

// The README's "When the printer fails", CUPS column: each situation through a whole copy on
// the scripted queue, then what comes out once the situation ends (paper loaded, job released).
TEST_F(CupsPrinterTest, WhenThePrinterFails) {
  const std::string picture = dir.file("photo.jpg");
  ASSERT_TRUE(writeTestJpeg(picture, 40, 60));
  const std::string gone = "lpadmin -p kps-gone -E -v kps-script:/gone -P " + cups->photoPpd();
  const auto hold = [](const char* until) { return "lpadmin -p kps-script -o job-hold-until-default=" + std::string(until); };
  const auto printing = [](const std::string& queue, int job) {  // its backend has the job
    return waitUntil([&] { return output("lpstat -p " + queue).find("now printing " + queue + "-" + std::to_string(job)) != std::string::npos; }, 20s);
  };
  struct Row {
    const char* situation;
    const char* mode;                     // the backend as the job reaches it
    bool cancel;                          // [TimedOutJobs] value=cancel
    std::string queue;
    std::function<void()> before;
    std::function<void(int job)> during;  // once the copy's job exists
    std::int32_t code;
    std::function<void(int job)> after;   // the situation ends
    bool comesOut;
    std::int32_t orCode = 1;  // a second code the copy may meet, by timing; 1: none
  };
  const auto load = [](int) { cups->setScriptMode("ok"); };
  const auto release = [&](int job) { sh(hold("no-hold") + "; lp -i kps-script-" + std::to_string(job) + " -H resume"); };
  const auto shell = [](const std::string& command) { return [command] { ASSERT_EQ(sh(command), 0); }; };
  const Row rows[] = {
      {"Paper out before the job starts", "media-empty", false, "kps-script", nullptr, nullptr, -3, load, true},
      {"Paper out mid-job, refilled after the time-out", "hang", false, "kps-script", nullptr, nullptr, -7, load, true},
      {"Paper out mid-job, refilled after the time-out (with cancel)", "hang", true, "kps-script", nullptr, nullptr, -7, load, false},
      {"Printer switched off or unplugged during the job", "offline", false, "kps-script", nullptr, nullptr, -2, load, true},
      // Out of paper while the driver runs, or its queue stopped: whichever the look meets first.
      {"Paper out mid-job, the driver stops its queue", "media-empty-stop", false, "kps-script", nullptr, nullptr, -2,
       [](int) { cups->setScriptMode("ok"), sh("cupsenable kps-script"); }, true, -3},
      {"Paper out mid-job, the driver holds the job", "media-empty-hold", false, "kps-script", nullptr, nullptr, -3,
       [](int job) { cups->setScriptMode("ok"), sh("lp -i kps-script-" + std::to_string(job) + " -H resume"); }, true},
      {"Printer stopped / working offline before a copy", "ok", false, "kps-script", shell("cupsdisable kps-script"), nullptr, -1,
       [](int) { sh("cupsenable kps-script"); }, false},
      {"The queue removed mid-run", "hang", false, "kps-gone", shell(gone),
       [&](int job) { ASSERT_TRUE(printing("kps-gone", job)); ASSERT_EQ(sh("lpadmin -x kps-gone"), 0); }, -1,
       [&](int) { EXPECT_EQ(manager.PrintImage(L"kps-gone", utf8ToWide(picture), "postcards"), -1); }, false},
      {"A job held", "ok", false, "kps-script", shell(hold("indefinite")), nullptr, -7, release, true},
      {"A job held (with cancel)", "ok", true, "kps-script", shell(hold("indefinite")), nullptr, -7, release, false},
      {"A job cancelled at the PC", "hang", false, "kps-script", nullptr,
       [&](int job) { ASSERT_TRUE(printing("kps-script", job)); ASSERT_EQ(sh("cancel kps-script-" + std::to_string(job)), 0); },
       -1, load, false},
      {"The spooler (scheduler) restarted mid-job", "hang", false, "kps-script", nullptr,
       [&](int job) { ASSERT_TRUE(printing("kps-script", job)); cups->restartScheduler(); load(job); }, 0, nullptr, true},
      {"A job still waiting behind another after a second", "hang", false, "kps-script", shell("lp -d kps-script " + dir.write("ahead.txt", "page\n")),
       [&](int job) { ASSERT_TRUE(printing("kps-script", job - 1)); load(job); }, 0, nullptr, true},
      {"The printer's media cannot be read (Windows: no device context)", "ok", false, "kps-raw",
       shell("lpadmin -p kps-raw -E -v kps-script:/raw"), nullptr, -8, [](int) { sh("lpadmin -x kps-raw"); }, false},
  };
  jobWaitTiming().limitMs = 4000;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.situation);
    PrinterSettings.cancelTimedOutJobs = row.cancel;
    cups->setScriptMode(row.mode);
    if (row.before) row.before();
    const int last = lastJob();
    OutputWatcher log;
    auto copy = std::async(std::launch::async, [&] { return manager.PrintImage(utf8ToWide(row.queue), utf8ToWide(picture), "postcards"); });
    int job = 0;
    if (row.during) {
      ASSERT_TRUE(waitUntil([&] { return (job = lastJob()) > last; }, 20s));
      row.during(job);
    }
    const std::int32_t code = copy.get();
    EXPECT_EQ(code, code == row.orCode ? row.orCode : row.code);
    if (lastJob() > last) job = lastJob();
    const std::string line = "] Cancelling the timed-out job " + std::to_string(job) + " on printer " + row.queue + "\n";
    EXPECT_EQ(log.text().find(line) != std::string::npos, row.cancel) << log.text();
    // A printed copy is out when the copy returns; any other comes out, if at all, afterwards.
    const auto cameOut = [&] { return job > 0 && ("\n" + cups->pages()).find("\n" + std::to_string(job) + "\n") != std::string::npos; };
    EXPECT_TRUE(code != 0 || cameOut());
    if (row.after) row.after(job);
    ASSERT_TRUE(waitUntil([&] { return output("lpstat -o").find("-" + std::to_string(job) + " ") == std::string::npos; }, 20s));
    EXPECT_EQ(cameOut(), row.comesOut) << cups->pages();
    sh(hold("no-hold") + "; cancel -a kps-script");
    clearReasons();
  }
}

TEST_F(CupsPrinterTest, PrintedPageHasThePictureAtItsSizeTopLeft) {
  const std::string picture = dir.file("photo.jpg");
  ASSERT_TRUE(writeTestJpeg(picture, 400, 600));
  jobWaitTiming().limitMs = 30000;
  ASSERT_EQ(manager.PrintImage(L"virtual", utf8ToWide(picture), "postcards"), 0);

  const std::string kept = cups->newestKeptPdf();
  ASSERT_FALSE(kept.empty());
  // The job itself carried the paper, tray and media type, as the printer received them.
  const std::string attributes = output("cat " + kept + ".attrs");
  for (const char* line : {"IPP_MEDIA_COL={media-size={x-dimension=10160 y-dimension=15240} ",
                           "media-source=auto ", "media-type=photographic-glossy}",
                           "\nIPP_SIDES=one-sided\n", "\nIPP_PRINT_COLOR_MODE=color\n"})
    EXPECT_NE(attributes.find(line), std::string::npos) << line << "\n" << attributes;
  // 4 x 6 in media (288 x 432 points); the picture stretched to 370 x 570 hundredths of an
  // inch from the top-left of the printable area (no margins on this media), red left of blue.
  EXPECT_NE(output("pdfinfo " + kept).find("Page size:       288 x 432 pts"), std::string::npos);
  const std::string png = dir.file("page.png");
  EXPECT_EQ(renderPage(kept, png), "370x570+0+0");
  EXPECT_EQ(pixel(png, 5, 5), "254,0,0");
  EXPECT_EQ(pixel(png, 365, 565), "0,0,254");
}

// Photo printers' own drivers (Gutenprint's dye-sublimation drivers, each behind a file device
// that runs its whole filter chain): every product type's page reaches the driver on the paper
// the driver calls by that size, with its overscan, written as the queue's default too, never on
// a cut or composite twin listed at the same size (before it, on some drivers) while a plain page
// holds the size; a size the driver lacks fails the copy with one line, and nothing is printed on
// other paper. The queue's PPD is fetched at most once a copy.
TEST_F(CupsPrinterTest, DyeSubDriversPrintEachProductOnTheirOwnPaperOrNotAtAll) {
  const std::string picture = dir.file("photo.jpg");
  ASSERT_TRUE(writeTestJpeg(picture, 400, 600));
  jobWaitTiming().limitMs = 60000;
  const char* const kCp1300Offers = "; it offers: Postcard (Postcard 100x148mm, 105.66 x 158.5 mm), "
                                    "w253h337 (CP_L 89x119mm, 97.54 x 124.63 mm), w155h244 (Card 54x86mm, 56.56 x 92.12 mm)\n";
  struct Row {
    const char* queue;
    const char* type;
    std::int32_t fourSize;
    std::int32_t code;
    std::string driverPaper;  // the driver's name for the page it got, or the copy's line
  };
  const Row rows[] = {
      {"kps-ds620", "postcards", 256, 0, "w288h432"},  // 4 x 6 in, 104.99 x 162.56 mm with the overscan
      {"kps-ds620", "frames", 256, 0, "w288h432"},
      {"kps-ds620", "cardsets", 256, 0, "B7"},  // 3.5 x 5 in, printed on the 6 in roll
      {"kps-ds620", "fridgemagnets", 256, 0, "B7"},
      {"kps-ds620", "postcards", 9, -1, "] paper size 9 (iso_a4_210x297mm, 210 x 297 mm) is not offered by kps-ds620; it offers: B7 (3.5x5, "},
      {"kps-cp1300", "postcards", 256, 0, "Postcard"},
      {"kps-cp1300", "frames", 256, 0, "Postcard"},
      // Its L paper is 89 x 119 mm: shorter than 3.5 x 5 in.
      {"kps-cp1300", "cardsets", 256, -1, std::string("] paper size 258 (oe_photo-l_3.5x5in, 88.9 x 127 mm) is not offered by kps-cp1300") + kCp1300Offers},
      {"kps-cp1300", "fridgemagnets", 256, -1, "] paper size 258 (oe_photo-l_3.5x5in, 88.9 x 127 mm) is not offered by kps-cp1300"},
      // 4x6 after its 4x4+4x2 composite, and after its two 2x6 strips.
      {"kps-dnp-qw410", "postcards", 256, 0, "w288h432"},
      {"kps-fujifilm-ask-300", "postcards", 256, 0, "w288h432"},
      // A6 (105 mm wide) fits only the cut 2x6*2 sheet: its plain 4x6 is 104.64 mm.
      {"kps-hiti-p510k", "postcards", 70, 0, "w288h432-div2"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.queue) + " " + row.type + " " + std::to_string(row.fourSize));
    PrinterSettings.fourSize = row.fourSize;
    const int before = lastJob();
    const std::string ppd = std::string("\"GET /printers/") + row.queue + ".ppd HTTP/1.1\" 200 ";
    const std::size_t fetched = count(cups->accessLog(), ppd);
    OutputWatcher out;
    EXPECT_EQ(manager.PrintImage(utf8ToWide(row.queue), utf8ToWide(picture), row.type), row.code);
    EXPECT_LE(count(cups->accessLog(), ppd), fetched + 1) << "the PPD fetched more than once";
    if (row.code != 0) {
      EXPECT_EQ(lastJob(), before) << "a job was made";
      EXPECT_NE(out.text().find(row.driverPaper), std::string::npos) << out.text();
      continue;
    }
    ASSERT_GT(lastJob(), before);
    const std::regex used("\\[Job " + std::to_string(lastJob()) + "\\] Gutenprint: +Using page size (\\S+) with");
    std::smatch size;
    const std::string log = cups->log();
    ASSERT_TRUE(std::regex_search(log, size, used)) << "no page size in the scheduler's log";
    EXPECT_EQ(size[1].str(), row.driverPaper);
    // What the filters were given: the driver's paper by its name, and no tray or media type,
    // which these drivers do not have.
    const std::regex given("\\[Job " + std::to_string(lastJob()) + "\\] argv\\[5\\]=\"([^\"]*)\"");
    ASSERT_TRUE(std::regex_search(log, size, given));
    EXPECT_EQ(size[1].str().rfind("media=" + row.driverPaper + " ", 0), 0u) << size[1].str();
    EXPECT_EQ(size[1].str().find("media-source"), std::string::npos) << size[1].str();
    EXPECT_EQ(size[1].str().find("media-type"), std::string::npos) << size[1].str();
    EXPECT_NE(output(std::string("lpoptions -p ") + row.queue + " -l").find("*" + row.driverPaper + " "), std::string::npos);
  }
}

// A dye-sub driver reports the prints left after every job: read with the printer's condition,
// one fewer each print, and out of paper at none.
TEST_F(CupsPrinterTest, PrintsLeftGoDownByOneAndRunOutAtNone) {
  const std::string picture = dir.file("photo.jpg");
  ASSERT_TRUE(writeTestJpeg(picture, 40, 60));
  cups->setMediaLeft(2);
  for (const int left : {1, 0}) {
    ASSERT_EQ(manager.PrintImage(L"kps-script", utf8ToWide(picture), "postcards"), 0);
    PrinterState state;
    ASSERT_TRUE(waitUntil([&] {
      state = manager.ReadPrinterState(L"kps-script");
      return state.media && state.media->remainingPrints == left;
    }, 10s)) << left;
    EXPECT_EQ(state.media->name, "4x6");
    EXPECT_EQ(state.media->levelPercent, left * 100 / 400);
    EXPECT_TRUE(state.ready());
  }
  // Without [WaitForPrinter] the copy fails as paper out; its job prints once the roll is new.
  jobWaitTiming().limitMs = 60000;
  EXPECT_EQ(manager.PrintImage(L"kps-script", utf8ToWide(picture), "postcards"), -3);
  const PrinterState state = manager.ReadPrinterState(L"kps-script");
  EXPECT_TRUE(state.has(Condition::MediaEmpty));
  EXPECT_FALSE(state.ready());
  EXPECT_EQ(state.needsPersonText(), "out of paper (media-empty)");
  cups->setMediaLeft(400);  // a new roll
  EXPECT_TRUE(waitUntil([&] {
    const PrinterState now = manager.ReadPrinterState(L"kps-script");
    return now.media && now.media->remainingPrints == 399 && now.ready();
  }, 20s));
  // A driver that counts its level in prints, of a full count it gives as its high level.
  cups->setMediaCounted(true);
  jobWaitTiming().limitMs = 3000;
  ASSERT_EQ(manager.PrintImage(L"kps-script", utf8ToWide(picture), "postcards"), 0);
  PrinterState counted;
  EXPECT_TRUE(waitUntil([&] {
    counted = manager.ReadPrinterState(L"kps-script");
    return counted.media && counted.media->remainingPrints == 398;
  }, 10s));
  EXPECT_EQ(counted.media ? counted.media->levelPercent : std::nullopt, 99);
  cups->setMediaCounted(false);
  cups->setMediaLeft(-1);
}

// A real photo reaches the printer as the photo scaled to the drawn rectangle: decoded at the
// queue's resolution (600 dpi: 3.7 in is 2220 pixels; the photo's 1600 rows are fewer than 5.7 in
// takes, so they stay), carried as one JPEG, and what the page shows at 300 dpi matches the
// photo scaled by ImageMagick.
TEST_F(CupsPrinterTest, ARealPhotoReachesThePrinterAsThePhotoScaledToTheDrawnRectangle) {
  jobWaitTiming().limitMs = 30000;
  ASSERT_EQ(manager.PrintImage(L"virtual", utf8ToWide(kRealPhoto), "postcards"), 0);
  const std::string kept = cups->newestKeptPdf();
  ASSERT_FALSE(kept.empty());
  EXPECT_LT(std::filesystem::file_size(kept), 2u << 20);
  const std::string images = output("pdfimages -list " + kept + " | tail -n +3");
  EXPECT_TRUE(std::regex_match(images, std::regex(R"(\s*1\s+0\s+image\s+2220\s+1600\s+rgb\s+3\s+8\s+jpeg\s.*\n)"))) << images;
  ASSERT_EQ(sh("pdftoppm -r 300 -png -singlefile -x 0 -y 0 -W 1110 -H 1710 " + kept + " " + dir.file("page")), 0);
  ASSERT_EQ(sh(std::string("convert ") + kRealPhoto + " -resize '1110x1710!' " + dir.file("reference.png")), 0);
  EXPECT_GE(psnr(dir.file("page.png"), dir.file("reference.png")), 35.0);
}

}  // namespace
}  // namespace kps
