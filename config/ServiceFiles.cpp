#include "config/ServiceFiles.h"

#include "base/FilePath.h"

namespace kps {

const PrinterConfigValues& startSettings() {
  static const PrinterConfigValues values = readOptionalSettings("./config.ini");
  return values;
}

OwnFiles serviceOwnFiles() {
  return OwnFiles(workingDirectory(), startSettings().LogFolder,
                  {startSettings().StatusFilePath, startSettings().MetricsFilePath});
}

}  // namespace kps
