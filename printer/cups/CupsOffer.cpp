// What a CUPS queue offers for the configured paper numbers: its supported media and sources,
// and the configured Windows numbers named through the same table the jobs use.
#include <cups/cups.h>

#include <cstdint>
#include <memory>

#include "printer/PrinterManager.h"
#include "printer/cups/CupsTables.h"

namespace kps {

namespace {

std::vector<std::string> supported(cups_dest_t* dest, cups_dinfo_t* info, const char* option) {
  std::vector<std::string> values;
  if (ipp_attribute_t* attr = cupsFindDestSupported(CUPS_HTTP_DEFAULT, dest, info, option))
    for (int i = 0; i < ippGetCount(attr); ++i)
      if (const char* value = ippGetString(attr, i, nullptr)) values.emplace_back(value);
  return values;
}

}  // namespace

DriverOffer PrinterManager::OfferedMedia(const std::wstring& printerName) {
  DriverOffer offer;
  const std::unique_ptr<cups_dest_t, void (*)(cups_dest_t*)> dest(
      cupsGetNamedDest(CUPS_HTTP_DEFAULT, wideToUtf8(printerName).c_str(), nullptr),
      [](cups_dest_t* d) { cupsFreeDests(1, d); });
  if (!dest) return offer;
  const std::unique_ptr<cups_dinfo_t, void (*)(cups_dinfo_t*)> info(
      cupsCopyDestInfo(CUPS_HTTP_DEFAULT, dest.get()), cupsFreeDestInfo);
  if (!info) return offer;
  offer.known = true;
  offer.papers = supported(dest.get(), info.get(), CUPS_MEDIA);
  offer.sources = supported(dest.get(), info.get(), CUPS_MEDIA_SOURCE);
  return offer;
}

// The jobs store the numbers in the driver's 16-bit fields first; so are they named here.
std::optional<std::string> PrinterManager::PaperName(std::int32_t paper) {
  return pwgMediaForPaper(static_cast<std::int16_t>(paper));
}

std::optional<std::string> PrinterManager::SourceName(std::int32_t bin) {
  return pwgSourceForBin(static_cast<std::int16_t>(bin));
}

}  // namespace kps
