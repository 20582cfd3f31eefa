#include "src/ServiceFiles.h"

#include "printer/PrinterSettings.h"
#include "src/FilePath.h"

namespace kps {

OwnFiles serviceOwnFiles() {
  return OwnFiles(workingDirectory(), PrinterSettings.logFolder, PrinterSettings.statusFile);
}

}  // namespace kps
