// What a CUPS queue does with the configured numbers, as --check and --test-page report it:
// read from the copy's own media choice, so that what they say is what a copy gets.
#include <cups/cups.h>

#include <algorithm>
#include <cstdint>

#include "printer/cups/CupsHandles.h"
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

DriverChoice optionChoice(const MediaOption& option, std::int32_t number) {
  DriverChoice choice;
  choice.known = true;
  choice.offers = option.offers;
  choice.hasChoice = option.sent();
  choice.named = option.name.has_value();
  choice.configured = std::to_string(static_cast<std::int16_t>(number)) + (option.name ? " (" + *option.name + ")" : "");
  choice.offered = option.name && std::count(option.offers.begin(), option.offers.end(), *option.name) > 0;
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
  if (found->found == QueuePaper::Found::Driver) {
    choice.uses = found->paper.label();
    choice.cutOrComposite = found->paper.cutOrComposite();
  }
  for (const QueueSize& size : found->offers) choice.offers.push_back(size.label());
  if (found->offers.empty()) choice.offers = queueChoices(queue.dest.get(), queue.info.get(), CUPS_MEDIA);
  return choice;
}

DriverChoice PrinterManager::SourceChoice(const std::wstring& printerName, std::int32_t bin) {
  const QueueInfo queue(printerName);
  if (!queue) return DriverChoice{};
  return optionChoice(mediaSourceFor(queue.dest.get(), queue.info.get(), bin), bin);
}

DriverChoice PrinterManager::MediaTypeChoice(const std::wstring& printerName, std::int32_t mediaType) {
  const QueueInfo queue(printerName);
  if (!queue) return DriverChoice{};
  return optionChoice(mediaTypeFor(queue.dest.get(), queue.info.get(), mediaType), mediaType);
}

}  // namespace kps
