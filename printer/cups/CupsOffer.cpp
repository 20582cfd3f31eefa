// What a CUPS queue does with the configured numbers: the paper it prints each size on (the
// copy's own choice), and whether its driver has trays and media types to choose from.
#include <cups/cups.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "printer/cups/CupsHandles.h"
#include "printer/cups/CupsTables.h"
#include "printer/cups/QueueMedia.h"
#include "printer/PrinterManager.h"

namespace kps {

namespace {

// The queue and what it says of itself; empty when it cannot be asked.
struct QueueInfo {
  Dest dest;
  DestInfo info;
  explicit QueueInfo(const std::wstring& printer) : dest(openDest(wideToUtf8(printer))) {
    if (dest) info.reset(cupsCopyDestInfo(CUPS_HTTP_DEFAULT, dest.get()));
  }
  explicit operator bool() const { return dest && info; }
};

// A tray or a media type: sent only where the queue has a choice of them.
DriverChoice optionChoice(const std::wstring& printer, const char* option, std::int32_t number,
                          const std::optional<std::string>& name) {
  DriverChoice choice;
  const QueueInfo queue(printer);
  if (!queue) return choice;
  choice.known = true;
  choice.offers = queueChoices(queue.dest.get(), queue.info.get(), option);
  choice.hasChoice = !choice.offers.empty();
  choice.named = name.has_value();
  choice.configured = std::to_string(static_cast<std::int16_t>(number)) + (name ? " (" + *name + ")" : "");
  choice.offered = name && std::count(choice.offers.begin(), choice.offers.end(), *name) > 0;
  return choice;
}

}  // namespace

DriverChoice PrinterManager::PaperChoice(const std::wstring& printerName, std::int32_t paper) {
  DriverChoice choice;
  const QueueInfo queue(printerName);
  if (!queue) return choice;
  choice.known = true;
  choice.required = true;  // the copy fails without it
  const auto found = queuePaperFor(queue.dest.get(), queue.info.get(), paper);
  choice.named = found.has_value();
  choice.configured = std::to_string(static_cast<std::int16_t>(paper)) + (found ? " (" + found->wanted + ")" : "");
  if (!found) return choice;
  if (found->found == QueuePaper::Found::Unknown) choice.known = false;
  choice.offered = found->found == QueuePaper::Found::Exact || found->found == QueuePaper::Found::Driver;
  if (found->found == QueuePaper::Found::Driver) choice.uses = found->paper.label();
  for (const QueueSize& size : found->offers) choice.offers.push_back(size.label());
  if (found->offers.empty()) choice.offers = queueChoices(queue.dest.get(), queue.info.get(), CUPS_MEDIA);
  return choice;
}

DriverChoice PrinterManager::SourceChoice(const std::wstring& printerName, std::int32_t bin) {
  return optionChoice(printerName, CUPS_MEDIA_SOURCE, bin, pwgSourceForBin(static_cast<std::int16_t>(bin)));
}

DriverChoice PrinterManager::MediaTypeChoice(const std::wstring& printerName, std::int32_t mediaType) {
  return optionChoice(printerName, CUPS_MEDIA_TYPE, mediaType, pwgTypeForMedia(mediaType));
}

}  // namespace kps
