// A queue's paper sizes as its driver names them, read from the queue's PPD.
#pragma once

#include <optional>
#include <vector>

#include "printer/cups/QueueMedia.h"

namespace kps {

// Every PageSize of the queue's PPD in the PPD's order, sizes and margins in hundredths of a
// millimetre. Empty when the queue has no PPD (a raw or an IPP-only queue).
std::optional<std::vector<QueueSize>> driverSizes(const char* queue);

}  // namespace kps
