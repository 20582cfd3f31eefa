// The media a printer has loaded, from what its driver reports: CUPS's marker attributes (a
// dye-sub driver's "37 native prints remaining on 4x6 media"), or the Windows spooler's
// bidirectional consumables.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "printer/PrinterCondition.h"

namespace kps {

// From marker-names, marker-levels, marker-low-levels, marker-high-levels and marker-message
// (the first marker: a photo printer has one, its ribbon and paper together). None when the
// driver reports nothing.
std::optional<MediaReport> mediaFromMarkers(const std::vector<std::string>& names, const std::vector<int>& levels,
                                            const std::vector<int>& lowLevels, const std::vector<int>& highLevels,
                                            const std::string& message);

}  // namespace kps
