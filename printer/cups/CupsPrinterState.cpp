// PrinterManager on CUPS, the printer's condition: read before a copy, and a queue its driver
// stopped given back to it.
#include "base/Utf8.h"
#include "printer/MediaReport.h"
#include "printer/PrinterManager.h"
#include "printer/cups/CupsRequests.h"

namespace kps {

PrinterState PrinterManager::ReadPrinterState(const std::wstring& printerName) {
  PrinterState state;
  const std::string queue = queueFor(printerName);
  if (queue.empty()) return state;
  const PrinterAnswer answer = askPrinter(queue);
  state.known = answer.answered;
  if (!answer.answered) return state;
  state.name = queue;
  state.conditions = conditionsFromIpp(answer.state, answer.reasons, answer.accepting);
  state.message = answer.message;
  state.current = answer.state != IPP_PSTATE_IDLE;
  state.media = mediaFromMarkers(answer.markerNames, answer.markerLevels, answer.markerLowLevels, answer.markerHighLevels,
                                 answer.markerMessage);
  return state;
}

bool PrinterManager::ResumePrinter(const std::wstring& printerName) {
  const std::string queue = queueFor(printerName);
  return !queue.empty() && queueOperation(IPP_OP_RESUME_PRINTER, queue).empty();
}

}  // namespace kps
