// The CUPS printing layer against a private scheduler with a virtual printer.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <thread>

#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "tests/support/OutputWatcher.h"
#include "tests/support/PrivateCups.h"
#include "tests/support/Shell.h"

namespace kps {
namespace {

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
    sh("cancel -a kps-script; cupsenable kps-script; cupsaccept kps-file; cupsenable kps-file");
    clearReasons();
  }
  // A backend's printer-state-reasons outlive its job; the next job's backend clears them.
  void clearReasons() {
    cups->setScriptMode("ok");
    const std::string id = "kps-script-" + std::to_string(submit("kps-script")) + " ";
    for (int i = 0; i < 100; ++i) {
      if (output("lpstat -W completed -o kps-script").find(id) != std::string::npos) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
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
  EXPECT_EQ(manager.EnumeratePrinters(), (std::vector<std::wstring>{L"kps-file", L"kps-script", L"kps-virtual"}));
  for (const char* offline : {"cupsdisable kps-file", "cupsreject kps-file"}) {
    ASSERT_EQ(sh(offline), 0);
    EXPECT_EQ(manager.EnumeratePrinters(), (std::vector<std::wstring>{L"kps-script", L"kps-virtual"})) << offline;
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
  EXPECT_EQ(out.text().find("Default printer set to"), std::string::npos);
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", utf8ToWide(dir.file("missing.jpg")), "postcards"), -6);
  EXPECT_NE(out.text().find("Default printer set to: kps-virtual"), std::string::npos);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Unable to open printer: \nNo CUPS name for paper size 4242 of config.ini (see the README's paper table)\n"
            "printer type error\n");
  EXPECT_NE(out.text().find("printer type error\n"), std::string::npos);
}

TEST_F(CupsPrinterTest, JobStatesMapToResultCodes) {
  // Held.
  int job = submit("kps-script", "-H indefinite");
  ASSERT_GT(job, 0);
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -4);
  ASSERT_EQ(sh("cancel kps-script-" + std::to_string(job)), 0);
  // Cancelled.
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -1);
  // Forgotten by the scheduler.
  {
    OutputWatcher out;
    EXPECT_EQ(manager.WaitForJobCompletion("kps-script", 999999), 0);
    EXPECT_NE(out.text().find("] GetJob failed: job might have been deleted or finished. Error code:1030\n"),
              std::string::npos) << out.text();
  }
  // Completed.
  job = submit("kps-script");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), 0);
  // Aborted by a failing backend.
  cups->setScriptMode("fail");
  job = submit("kps-script");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -1);
  // Media empty; offline.
  for (const auto& [mode, code] : {std::pair{"media-empty", -3}, {"offline", -2}}) {
    cups->setScriptMode(mode);
    job = submit("kps-script");
    EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), code) << mode;
    sh("cancel -a kps-script");
    clearReasons();
  }
  // Never finishing: the wait times out, the job stays queued.
  cups->setScriptMode("hang");
  job = submit("kps-script");
  {
    OutputWatcher out;
    EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -7);
    EXPECT_NE(out.text().find("] WaitForJobCompletion timed out.\n"), std::string::npos);
  }
  EXPECT_NE(output("lpstat -o kps-script").find("kps-script-" + std::to_string(job)), std::string::npos);
  sh("cancel -a kps-script");
  // A stopped queue.
  cups->setScriptMode("ok");
  ASSERT_EQ(sh("cupsdisable kps-script"), 0);
  job = submit("kps-script");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -2);
}

TEST_F(CupsPrinterTest, PrintedPageHasThePictureAtItsSizeTopLeft) {
  const std::string picture = dir.file("photo.jpg");
  ASSERT_TRUE(writeTestJpeg(picture, 400, 600));
  jobWaitTiming().limitMs = 30000;
  ASSERT_EQ(manager.PrintImage(L"virtual", utf8ToWide(picture), "postcards"), 0);

  std::string kept;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(cups->keptDocumentsDir()))
    if (entry.is_regular_file() && entry.path().extension() == ".pdf") kept = entry.path().string();
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

}  // namespace
}  // namespace kps
