#include "printer/PrinterSettings.h"

#include <condition_variable>
#include <mutex>

namespace kps {

namespace {

struct Publication {
  std::mutex mutex;
  std::condition_variable published;
  bool done = false;
  PrinterSettingsRecord record;
};

Publication& publication() {
  static Publication one;
  return one;
}

}  // namespace

void publishPrinterSettings() {
  Publication& p = publication();
  {
    const std::lock_guard<std::mutex> lock(p.mutex);
    p.record = PrinterSettings;
    p.done = true;
  }
  p.published.notify_all();
}

PrinterSettingsRecord publishedPrinterSettings() {
  Publication& p = publication();
  std::unique_lock<std::mutex> lock(p.mutex);
  p.published.wait(lock, [&] { return p.done; });
  return p.record;
}

}  // namespace kps
