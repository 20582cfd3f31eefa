// PrinterManager on CUPS: destinations for printers, the queue's own defaults for the device
// mode, a cairo-rendered PDF page for the GDI+ drawing, IPP job attributes for the job status.
#include <cups/cups.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <iostream>
#include <memory>
#include <thread>

#include "base/Log.h"
#include "pictures/Picture.h"
#include "printer/cups/CupsHandles.h"
#include "printer/cups/CupsRequests.h"
#include "printer/cups/CupsTables.h"
#include "printer/cups/Page.h"
#include "printer/cups/QueueMedia.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"

namespace kps {

namespace {

struct Dests {
  int count = 0;
  cups_dest_t* list = nullptr;
  Dests() { count = cupsGetDests2(CUPS_HTTP_DEFAULT, &list); }
  ~Dests() { cupsFreeDests(count, list); }
  Dests(const Dests&) = delete;
  Dests& operator=(const Dests&) = delete;
};

std::string option(const cups_dest_t* dest, const char* name) {
  const char* value = cupsGetOption(name, dest->num_options, dest->options);
  return value ? value : "";
}

// What a copy of this product type asks the queue for. Empty, with one line naming what is
// wrong, when the queue lacks the paper (or a number has no CUPS name): then nothing is printed
// rather than something on other paper.
std::optional<CopyMedia> mediaForCopy(cups_dest_t* dest, cups_dinfo_t* info, std::int32_t paper) {
  const std::int32_t bin = PrinterSettings.rearfeeder;
  CopyMedia media = copyMediaFor(dest, info, paper, bin, 326);
  const auto complain = [](const char* what, std::int32_t number) {
    std::cerr << "No CUPS name for " << what << static_cast<std::int16_t>(number)
              << " of config.ini (see the README's paper table)" << std::endl;
  };
  if (!media.paper) {
    complain("paper size ", paper);
    return std::nullopt;
  }
  // Where the driver has trays, the configured one must have a CUPS name.
  if (media.source.sent() && !media.source.name) {
    complain("paper source ", bin);
    return std::nullopt;
  }
  if (media.paper->found == QueuePaper::Found::None) {
    std::string offers;
    for (const QueueSize& size : media.paper->offers) offers += (offers.empty() ? "" : ", ") + size.label();
    logLine(KPS_TAG_PRINTER, __LINE__,
            ("paper size " + std::to_string(static_cast<std::int16_t>(paper)) + " (" + media.paper->wanted + ", " +
             media.paper->wantedSize + ") is not offered by " + dest->name + "; it offers: ").c_str(),
            offers);
    return std::nullopt;
  }
  return media;
}

// The tray and the media type a job names: only where the driver has such a choice.
const std::string* sentOption(const MediaOption& option) {
  return option.sent() && option.name ? &*option.name : nullptr;
}

// The job's own media: printers take it from the job, not from the queue's defaults. A size
// of the queue's standard names goes by its size, with the tray and type (an IPP printer reads
// them there); a driver's own size by its name, which alone tells it from others as large.
int addJobMedia(const CopyMedia& media, int count, cups_option_t** options) {
  const QueuePaper& paper = *media.paper;
  const std::string* source = sentOption(media.source);
  const std::string* type = sentOption(media.type);
  if (paper.found != QueuePaper::Found::Exact) {
    count = cupsAddOption("media", paper.paper.name.c_str(), count, options);
    if (source) count = cupsAddOption("media-source", source->c_str(), count, options);
    if (type) count = cupsAddOption("media-type", type->c_str(), count, options);
    return count;
  }
  std::string col = "{media-size={x-dimension=" + std::to_string(paper.paper.size.width) +
                    " y-dimension=" + std::to_string(paper.paper.size.length) + "}";
  if (source) col += " media-source=" + *source;
  if (type) col += " media-type=" + *type;
  return cupsAddOption("media-col", (col + "}").c_str(), count, options);
}

}  // namespace

std::vector<std::wstring> PrinterManager::EnumeratePrinters() {
  bool failed = false;
  const std::vector<Queue> queues = schedulerQueues(failed);
  std::vector<std::wstring> names;
  if (queues.empty()) {
    if (failed)
      std::cerr << "Failed to enumerate printers. Error: " << cupsLastError() << std::endl;
    else
      std::cerr << "No printers found." << std::endl;
    return names;
  }
  // A stopped queue, or one refusing jobs, is what a printer working offline is on Windows.
  for (const Queue& queue : queues)
    if (queue.usable) names.push_back(utf8ToWide(queue.name));
  return names;
}

bool PrinterManager::SelectPrinter(const std::wstring& target, std::wstring& fullName) {
  const std::wstring found = FindPrinter(target);
  if (found.empty()) {
    wideErr(L"Target printer not found: " + target);
    return false;
  }
  const std::string name = wideToUtf8(found);
  Dests dests;
  bool matched = false;
  for (int i = 0; i < dests.count; ++i) {
    dests.list[i].is_default = !dests.list[i].instance && name == dests.list[i].name;
    matched = matched || dests.list[i].is_default;
  }
  if (!matched || cupsSetDests2(CUPS_HTTP_DEFAULT, dests.count, dests.list) != 0) {
    wideErr(L"Failed to set default printer. Error: " + std::to_wstring(cupsLastError()));
    return false;
  }
  wideOut(L"Default printer set to: " + found);
  fullName = found;
  return true;
}

void PrinterManager::ListInstalledPrinters() {
  bool failed = false;
  const std::vector<Queue> queues = schedulerQueues(failed);
  if (failed) {
    wideErr(L"Failed to enumerate printers.");
    return;
  }
  std::string text = "Installed printers:\n";
  for (const Queue& queue : queues) text += queue.name + "\n";
  std::cout << text << std::flush;
}

std::vector<InstalledPrinter> PrinterManager::InstalledPrinters(bool& failed) {
  std::vector<InstalledPrinter> printers;
  for (const Queue& queue : schedulerQueues(failed))
    printers.push_back(InstalledPrinter{utf8ToWide(queue.name), queue.usable, queue.state});
  return printers;
}

std::int32_t PrinterManager::SetPrintParams(const std::wstring& printerName,
                                            const std::string& type) {
  const auto paper = paperSizeFor(type, PrinterSettings);
  if (!paper) {
    std::cout << "printer type error" << std::endl;
    return -1;
  }
  const std::string name = wideToUtf8(printerName);
  const Dest dest = openDest(name);
  if (!dest) {
    std::cerr << "Unable to open printer: " << std::endl;
    return 1;
  }
  // The configured numbers are the Windows driver's; the queue has its own names for them.
  const DestInfo info(cupsCopyDestInfo(CUPS_HTTP_DEFAULT, dest.get()));
  const auto media = info ? mediaForCopy(dest.get(), info.get(), *paper) : std::nullopt;
  if (!media) return 2;
  std::cout << "pi2->pDevMode->dmDefaultSource  " << option(dest.get(), "media-source") << std::endl;
  std::cout << "pi2->pDevMode->dmMediaType  " << option(dest.get(), "media-type") << std::endl;
  std::cout << "pi2->pDevMode->dmPaperSize  " << option(dest.get(), "media") << std::endl;

  // The queue's own defaults: they last, and every later job takes them, like a device mode.
  ipp_t* request = ippNewRequest(IPP_OP_CUPS_ADD_MODIFY_PRINTER);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr,
               printerUri(name).c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
  // A queue that lists no sizes is given the standard name, as it always was.
  const QueuePaper& chosen = *media->paper;
  const std::string& paperName = chosen.found == QueuePaper::Found::Unknown ? chosen.wanted : chosen.paper.name;
  ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "media-default", nullptr, paperName.c_str());
  if (const std::string* source = sentOption(media->source))
    ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "media-source-default", nullptr, source->c_str());
  if (const std::string* type = sentOption(media->type))
    ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "media-type-default", nullptr, type->c_str());
  ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "sides-default", nullptr, "one-sided");
  ippAddString(request, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "print-color-mode-default", nullptr,
               "color");
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/admin/"));
  if (cupsLastError() > IPP_STATUS_OK_CONFLICTING) {
    std::cerr << "Unable to write the printer defaults: " << cupsLastErrorString() << std::endl;
    return 11;
  }
  return 0;
}

