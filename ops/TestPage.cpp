// `--test-page TYPE`: one copy of a calibration picture, printed exactly as an order's copy is
// (printer made the default, its settings written for the type, the page drawn at the type's
// size, the job waited on), so the person on site sees whether picture and paper agree.
// Nothing is stored.
#include <cmath>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "base/FilePath.h"
#include "base/Utf8.h"
#include "ops/CalibrationPicture.h"
#include "ops/Commands.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"

namespace kps::ops {

int runTestPage(const std::string& type, std::ostream& out) {
  try {
    PrinterManager().LoadPrinterSettings();
  } catch (const std::exception& error) {
    std::cerr << "config.ini: " << error.what() << std::endl;
    return 1;
  }
  const bool four = type == "postcards" || type == "frames" || type == "cardsets";
  if (!four && type != "fridgemagnets") {
    std::cerr << "unknown product type: " << type << " (postcards, frames, cardsets, fridgemagnets)" << std::endl;
    return 2;
  }
  const std::int32_t width = four ? PrinterSettings.fourWidth : PrinterSettings.threeWidth;
  const std::int32_t height = four ? PrinterSettings.fourHeight : PrinterSettings.threeHeight;
  // The size the page shows is the size it is drawn at: width x 3.7 by height x 3.8 hundredths
  // of an inch, in millimetres.
  const auto drawn = pictureSizeFor(type, PrinterSettings);
  const std::string size = std::to_string(std::lround(drawn->width * 0.254)) + " x " +
                           std::to_string(std::lround(drawn->height * 0.254)) + " mm";
  std::error_code ignored;
  const std::filesystem::path picture =
      std::filesystem::temp_directory_path(ignored) / ("kiosk-print-service-test-page-" + type + ".bmp");
  if (!writeCalibrationPicture(fromPath(picture), width, height, size)) {
    std::cerr << "cannot write the calibration picture " << fromPath(picture) << std::endl;
    return 1;
  }
  // The paper the copy asks for, as the driver names it where it has its own name for it.
  PrinterManager manager;
  const DriverChoice paper =
      manager.PaperChoice(manager.FindPrinter(utf8ToWide(PrinterSettings.printerName)), *paperSizeFor(type, PrinterSettings));
  const std::string on = paper.uses.empty() ? "paper size " + paper.configured : "the driver's " + paper.uses;
  const std::int32_t code = Database::printImage(PrinterSettings.printerName, fromPath(picture), type);
  std::filesystem::remove(picture, ignored);
  const std::string name = Database::printResultName(code);
  out << "test page " << type << " (" << width << " x " << height << ", drawn " << size << ") on " << on << ": result " << code
      << (code == 0 ? " (printed)" : " (" + (name.empty() ? std::string("no failReason") : name) + ")")
      << std::endl;
  return code == 0 ? 0 : 1;
}

}  // namespace kps::ops
