#include "printer/cups/QueuePpd.h"

#include <unistd.h>

#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <string>

// libcups marks its PPD functions deprecated, but a PPD is where a driver's own names for its
// paper sizes are: the scheduler's IPP attributes carry only sizes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <cups/ppd.h>

namespace kps {

namespace {

int hundredthsOfMm(float points) { return static_cast<int>(std::lround(points * 2540.0 / 72.0)); }

struct PpdCloser {
  void operator()(ppd_file_t* ppd) const { ppdClose(ppd); }
};

// The PPD as a file of its own, removed when done; none when the scheduler says the one of
// `modified` is still the queue's.
class PpdCopy {
 public:
  PpdCopy(const char* queue, time_t& modified) {
    status_ = cupsGetPPD3(CUPS_HTTP_DEFAULT, queue, &modified, path_, sizeof path_);
    ok_ = status_ == HTTP_STATUS_OK;
  }
  ~PpdCopy() {
    if (path_[0]) ::unlink(path_);
  }
  PpdCopy(const PpdCopy&) = delete;
  PpdCopy& operator=(const PpdCopy&) = delete;
  const char* path() const { return ok_ ? path_ : nullptr; }
  bool unchanged() const { return status_ == HTTP_STATUS_NOT_MODIFIED; }

 private:
  char path_[1024] = "";
  http_status_t status_ = HTTP_STATUS_ERROR;
  bool ok_ = false;
};

std::optional<std::vector<QueueSize>> readSizes(const char* path) {
  const std::unique_ptr<ppd_file_t, PpdCloser> ppd(ppdOpenFile(path));
  if (!ppd) return std::nullopt;
  const ppd_option_t* pageSize = ppdFindOption(ppd.get(), "PageSize");
  std::vector<QueueSize> sizes;
  for (int i = 0; i < ppd->num_sizes; ++i) {
    const ppd_size_t& own = ppd->sizes[i];
    if (own.width <= 0 || own.length <= 0) continue;  // "Custom": a range, not a size
    QueueSize size;
    size.name = own.name;
    for (int c = 0; pageSize && c < pageSize->num_choices; ++c)
      if (size.name == pageSize->choices[c].choice) size.text = pageSize->choices[c].text;
    size.size.width = hundredthsOfMm(own.width);
    size.size.length = hundredthsOfMm(own.length);
    size.size.left = hundredthsOfMm(own.left);
    size.size.bottom = hundredthsOfMm(own.bottom);
    size.size.right = hundredthsOfMm(own.width - own.right);
    size.size.top = hundredthsOfMm(own.length - own.top);
    snprintf(size.size.media, sizeof size.size.media, "%s", own.name);
    sizes.push_back(size);
  }
  return sizes;
}

// A queue's sizes as last read, with the time of the PPD they were read from: a copy asks for
// them twice (its parameters, its job) and --check once per product type, and a driver's PPD
// is tens of kilobytes. The scheduler is asked every time, but sends the PPD only when it changed.
struct KnownSizes {
  time_t modified = 0;
  std::optional<std::vector<QueueSize>> sizes;
};
std::mutex knownMutex;
std::map<std::string, KnownSizes> known;

}  // namespace

std::optional<std::vector<QueueSize>> driverSizes(const char* queue) {
  const std::lock_guard<std::mutex> lock(knownMutex);
  KnownSizes& entry = known[queue];
  const PpdCopy copy(queue, entry.modified);
  if (copy.unchanged()) return entry.sizes;
  entry.sizes = copy.path() ? readSizes(copy.path()) : std::nullopt;
  if (!entry.sizes) entry.modified = 0;
  return entry.sizes;
}

}  // namespace kps

#pragma GCC diagnostic pop
