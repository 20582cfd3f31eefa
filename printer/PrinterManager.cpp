// The platform-neutral members of PrinterManager.
#include "printer/PrinterManager.h"

#include <iostream>

#include "config/PrinterConfig.h"
#include "printer/PrinterSettings.h"

namespace kps {

void PrinterManager::LoadPrinterSettings() {
  const PrinterConfigValues config = PrinterConfig::instance().load();
  PrinterSettings.fourWidth = config.FourWidth;
  PrinterSettings.fourHeight = config.FourHeight;
  PrinterSettings.threeWidth = config.ThreeWidth;
  PrinterSettings.threeHeight = config.ThreeHeight;
  PrinterSettings.rearfeeder = config.Rearfeeder;
  PrinterSettings.paperffder1 = config.Paperffder1;
  PrinterSettings.unused = config.unused;
  PrinterSettings.fourSize = config.FourSize;
  PrinterSettings.threeSize = config.ThreeSize;
  PrinterSettings.printerName = config.PrinterName;
  PrinterSettings.screenId = config.ScreenId;
  PrinterSettings.environment = config.environment;
  PrinterSettings.pictureRetentionDays = config.PictureRetentionDays;

  std::cout << "--PrinterConfig.FourHeight--" << PrinterSettings.fourHeight << std::endl;
  std::cout << "--PrinterConfig.PrinterName--" << PrinterSettings.printerName << std::endl;
  std::cout << "--PrinterConfig.ScreenId--" << PrinterSettings.screenId << std::endl;
  std::cout << "--PrinterConfig.Rearfeeder--" << PrinterSettings.rearfeeder << std::endl;
}

}  // namespace kps
