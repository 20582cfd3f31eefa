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
#include "tests/support/TestPictures.h"

namespace kps {
namespace {

PrivateCups* cups = nullptr;

class CupsEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { cups = new PrivateCups; }
  void TearDown() override {
    delete cups;
    cups = nullptr;
  }
};
const auto* environment = ::testing::AddGlobalTestEnvironment(new CupsEnvironment);

int jobIdOf(const std::string& lpOutput) {
  std::smatch match;
  return std::regex_search(lpOutput, match, std::regex(R"(request id is \S+-(\d+))"))
             ? std::stoi(match[1].str())
             : -1;
}

class CupsPrinterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_ = jobWaitTiming();
    jobWaitTiming() = JobWaitTiming{50, 100, 3000};
    PrinterSettings = PrinterSettingsRecord{};
    PrinterSettings.fourWidth = 100;
    PrinterSettings.fourHeight = 150;
    PrinterSettings.threeWidth = 80;
    PrinterSettings.threeHeight = 80;
    PrinterSettings.rearfeeder = 7;
    PrinterSettings.fourSize = 256;
    PrinterSettings.threeSize = 258;
    cups->setScriptMode("ok");
  }
  void TearDown() override {
    jobWaitTiming() = saved_;
    cups->tool("cancel -a kps-script");
    cups->tool("cupsenable kps-script");
    cups->tool("cupsaccept kps-file");
    cups->tool("cupsenable kps-file");
    // A backend's printer-state-reasons outlive its job; the next job's backend clears them.
    cups->setScriptMode("ok");
    const std::string id = "kps-script-" + std::to_string(submit("kps-script")) + " ";
    for (int i = 0; i < 100; ++i) {
      if (cups->output("lpstat -W completed -o kps-script").find(id) != std::string::npos) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  // Submits a tiny job with lp and returns its id.
  int submit(const std::string& queue, const std::string& options = "") {
    const std::string file = dir.write("job.txt", "page\n");
    return jobIdOf(cups->output("lp -d " + queue + " " + options + " " + file + " 2>&1"));
  }

  TempDir dir;
  PrinterManager manager;

 private:
  JobWaitTiming saved_;
};

TEST_F(CupsPrinterTest, TheSchedulersQueuesInItsOrderWithoutStoppedOrRefusingOnes) {
  EXPECT_EQ(manager.EnumeratePrinters(),
            (std::vector<std::wstring>{L"kps-file", L"kps-script", L"kps-virtual"}));
  for (const char* offline : {"cupsdisable kps-file", "cupsreject kps-file"}) {
    ASSERT_EQ(cups->tool(offline), 0);
    EXPECT_EQ(manager.EnumeratePrinters(), (std::vector<std::wstring>{L"kps-script", L"kps-virtual"}))
        << offline;
    EXPECT_EQ(manager.FindPrinter(L"file"), L"") << offline;
    cups->tool("cupsenable kps-file");
    cups->tool("cupsaccept kps-file");
  }
}

TEST_F(CupsPrinterTest, SelectionMakesTheMatchTheDefault) {
  std::wstring full;
  OutputWatcher out;
  ASSERT_TRUE(manager.SelectPrinter(L"virtual", full));
  EXPECT_EQ(full, L"kps-virtual");
  EXPECT_NE(out.text().find("Default printer set to: kps-virtual\n"), std::string::npos);
  cups_dest_t* dest = cupsGetNamedDest(CUPS_HTTP_DEFAULT, nullptr, nullptr);
  ASSERT_NE(dest, nullptr);
  EXPECT_STREQ(dest->name, "kps-virtual");
  cupsFreeDests(1, dest);

  testing::internal::CaptureStderr();
  EXPECT_FALSE(manager.SelectPrinter(L"no such printer", full));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Target printer not found: no such printer\n");
}

TEST_F(CupsPrinterTest, ParametersBecomeTheQueueDefaults) {
  struct Case {
    const char* type;
    const char* media;
  };
  for (const Case& c : {Case{"postcards", "na_index-4x6_4x6in"}, Case{"cardsets", "oe_photo-l_3.5x5in"},
                        Case{"fridgemagnets", "oe_photo-l_3.5x5in"}, Case{"frames", "na_index-4x6_4x6in"}}) {
    OutputWatcher out;
    ASSERT_EQ(manager.SetPrintParams(L"kps-virtual", c.type), 0) << c.type;
    cups_dest_t* dest = cupsGetNamedDest(CUPS_HTTP_DEFAULT, "kps-virtual", nullptr);
    ASSERT_NE(dest, nullptr);
    const auto option = [&](const char* name) {
      const char* value = cupsGetOption(name, dest->num_options, dest->options);
      return std::string(value ? value : "");
    };
    EXPECT_EQ(option("media"), c.media) << c.type;
    EXPECT_EQ(option("media-source"), "auto");
    EXPECT_EQ(option("media-type"), "photographic-glossy");
    EXPECT_EQ(option("sides"), "one-sided");
    EXPECT_EQ(option("print-color-mode"), "color");
    cupsFreeDests(1, dest);
    EXPECT_NE(out.text().find("pi2->pDevMode->dmPaperSize  "), std::string::npos);
  }
}

TEST_F(CupsPrinterTest, ParameterFailuresKeepTheirCodes) {
  OutputWatcher out;
  EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "Postcards"), -1);
  EXPECT_NE(out.text().find("printer type error\n"), std::string::npos);
  testing::internal::CaptureStderr();
  EXPECT_EQ(manager.SetPrintParams(L"kps-missing", "postcards"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to open printer: \n");
  PrinterSettings.fourSize = 4242;
  testing::internal::CaptureStderr();
  EXPECT_EQ(manager.SetPrintParams(L"kps-virtual", "postcards"), 2);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("paper size 4242"), std::string::npos);
}

