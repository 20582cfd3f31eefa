// One copy from submission to "completed" on the virtual printer behind a private CUPS
// scheduler, next to lp printing the same rendered page to the same queue and waiting for it
// at the same cadence (a 1 s pause, then a query a second).
#include <benchmark/benchmark.h>
#include <cups/cups.h>

#include <chrono>
#include <regex>
#include <thread>

#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "tests/support/PrivateCups.h"
#include "tests/support/Shell.h"

namespace {

kps::PrivateCups& scheduler() {
  static kps::PrivateCups cups;
  return cups;
}

void useKioskSettings() {
  kps::PrinterSettings.fourWidth = 100;
  kps::PrinterSettings.fourHeight = 150;
  kps::PrinterSettings.rearfeeder = 7;
  kps::PrinterSettings.fourSize = 256;
  kps::PrinterSettings.threeSize = 258;
}

void BM_PrintImageCopy(benchmark::State& state) {
  scheduler();
  useKioskSettings();
  kps::TempDir dir;
  kps::writeTestJpeg(dir.file("photo.jpg"), 1200, 1800);
  for (auto _ : state) {
    kps::PrinterManager manager;
    if (manager.PrintImage(L"kps-virtual", kps::utf8ToWide(dir.file("photo.jpg")), "postcards") != 0)
      state.SkipWithError("copy failed");
  }
}

void BM_LpSamePage(benchmark::State& state) {
  auto& cups = scheduler();
  kps::TempDir dir;
  // The page the service rendered last, as kept by the virtual printer.
  std::string page;
  for (const auto& entry : std::filesystem::directory_iterator(cups.keptDocumentsDir()))
    if (entry.path().extension() == ".pdf") page = entry.path().string();
  if (page.empty()) {
    state.SkipWithError("run BM_PrintImageCopy first");
    return;
  }
  for (auto _ : state) {
    std::smatch match;
    const std::string out = kps::output("lp -d kps-virtual -o media=na_index-4x6_4x6in " + page + " 2>&1");
    if (!std::regex_search(out, match, std::regex(R"(kps-virtual-(\d+))"))) {
      state.SkipWithError("lp failed");
      break;
    }
    const std::string id = "kps-virtual-" + match[1].str();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    while (kps::output("lpstat -W completed -o kps-virtual").find(id + " ") == std::string::npos)
      std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  state.SetLabel("reference");
}

}  // namespace

BENCHMARK(BM_PrintImageCopy)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LpSamePage)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();
