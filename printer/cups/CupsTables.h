// What the Windows numbers of the configuration mean to CUPS, and what a CUPS job's state
// means to the print run. One table each.
#pragma once

#include <cups/cups.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "printer/PrintDecisions.h"

namespace kps {

// PWG media name for a Windows paper number (DMPAPER_*, plus the kiosk driver's photo sizes).
std::optional<std::string> pwgMediaForPaper(std::int32_t paper);
// PWG media-source keyword for a Windows bin number (DMBIN_*).
std::optional<std::string> pwgSourceForBin(std::int32_t bin);
// PWG media-type keyword for a Windows media type number.
std::optional<std::string> pwgTypeForMedia(std::int32_t mediaType);

struct CupsJobView {
  bool known = true;  // false: the scheduler no longer knows the job
  ipp_jstate_t state = IPP_JSTATE_PENDING;
  std::vector<std::string> jobReasons;
  ipp_pstate_t printerState = IPP_PSTATE_IDLE;
  bool printerAccepting = true;
  std::vector<std::string> printerReasons;
};

// What a look at the job says: its end, the code its printer's state gives, and the printer's
// condition with the job's own (a held job).
JobLook lookFromCupsJob(const CupsJobView& job);

}  // namespace kps
