#include "printer/cups/CupsTables.h"

#include <algorithm>
#include <map>

namespace kps {

std::optional<std::string> pwgMediaForPaper(std::int32_t paper) {
  static const std::map<std::int32_t, std::string> table = {
      {1, "na_letter_8.5x11in"},        // DMPAPER_LETTER
      {3, "na_ledger_11x17in"},         // DMPAPER_TABLOID
      {5, "na_legal_8.5x14in"},         // DMPAPER_LEGAL
      {7, "na_executive_7.25x10.5in"},  // DMPAPER_EXECUTIVE
      {8, "iso_a3_297x420mm"},          // DMPAPER_A3
      {9, "iso_a4_210x297mm"},          // DMPAPER_A4
      {11, "iso_a5_148x210mm"},         // DMPAPER_A5
      {13, "jis_b5_182x257mm"},         // DMPAPER_B5
      {20, "na_number-10_4.125x9.5in"}, // DMPAPER_ENV_10
      {27, "iso_dl_110x220mm"},         // DMPAPER_ENV_DL
      {43, "jpn_hagaki_100x148mm"},     // DMPAPER_JAPANESE_POSTCARD
      {70, "iso_a6_105x148mm"},         // DMPAPER_A6
      // The kiosk photo driver's own sizes (driver range, from 256).
      {256, "na_index-4x6_4x6in"},
      {257, "na_5x7_5x7in"},
      {258, "oe_photo-l_3.5x5in"},
      {259, "na_govt-letter_8x10in"},
      {260, "na_index-3x5_3x5in"},
  };
  const auto found = table.find(paper);
  if (found == table.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> pwgSourceForBin(std::int32_t bin) {
  static const std::map<std::int32_t, std::string> table = {
      {1, "top"},     {2, "bottom"},  {3, "middle"},         {4, "manual"},
      {5, "envelope"}, {7, "auto"},   {8, "tractor"},        {9, "by-pass-tray"},
      {10, "large-capacity"}, {11, "large-capacity"}, {14, "main"},
      {15, "rear"},  // DMBIN_FORMSOURCE: the rear feeder of the kiosks' photo printers
  };
  const auto found = table.find(bin);
  if (found == table.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> pwgTypeForMedia(std::int32_t mediaType) {
  switch (mediaType) {
    case 1: return "stationery";     // DMMEDIA_STANDARD
    case 2: return "transparency";   // DMMEDIA_TRANSPARENCY
    case 3: return "photographic-glossy";  // DMMEDIA_GLOSSY
    case 326: return "photographic-glossy";  // the kiosk driver's photo paper
    default: return std::nullopt;
  }
}

namespace {

bool has(const std::vector<std::string>& reasons, const std::string& prefix) {
  return std::any_of(reasons.begin(), reasons.end(),
                     [&](const std::string& r) { return r.rfind(prefix, 0) == 0; });
}

}  // namespace

JobLook lookFromCupsJob(const CupsJobView& job) {
  JobLook look;
  look.printer.known = true;
  look.printer.conditions = conditionsFromIpp(job.printerState, job.printerReasons, job.printerAccepting);
  if (job.state == IPP_JSTATE_HELD) addHeldJob(look.printer.conditions);
  if (!job.known || job.state == IPP_JSTATE_COMPLETED) look.ended = 0;
  else if (job.state == IPP_JSTATE_CANCELED || job.state == IPP_JSTATE_ABORTED) look.ended = -1;
  else if (job.state == IPP_JSTATE_STOPPED && has(job.jobReasons, "job-completed-with-errors")) look.ended = -1;
  else if (job.printerState == IPP_PSTATE_STOPPED || has(job.printerReasons, "offline") || has(job.printerReasons, "paused"))
    look.fault = -2;
  else if (has(job.printerReasons, "media-empty") || has(job.printerReasons, "media-needed") ||
           has(job.jobReasons, "media-empty") || has(job.jobReasons, "media-needed"))
    look.fault = -3;
  // A held job waits for someone at the PC, as a paused job does on Windows: until the limit.
  return look;
}

}  // namespace kps
