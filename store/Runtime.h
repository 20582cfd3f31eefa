// The locks and the wake-up hand-off shared by the intake, the print run and the print worker.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

namespace kps {

// Process-wide objects of the entry point's file (tests link their own).
// Held for a whole intake pass and a whole print run, so the two never overlap.
extern std::mutex databaseMutex;
// The wake-up: newOrderFlag is read and written only under newOrderMutex.
extern std::mutex newOrderMutex;
extern std::condition_variable newOrderCondition;
extern bool newOrderFlag;

// Intake side, once per pass that stored orders: under newOrderMutex, set the flag, wake every
// waiter, then run whileLocked (the intake's own log lines).
void announceNewOrders(const std::function<void()>& whileLocked);

// Print worker side, one cycle: wait until the flag is set (or, given `lookAgainAfter`, until
// that much time has passed without it), run printRun with the mutex held, clear the flag, then
// release and re-take the mutex. `lock` must own newOrderMutex.
void printWorkerCycle(std::unique_lock<std::mutex>& lock, const std::function<void()>& printRun,
                      std::optional<std::chrono::milliseconds> lookAgainAfter = std::nullopt);

}  // namespace kps
