#include "printer/cups/QueueMedia.h"

namespace kps {

Resolution queueResolution(cups_dest_t* dest, cups_dinfo_t* info) {
  ipp_attribute_t* attr = cupsFindDestDefault(CUPS_HTTP_DEFAULT, dest, info, "printer-resolution");
  if (!attr || ippGetValueTag(attr) != IPP_TAG_RESOLUTION) return {};
  ipp_res_t units = IPP_RES_PER_INCH;
  int y = 0;
  const int x = ippGetResolution(attr, 0, &y, &units);
  if (x <= 0 || y <= 0) return {};
  const double perInch = units == IPP_RES_PER_CM ? 2.54 : 1.0;
  return {x * perInch, y * perInch};
}

}  // namespace kps
