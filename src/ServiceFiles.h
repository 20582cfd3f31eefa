// This process's own files: its working directory and the files its settings name.
#pragma once

#include "src/OwnFiles.h"

namespace kps {

// From the working directory and the published settings (PrinterSettings).
OwnFiles serviceOwnFiles();

}  // namespace kps
