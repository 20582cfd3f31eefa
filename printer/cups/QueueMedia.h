// What a CUPS queue's own attributes say a copy's page must be made for.
#pragma once

#include <cups/cups.h>

namespace kps {

struct Resolution {
  double x = 300, y = 300;  // dots per inch
};

// The queue's default resolution (printer-resolution); 300 dpi where it does not say.
Resolution queueResolution(cups_dest_t* dest, cups_dinfo_t* info);

}  // namespace kps
