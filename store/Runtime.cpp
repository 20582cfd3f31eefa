#include "store/Runtime.h"

namespace kps {

void announceNewOrders(const std::function<void()>& whileLocked) {
  std::lock_guard<std::mutex> lock(newOrderMutex);
  newOrderFlag = true;
  newOrderCondition.notify_all();
  if (whileLocked) whileLocked();
}

void printWorkerCycle(std::unique_lock<std::mutex>& lock, const std::function<void()>& printRun,
                      std::optional<std::chrono::milliseconds> lookAgainAfter) {
  if (lookAgainAfter)
    newOrderCondition.wait_for(lock, *lookAgainAfter, [] { return newOrderFlag; });
  else
    newOrderCondition.wait(lock, [] { return newOrderFlag; });
  // The run happens under the mutex so that an intake cannot signal during it; its signal
  // waits for the run to end and then starts exactly one more.
  printRun();
  newOrderFlag = false;
  lock.unlock();
  lock.lock();
}

}  // namespace kps
