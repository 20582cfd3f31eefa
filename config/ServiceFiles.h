// This process's own files and the settings every thread reads alike.
#pragma once

#include "base/OwnFiles.h"
#include "config/PrinterConfig.h"

namespace kps {

// ./config.ini's opt-in sections and its texts, read at the first call and never again. The
// entry point's first process-wide object calls it before any thread runs; the initialisation
// of a function's static is the hand-over to every thread, where the print worker's later
// publication of PrinterSettings is none.
const PrinterConfigValues& startSettings();

// From the working directory and the start settings' log folder, status file and metrics file.
OwnFiles serviceOwnFiles();

}  // namespace kps
