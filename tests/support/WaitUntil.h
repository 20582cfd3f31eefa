// Waiting for something a daemon or the service does on its own time: asked every 100 ms,
// given up after `limit`.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace kps {

inline bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}

}  // namespace kps
