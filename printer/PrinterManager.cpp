// The platform-neutral members of PrinterManager.
#include "printer/PrinterManager.h"

#include <iostream>

#include "config/PrinterConfig.h"
#include "printer/PrinterSettings.h"

namespace kps {

PrinterSettingsRecord printerSettingsFrom(const PrinterConfigValues& config) {
  PrinterSettingsRecord settings;
  settings.fourWidth = config.FourWidth;
  settings.fourHeight = config.FourHeight;
  settings.threeWidth = config.ThreeWidth;
  settings.threeHeight = config.ThreeHeight;
  settings.rearfeeder = config.Rearfeeder;
  settings.paperffder1 = config.Paperffder1;
  settings.unused = config.unused;
  settings.fourSize = config.FourSize;
  settings.threeSize = config.ThreeSize;
  settings.printerName = config.PrinterName;
  settings.screenId = config.ScreenId;
  settings.environment = config.environment;
  settings.cancelTimedOutJobs = config.TimedOutJobs == "cancel";
  settings.waitForPrinterMinutes = config.WaitForPrinterMinutes > 0 ? config.WaitForPrinterMinutes : 0;
  return settings;
}

void PrinterManager::LoadPrinterSettings() {
  PrinterSettings = printerSettingsFrom(PrinterConfig::instance().load());
  publishPrinterSettings();

  std::cout << "--PrinterConfig.FourHeight--" << PrinterSettings.fourHeight << std::endl;
  std::cout << "--PrinterConfig.PrinterName--" << PrinterSettings.printerName << std::endl;
  std::cout << "--PrinterConfig.ScreenId--" << PrinterSettings.screenId << std::endl;
  std::cout << "--PrinterConfig.Rearfeeder--" << PrinterSettings.rearfeeder << std::endl;
}

}  // namespace kps
