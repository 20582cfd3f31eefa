// One copy of the print run: its job made and followed, found again after a stop, and, with
// [WaitForPrinter], left waiting for a person at the printer rather than failed.
#include "base/Log.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "store/Database.h"
#include "store/PrinterWait.h"

namespace kps {

std::int32_t Database::makeCopy(const OrderToPrint& order, std::int32_t copy, const CopyRecord* record) {
  PrinterWait& wait = *printerWait_;
  const std::int32_t minutes = PrinterSettings.waitForPrinterMinutes;
  const std::wstring printer = utf8ToWide(PrinterSettings.printerName);
  CopyJob job;
  job.name = record ? record->name : copyJobName(order.uuid, copy, order.realNumber);
  job.waitForPerson = minutes > 0;
  job.quietMs = wait.quietMs(order.uuid, copy);
  job.made = [&](std::int32_t id) { recordJobId(order.uuid, copy, id); };
  std::int32_t code = kPrintNoJob;
  // A job was made for it (or was being made when the service stopped): followed, not made again.
  if (record && record->jobId) {
    job.jobId = *record->jobId;
    PrinterManager manager;
    code = manager.FollowJob(printer, job);
  }
  if (code == kPrintNoJob) {
    if (minutes > 0) {
      PrinterManager manager;
      const PrinterState state = manager.ReadPrinterState(printer);
      // Waiting, or given up: either way no job is made.
      if (state.blocksNewJob()) return waitOrGiveUp(state, nullptr);
      // Seen ready: a wait that ran out ends here, whatever this copy comes to, so that the
      // printer's next need is waited for again.
      wait.back();
    }
    recordJobId(order.uuid, copy, 0);  // being made: found by its name if the service stops now
    code = printImage(PrinterSettings.printerName, order.path, order.type, &job);
  }
  if (code == kPrintWaiting) code = waitOrGiveUp(job.seen, &job);
  if (code == kPrintWaiting) {
    wait.quietMs(order.uuid, copy) = job.quietMs;
    return code;
  }
  wait.forget(order.uuid, copy);
  if (code == kPrintOk && minutes > 0) wait.back();
  return code;
}

std::int32_t Database::waitOrGiveUp(const PrinterState& state, const CopyJob* job) {
  PrinterWait& wait = *printerWait_;
  const std::int32_t minutes = PrinterSettings.waitForPrinterMinutes;
  const std::wstring printer = utf8ToWide(PrinterSettings.printerName);
  PrinterManager manager;
  if (wait.needsPerson(state, minutes)) {
    // A driver that stopped its queue, or held its job, looks at the printer again only when
    // given them back: after a refill nobody has to do it by hand. An operator's pause stays.
    if (state.has(Condition::StoppedByDriver) && wait.resumeDue()) {
      manager.ResumePrinter(printer);
      if (job && job->jobId > 0) manager.ReleaseJob(printer, job->jobId);
    }
    return kPrintWaiting;
  }
  // Waited long enough: the copy fails as it would have without waiting, and nothing of it
  // comes out later.
  if (job && job->jobId > 0) {
    const std::string failure = manager.CancelJob(printer, job->jobId);
    logLine(KPS_TAG_DATABASE, __LINE__, "printer needed a person too long, its job cancelled: ",
            job->name + (failure.empty() ? "" : " (the spooler refused: " + failure + ")"));
  }
  if (job) return job->fault != 0 ? job->fault : -7;
  return codeWithoutWaiting(state);
}

}  // namespace kps
