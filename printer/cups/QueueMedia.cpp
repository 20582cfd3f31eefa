#include "printer/cups/QueueMedia.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "printer/cups/CupsTables.h"
#include "printer/cups/QueuePpd.h"

namespace kps {

namespace {

std::string millimetres(int hundredths) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hundredths / 100.0);
  std::string out = text;
  out.erase(out.find_last_not_of('0') + 1);  // 101.60 -> 101.6, 152.00 -> 152.
  if (out.back() == '.') out.pop_back();
  return out;
}

std::string sizeText(int width, int length) { return millimetres(width) + " x " + millimetres(length) + " mm"; }

}  // namespace

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

std::string QueueSize::label() const {
  return name + " (" + (text.empty() || text == name ? "" : text + ", ") + sizeText(size.width, size.length) + ")";
}

bool QueueSize::cutOrComposite() const {
  // Gutenprint's dye-sublimation drivers name a cut sheet "-divN" ("2x6*2") and a composite page
  // by its parts joined with "_" ("4x4+4x2"); other drivers mark a borderless twin in its name.
  std::string lower = name;
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const char* mark : {"-div", "_", "borderless", "fullbleed", "nomargin", ".fb"})
    if (lower.find(mark) != std::string::npos) return true;
  return text.find('*') != std::string::npos || text.find('+') != std::string::npos;
}

std::vector<QueueSize> queueSizes(cups_dest_t* dest, cups_dinfo_t* info) {
  if (auto own = driverSizes(dest->name)) return *own;
  std::vector<QueueSize> sizes;
  const int count = cupsGetDestMediaCount(CUPS_HTTP_DEFAULT, dest, info, CUPS_MEDIA_FLAGS_DEFAULT);
  for (int i = 0; i < count; ++i) {
    QueueSize size;
    if (!cupsGetDestMediaByIndex(CUPS_HTTP_DEFAULT, dest, info, i, CUPS_MEDIA_FLAGS_DEFAULT, &size.size)) continue;
    size.name = size.size.media;
    sizes.push_back(size);
  }
  return sizes;
}

const QueueSize* sizeFor(const std::vector<QueueSize>& sizes, int width, int length) {
  const QueueSize* best = nullptr;
  long long bestArea = 0;
  for (const QueueSize& size : sizes) {
    // Drivers list a cut or composite twin at the plain page's size, sometimes before it.
    if (best && size.cutOrComposite() && !best->cutOrComposite()) continue;
    const int printableWidth = size.size.width - size.size.left - size.size.right;
    const int printableLength = size.size.length - size.size.top - size.size.bottom;
    // The sizes are rounded to hundredths of a millimetre from points: a hundredth either way
    // is the same paper.
    if (printableWidth < width - 1 || printableLength < length - 1) continue;
    if (printableWidth > width + 2 * kMostOverscan || printableLength > length + 2 * kMostOverscan) continue;
    const long long area = static_cast<long long>(printableWidth) * printableLength;
    const bool plainOverTwin = best && best->cutOrComposite() && !size.cutOrComposite();
    if (!best || plainOverTwin || area < bestArea) best = &size, bestArea = area;
  }
  return best;
}

std::vector<std::string> queueChoices(cups_dest_t* dest, cups_dinfo_t* info, const char* option) {
  std::vector<std::string> values;
  if (ipp_attribute_t* attr = cupsFindDestSupported(CUPS_HTTP_DEFAULT, dest, info, option))
    for (int i = 0; i < ippGetCount(attr); ++i)
      if (const char* value = ippGetString(attr, i, nullptr)) values.emplace_back(value);
  return values;
}

std::optional<QueuePaper> queuePaperFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t paper) {
  const auto wanted = pwgMediaForPaper(static_cast<std::int16_t>(paper));
  const pwg_media_t* size = wanted ? pwgMediaForPWG(wanted->c_str()) : nullptr;
  if (!size) return std::nullopt;
  QueuePaper found;
  found.wanted = *wanted;
  found.wantedSize = sizeText(size->width, size->length);
  // The queue's own standard name first: the size exactly, as IPP printers name it.
  const std::vector<std::string> names = queueChoices(dest, info, CUPS_MEDIA);
  if (std::find(names.begin(), names.end(), *wanted) != names.end() &&
      cupsGetDestMediaByName(CUPS_HTTP_DEFAULT, dest, info, wanted->c_str(), CUPS_MEDIA_FLAGS_DEFAULT,
                             &found.paper.size)) {
    found.found = QueuePaper::Found::Exact;
    found.paper.name = *wanted;
    return found;
  }
  found.offers = queueSizes(dest, info);
  if (found.offers.empty()) return found;  // Unknown
  const QueueSize* chosen = sizeFor(found.offers, size->width, size->length);
  found.found = chosen ? QueuePaper::Found::Driver : QueuePaper::Found::None;
  if (chosen) found.paper = *chosen;
  return found;
}

MediaOption mediaSourceFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t bin) {
  return {queueChoices(dest, info, CUPS_MEDIA_SOURCE), pwgSourceForBin(static_cast<std::int16_t>(bin))};
}

MediaOption mediaTypeFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t mediaType) {
  return {queueChoices(dest, info, CUPS_MEDIA_TYPE), pwgTypeForMedia(mediaType)};
}

CopyMedia copyMediaFor(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t paper, std::int32_t bin,
                       std::int32_t mediaType) {
  return {queuePaperFor(dest, info, paper), mediaSourceFor(dest, info, bin), mediaTypeFor(dest, info, mediaType)};
}

}  // namespace kps