std::int32_t PrinterManager::PrintImage(const std::wstring& printerName, const std::wstring& path,
                                        const std::string& type, CopyJob* copy) {
  std::wstring fullName;
  const auto size = prepareCopy(printerName, type, fullName);
  if (!size) return kPrintNotPrinter;
  PictureHeader header;
  const FilePtr file = openPicture(wideToUtf8(path), header);
  if (!file) return kPrintPictureLoad;

  const std::string name = wideToUtf8(fullName);
  const Dest dest = openDest(name);
  if (!dest) {
    std::cerr << "Unable to open printer" << std::endl;
    return kPrintTimeOut;
  }
  const DestInfo info(cupsCopyDestInfo(CUPS_HTTP_DEFAULT, dest.get()));
  const auto media = info ? mediaForCopy(dest.get(), info.get(), *paperSizeFor(type, PrinterSettings))
                          : std::nullopt;
  if (!media || media->paper->found == QueuePaper::Found::Unknown) {
    // Where Windows could not make the printer's device context: the same -8.
    std::cerr << "Unable to read the printer's media" << std::endl;
    return kPrintDeviceContext;
  }
  const cups_size_t& page = media->paper->paper.size;
  // Only the pixels the printer can put on the drawn rectangle are decoded.
  const Resolution dpi = queueResolution(dest.get(), info.get());
  const auto picture = decodePicture(file.get(), header, pixelsToDecode(header, *size, dpi.x, dpi.y), wideToUtf8(path));
  if (!picture) return kPrintPictureLoad;
  std::int32_t code = kPrintOk;
  const std::string pdf = renderPage(*picture, page, *size, code);
  if (pdf.empty()) return code;

  // Every job says itself what it needs: the queue's defaults do not reach every printer.
  cups_option_t* options = nullptr;
  int count = addJobMedia(*media, 0, &options);
  count = cupsAddOption("sides", "one-sided", count, &options);
  count = cupsAddOption("print-color-mode", "color", count, &options);
  const std::unique_ptr<cups_option_t, std::function<void(cups_option_t*)>> ownedOptions(
      options, [count](cups_option_t* list) { cupsFreeOptions(count, list); });
  int jobId = 0;
  const std::string title = copy ? copy->name : "Print Image";
  if (cupsCreateDestJob(CUPS_HTTP_DEFAULT, dest.get(), info.get(), &jobId, title.c_str(), count, options) >
          IPP_STATUS_OK_CONFLICTING ||
      jobId <= 0)
    return kPrintDocumentStart;
  if (copy && copy->made) copy->made(jobId);  // before the page: a job with a page is always found again
  if (cupsStartDestDocument(CUPS_HTTP_DEFAULT, dest.get(), info.get(), jobId, "Print Image",
                            CUPS_FORMAT_PDF, 0, nullptr, 1) != HTTP_STATUS_CONTINUE ||
      cupsWriteRequestData(CUPS_HTTP_DEFAULT, pdf.data(), pdf.size()) != HTTP_STATUS_CONTINUE ||
      cupsFinishDestDocument(CUPS_HTTP_DEFAULT, dest.get(), info.get()) > IPP_STATUS_OK_CONFLICTING) {
    cupsCancelDestJob(CUPS_HTTP_DEFAULT, dest.get(), jobId);
    return kPrintDocumentStart;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(jobWaitTiming().settleMs));
  return cancelIfTimedOut(WaitForJobCompletion(name.c_str(), jobId, copy), name, jobId,
                          [&]() -> std::string {
                            if (cupsCancelDestJob(CUPS_HTTP_DEFAULT, dest.get(), jobId) == IPP_STATUS_OK)
                              return "";
                            return cupsLastErrorString();
                          });
}

}  // namespace kps
