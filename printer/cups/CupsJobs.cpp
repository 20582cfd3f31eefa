// PrinterManager on CUPS, a copy's job: followed until it ends, found again by its id or its
// name after a restart, cancelled, released.
#include <cups/cups.h>

#include <iostream>
#include <iterator>
#include <optional>

#include "base/Log.h"
#include "printer/PrinterManager.h"
#include "printer/cups/CupsHandles.h"
#include "printer/cups/CupsRequests.h"

namespace kps {

namespace {

bool ended(ipp_jstate_t state) { return state >= IPP_JSTATE_STOPPED; }

// A job as the scheduler knows it, in its queue or its history.
struct KnownJob {
  int id = 0;
  ipp_jstate_t state = IPP_JSTATE_PENDING;
  std::string name;
  std::string queue;
};

const char* const kJobAttributes[] = {"job-id", "job-state", "job-name", "job-printer-uri"};

// The jobs of one response, each a group of its own.
std::vector<KnownJob> jobsOf(ipp_t* response) {
  std::vector<KnownJob> jobs;
  KnownJob job;
  const auto flush = [&] {
    if (job.id > 0) jobs.push_back(job);
    job = KnownJob{};
  };
  for (ipp_attribute_t* attr = ippFirstAttribute(response); attr; attr = ippNextAttribute(response)) {
    if (ippGetGroupTag(attr) != IPP_TAG_JOB) {
      flush();
      continue;
    }
    const std::string name = ippGetName(attr) ? ippGetName(attr) : "";
    if (name == "job-id") job.id = ippGetInteger(attr, 0);
    if (name == "job-state") job.state = static_cast<ipp_jstate_t>(ippGetInteger(attr, 0));
    if (name == "job-name" && ippGetString(attr, 0, nullptr)) job.name = ippGetString(attr, 0, nullptr);
    if (name == "job-printer-uri" && ippGetString(attr, 0, nullptr)) {
      const std::string uri = ippGetString(attr, 0, nullptr);
      job.queue = uri.substr(uri.find_last_of('/') + 1);
    }
  }
  flush();
  return jobs;
}

std::optional<KnownJob> jobById(int id) {
  ipp_t* request = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, jobUri(id).c_str());
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(std::size(kJobAttributes)), nullptr, kJobAttributes);
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
  if (!response || cupsLastError() > IPP_STATUS_OK_CONFLICTING) return std::nullopt;
  const auto jobs = jobsOf(response.get());
  if (jobs.empty()) return std::nullopt;
  return jobs.front();
}

// The newest job of that name in any queue or in the scheduler's history.
std::optional<KnownJob> jobByName(const std::string& name) {
  ipp_t* request = ippNewRequest(IPP_OP_GET_JOBS);
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, "ipp://localhost/");
  ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr, "all");
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                static_cast<int>(std::size(kJobAttributes)), nullptr, kJobAttributes);
  Ipp response(cupsDoRequest(CUPS_HTTP_DEFAULT, request, "/"));
  std::optional<KnownJob> newest;
  if (!response) return newest;
  for (const KnownJob& job : jobsOf(response.get()))
    if (job.name == name && (!newest || job.id > newest->id)) newest = job;
  return newest;
}

}  // namespace

std::int32_t PrinterManager::WaitForJobCompletion(PrinterHandle printer, std::int32_t jobId, CopyJob* copy) {
  const std::string queue = printer;
  bool unreachable = false;  // said once per wait
  return waitForJob(
      [&]() -> JobLook {
        static const char* const wanted[] = {"job-state", "job-state-reasons"};
        CupsJobView view;
        ipp_t* jobRequest = ippNewRequest(IPP_OP_GET_JOB_ATTRIBUTES);
        ippAddString(jobRequest, IPP_TAG_OPERATION, IPP_TAG_URI, "job-uri", nullptr, jobUri(jobId).c_str());
        ippAddStrings(jobRequest, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes",
                      static_cast<int>(std::size(wanted)), nullptr, wanted);
        Ipp job(cupsDoRequest(CUPS_HTTP_DEFAULT, jobRequest, "/"));
        if (cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND) {
          logLine(KPS_TAG_PRINTER, __LINE__, "GetJob failed: job might have been deleted or finished. Error code:",
                  static_cast<std::uint32_t>(cupsLastError()));
          view.known = false;
        } else if (!job && cupsLastError() == IPP_STATUS_ERROR_SERVICE_UNAVAILABLE) {
          // A scheduler restarting keeps its jobs and runs them again: ask again until the limit.
          if (!unreachable)
            std::cerr << "GetJob: the scheduler cannot be reached, asking again: " << cupsLastErrorString() << std::endl;
          unreachable = true;
          return JobLook{};
        } else if (!job || cupsLastError() > IPP_STATUS_OK_CONFLICTING) {
          std::cerr << "GetJob failed. Error code: " << cupsLastError() << std::endl;
          return JobLook{kPrintNotPrinter, std::nullopt, {}};
        } else {
          view.state = static_cast<ipp_jstate_t>(ippGetInteger(ippFindAttribute(job.get(), "job-state", IPP_TAG_ENUM), 0));
          view.jobReasons = keywords(job.get(), "job-state-reasons");
        }
        const PrinterAnswer state = askPrinter(queue);
        if (state.answered) {
          view.printerState = state.state;
          view.printerReasons = state.reasons;
          view.printerAccepting = state.accepting;
        }
        JobLook look = lookFromCupsJob(view);
        look.printer.known = state.answered;
        look.printer.message = state.message;
        return look;
      },
      systemJobWaitClock(), jobWaitTiming(), copy);
}

std::int32_t PrinterManager::FollowJob(const std::wstring&, CopyJob& copy) {
  std::optional<KnownJob> job;
  if (copy.jobId > 0) job = jobById(copy.jobId);
  if (job && job->name != copy.name) job.reset();  // another job of that number: a scheduler set up anew
  if (!job) job = jobByName(copy.name);
  if (!job) {
    if (copy.jobId <= 0) return kPrintNoJob;
    logLine(KPS_TAG_PRINTER, __LINE__, "job no longer known to the spooler, counted printed: ", copy.name);
    return kPrintOk;
  }
  if (copy.jobId <= 0) {
    // Made, but its id was never recorded: the service stopped before it sent the page.
    if (!ended(job->state)) queueOperation(IPP_OP_CANCEL_JOB, "", job->id);
    return kPrintNoJob;
  }
  copy.jobId = job->id;
  return cancelIfTimedOut(WaitForJobCompletion(job->queue.c_str(), job->id, &copy), job->queue, job->id,
                          [&] { return queueOperation(IPP_OP_CANCEL_JOB, "", job->id); });
}

std::string PrinterManager::CancelJob(const std::wstring&, std::int32_t jobId) {
  return queueOperation(IPP_OP_CANCEL_JOB, "", jobId);
}

bool PrinterManager::ReleaseJob(const std::wstring&, std::int32_t jobId) {
  return queueOperation(IPP_OP_RELEASE_JOB, "", jobId).empty();
}

}  // namespace kps