TEST_F(CupsPrinterTest, JobStatesMapToResultCodes) {
  // Held.
  int job = submit("kps-script", "-H indefinite");
  ASSERT_GT(job, 0);
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -4);
  ASSERT_EQ(cups->tool("cancel kps-script-" + std::to_string(job)), 0);
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
  // Media empty.
  cups->setScriptMode("media-empty");
  job = submit("kps-script");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -3);
  cups->tool("cancel -a kps-script");
  // A stopped queue.
  cups->setScriptMode("ok");
  ASSERT_EQ(cups->tool("cupsdisable kps-script"), 0);
  job = submit("kps-script");
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -2);
}

TEST_F(CupsPrinterTest, JobThatNeverFinishesTimesOutAndStaysQueued) {
  cups->setScriptMode("hang");
  const int job = submit("kps-script");
  OutputWatcher out;
  EXPECT_EQ(manager.WaitForJobCompletion("kps-script", job), -7);
  EXPECT_NE(out.text().find("] WaitForJobCompletion timed out.\n"), std::string::npos);
  EXPECT_NE(cups->output("lpstat -o kps-script").find("kps-script-" + std::to_string(job)),
            std::string::npos);
}

TEST_F(CupsPrinterTest, PrintImageFailuresBeforeTheJob) {
  OutputWatcher out;
  testing::internal::CaptureStderr();
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", L"/x.jpg", "poster"), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "printer type error\n");
  EXPECT_EQ(out.text().find("Default printer set to"), std::string::npos);  // no printer call

  EXPECT_EQ(manager.PrintImage(L"kps-virtual", utf8ToWide(dir.file("missing.jpg")), "postcards"), -6);
  EXPECT_NE(out.text().find("Default printer set to: kps-virtual"), std::string::npos);

  const std::string broken = dir.write("broken.jpg", std::string("\xFF\xD8\xFF\xE0", 4) + "junk");
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", utf8ToWide(broken), "postcards"), -6);
  const std::string text = dir.write("text.jpg", "just text");
  EXPECT_EQ(manager.PrintImage(L"kps-virtual", utf8ToWide(text), "postcards"), -6);
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
  const std::string attributes = cups->output("cat " + kept + ".attrs");
  for (const char* line : {"IPP_MEDIA_COL={media-size={x-dimension=10160 y-dimension=15240} ",
                           "media-source=auto ", "media-type=photographic-glossy}",
                           "\nIPP_SIDES=one-sided\n", "\nIPP_PRINT_COLOR_MODE=color\n"})
    EXPECT_NE(attributes.find(line), std::string::npos) << line << "\n" << attributes;
  const std::string info = cups->output("pdfinfo " + kept);
  // 4 x 6 in media: 288 x 432 points.
  EXPECT_NE(info.find("Page size:       288 x 432 pts"), std::string::npos) << info;
  const std::string png = dir.file("page");
  ASSERT_EQ(cups->tool("pdftoppm -r 100 -png -singlefile " + kept + " " + png), 0);
  cairo_surface_t* page = cairo_image_surface_create_from_png((png + ".png").c_str());
  ASSERT_EQ(cairo_surface_status(page), CAIRO_STATUS_SUCCESS);
  const auto pixel = [&](int x, int y) {
    const auto* data = cairo_image_surface_get_data(page);
    const int stride = cairo_image_surface_get_stride(page);
    return *reinterpret_cast<const std::uint32_t*>(data + y * stride + x * 4) & 0xFFFFFF;
  };
  const auto isRed = [](std::uint32_t p) { return (p >> 16) > 200 && ((p >> 8) & 0xFF) < 60 && (p & 0xFF) < 60; };
  const auto isBlue = [](std::uint32_t p) { return (p >> 16) < 60 && (p & 0xFF) > 200; };
  const auto isWhite = [](std::uint32_t p) { return p == 0xFFFFFF; };
  // At 100 dpi one pixel is one hundredth of an inch: the picture spans 370 x 570 from the
  // top-left of the printable area (no margins on this media).
  EXPECT_TRUE(isRed(pixel(5, 5)));
  EXPECT_TRUE(isRed(pixel(180, 560)));
  EXPECT_TRUE(isBlue(pixel(190, 5)));
  EXPECT_TRUE(isBlue(pixel(365, 565)));
  EXPECT_TRUE(isWhite(pixel(375, 300)));
  EXPECT_TRUE(isWhite(pixel(200, 575)));
  cairo_surface_destroy(page);
}

}  // namespace
}  // namespace kps
