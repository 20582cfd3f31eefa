#include "printer/cups/CupsRequests.h"

#include <iterator>

#include "base/Utf8.h"
#include "printer/PrintDecisions.h"
#include "printer/cups/CupsHandles.h"

namespace kps {

std::string printerUri(const std::string& queue) {
  char uri[1024];
  httpAssembleURIf(HTTP_URI_CODING_ALL, uri, sizeof uri, "ipp", nullptr, "localhost", 0, "/printers/%s", queue.c_str());
  return uri;
}

std::vector<std::string> keywords(ipp_t* response, const char* name) {
  std::vector<std::string> out;
  if (ipp_attribute_t* attr = ippFindAttribute(response, name, IPP_TAG_ZERO))
    for (int i = 0; i < ippGetCount(attr); ++i)
      if (const char* text = ippGetString(attr, i, nullptr)) out.emplace_back(text);
  return out;
}

std::vector<Queue> schedulerQueues(bool& failed) {
  static const char* const wanted[] = {"printer-name", "printer-state", "printer-is-accepting-jobs",
                                       "printer-is-temporary"};
  ipp_t* request = ippNewRequest(IPP_OP_CUPS_GET_PRINTERS);
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(std::size(wanted)), nullptr, wanted);
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
  failed = !response && cupsLastError() != IPP_STATUS_ERROR_NOT_FOUND;
  std::vector<Queue> queues;
  if (!response) return queues;
  Queue queue;
  bool temporary = false;
  const auto flush = [&] {
    if (!queue.name.empty() && !temporary) queues.push_back(queue);
    queue = Queue{};
    temporary = false;
  };
  for (ipp_attribute_t* attr = ippFirstAttribute(response.get()); attr; attr = ippNextAttribute(response.get())) {
    if (ippGetGroupTag(attr) != IPP_TAG_PRINTER) {  // the separator between two printers
      flush();
      continue;
    }
    const std::string name = ippGetName(attr) ? ippGetName(attr) : "";
    if (name == "printer-name") queue.name = ippGetString(attr, 0, nullptr);
    if (name == "printer-state" && ippGetInteger(attr, 0) == IPP_PSTATE_STOPPED) {
      queue.usable = false;
      queue.state = "is stopped";
    }
    if (name == "printer-is-accepting-jobs" && !ippGetBoolean(attr, 0)) {
      queue.usable = false;
      if (queue.state.empty()) queue.state = "refuses jobs";
    }
    if (name == "printer-is-temporary") temporary = ippGetBoolean(attr, 0) != 0;
  }
  flush();
  return queues;
}

std::string queueFor(const std::wstring& target) {
  bool failed = false;
  std::vector<std::wstring> names;
  for (const Queue& queue : schedulerQueues(failed)) names.push_back(utf8ToWide(queue.name));
  return wideToUtf8(matchPrinter(names, target));
}

PrinterAnswer askPrinter(const std::string& queue) {
  // Never `all`: CUPS 2.4 answers printer-supply-description twice.
  static const char* const wanted[] = {"printer-state",     "printer-state-reasons", "printer-state-message",
                                       "printer-is-accepting-jobs", "marker-names", "marker-levels",
                                       "marker-low-levels", "marker-high-levels", "marker-message"};
  ipp_t* request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, printerUri(queue).c_str());
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(std::size(wanted)), nullptr, wanted);
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
  PrinterAnswer answer;
  if (!response || cupsLastError() > IPP_STATUS_OK_CONFLICTING) return answer;
  answer.answered = true;
  if (ipp_attribute_t* attr = ippFindAttribute(response.get(), "printer-state", IPP_TAG_ENUM))
    answer.state = static_cast<ipp_pstate_t>(ippGetInteger(attr, 0));
  answer.reasons = keywords(response.get(), "printer-state-reasons");
  if (ipp_attribute_t* attr = ippFindAttribute(response.get(), "printer-is-accepting-jobs", IPP_TAG_BOOLEAN))
    answer.accepting = ippGetBoolean(attr, 0) != 0;
  const auto message = keywords(response.get(), "printer-state-message");
  if (!message.empty()) answer.message = message.front();
  answer.markerNames = keywords(response.get(), "marker-names");
  const auto integers = [&](const char* name) {
    std::vector<int> values;
    if (ipp_attribute_t* attr = ippFindAttribute(response.get(), name, IPP_TAG_INTEGER))
      for (int i = 0; i < ippGetCount(attr); ++i) values.push_back(ippGetInteger(attr, i));
    return values;
  };
  answer.markerLevels = integers("marker-levels");
  answer.markerLowLevels = integers("marker-low-levels");
  answer.markerHighLevels = integers("marker-high-levels");
  const auto markerMessage = keywords(response.get(), "marker-message");
  if (!markerMessage.empty()) answer.markerMessage = markerMessage.front();
  return answer;
}

std::string jobUri(int jobId) { return "ipp://localhost/jobs/" + std::to_string(jobId); }

std::string queueOperation(ipp_op_t operation, const std::string& queue, int jobId) {
  ipp_t* request = ippNewRequest(operation);
  if (jobId > 0)
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, jobUri(jobId).c_str());
  else
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, printerUri(queue).c_str());
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, cupsUser());
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, jobId > 0 ? "/jobs/" : "/admin/"));
  return cupsLastError() > IPP_STATUS_OK_CONFLICTING ? cupsLastErrorString() : "";
}

}  // namespace kps
