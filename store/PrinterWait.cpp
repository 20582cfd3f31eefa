#include "store/PrinterWait.h"

#include "base/Log.h"

namespace kps {

bool PrinterWait::needsPerson(const PrinterState& state, std::int32_t minutes) {
  const auto now = clock();
  if (!since_) since_ = now;
  const std::string what = state.needsPersonText();
  if (what != said_) logLine(KPS_TAG_DATABASE, __LINE__, "printer needs a person: ", what);
  said_ = what;
  return now - *since_ < std::chrono::minutes(minutes);
}

void PrinterWait::back() {
  if (!since_) return;
  logLine(KPS_TAG_DATABASE, __LINE__, "printer is back, printing again");
  since_.reset();
  said_.clear();
  lastResume_.reset();
}

bool PrinterWait::resumeDue() {
  const auto now = clock();
  if (lastResume_ && now - *lastResume_ < std::chrono::minutes(1)) return false;
  lastResume_ = now;
  return true;
}

}  // namespace kps
