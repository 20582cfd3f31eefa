// The operator's commands and the parts of `--check`. Each writes its report to `out` and
// returns the process's exit code.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "config/PrinterConfig.h"
#include "ops/CheckReport.h"

namespace kps::ops {

int runCheck(std::ostream& out);
int runTestPage(const std::string& type, std::ostream& out);
int runStatus(std::ostream& out);

// Every setting of ./config.ini as the service would read it; the values when every required
// one converts, nothing otherwise.
std::optional<PrinterConfigValues> checkConfiguration(CheckReport& report);
void checkPrinter(CheckReport& report, const PrinterConfigValues& config);
void checkBackend(CheckReport& report, const PrinterConfigValues& config);
void checkObjectStore(CheckReport& report);
void checkWorkingDirectory(CheckReport& report);

}  // namespace kps::ops
