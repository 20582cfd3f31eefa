#include "upkeep/ScheduledFile.h"

#include "base/FilePath.h"
#include "base/Health.h"
#include "base/Log.h"
#include "base/OwnFiles.h"

namespace kps {

std::string writtenFileProblem(const std::string& path, const std::string& logFolder, const std::string& otherWritten) {
  const OwnFiles own(workingDirectory(), logFolder, {otherWritten});
  return own.owns(own.absolute(path)) ? path + " is one of the service's own files" : "";
}

ScheduledFile::ScheduledFile(std::string path, std::chrono::seconds period, std::string what)
    : path_(std::move(path)), period_(period), what_(std::move(what)) {}

void ScheduledFile::writeIfDue(const std::function<std::string()>& render, std::chrono::steady_clock::time_point tick) {
  using namespace std::chrono_literals;
  const std::uint64_t runs = Health::instance().runsEnded;
  const bool runEnded = runs != runsSeen_;
  runsSeen_ = runs;
  if (!runEnded && !retry_ && lastWrite_ && tick - *lastWrite_ < period_) return;
  lastWrite_ = tick;
  std::error_code error;
  const bool written = replaceFile(path_, render(), error);
  retry_ = !written && !retry_;
  if (written || (lastFailureLine_ && tick - *lastFailureLine_ < 1h)) return;
  lastFailureLine_ = tick;
  logLine(KPS_TAG_TASK, __LINE__, (what_ + " cannot be written: ").c_str(), path_ + ": " + error.message());
}

}  // namespace kps
