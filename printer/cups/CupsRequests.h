// The scheduler's requests the CUPS layer's files share: queues, a printer's state, a job's.
#pragma once

#include <cups/cups.h>

#include <string>
#include <vector>

#include "printer/cups/CupsTables.h"

namespace kps {

std::string printerUri(const std::string& queue);
// The texts of one attribute of a response, or none.
std::vector<std::string> keywords(ipp_t* response, const char* name);

// A queue of the scheduler itself, as CUPS-Get-Printers lists it (never a network printer
// found on the fly), in the scheduler's order.
struct Queue {
  std::string name;
  bool usable = true;  // running and accepting jobs: what a printer not working offline is
  std::string state;   // why not
};
// Empty with `failed` set when the scheduler cannot be asked; empty alone when it has no queue.
std::vector<Queue> schedulerQueues(bool& failed);
// The queue the configured name selects by the service's rule, among every queue (a stopped one
// too); "" when none.
std::string queueFor(const std::wstring& target);

// One Get-Printer-Attributes with a fixed list: never `all`, whose answer grows with every
// attribute a driver adds.
struct PrinterAnswer {
  bool answered = false;
  ipp_pstate_t state = IPP_PSTATE_IDLE;
  std::vector<std::string> reasons;
  bool accepting = true;
  std::string message;
  std::vector<std::string> markerNames;
  std::vector<int> markerLevels, markerLowLevels, markerHighLevels;
  std::string markerMessage;
};
PrinterAnswer askPrinter(const std::string& queue);

std::string jobUri(int jobId);
// An operation on a queue, or on a job (by its id, whatever its queue), as the user the service
// runs as; "" when the scheduler did it, else its words.
std::string queueOperation(ipp_op_t operation, const std::string& queue, int jobId = 0);

}  // namespace kps
