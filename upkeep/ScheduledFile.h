// A file the sync loop replaces in one step for a monitoring tool (the status file, the metrics
// file): on its own period of the steady clock, so that a wall clock set back never stops it,
// and after every print run. A replacement that fails is tried once more at the loop's next
// turn, because on Windows a reader holding the file (a collector reading it) makes it fail;
// a failure is said in one line, at most once an hour.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kps {

// Why a path config.ini gives for a file the service writes is refused, or "": it names one of
// the service's own files (config.ini, the store and its companions, a log file, or
// `otherWritten`: the metrics file's path is refused where the status file is), which the
// writer would replace.
std::string writtenFileProblem(const std::string& path, const std::string& logFolder,
                               const std::string& otherWritten = "");

class ScheduledFile {
 public:
  // `what` names it in the failure line ("status file").
  ScheduledFile(std::string path, std::chrono::seconds period, std::string what);

  // Replaces the file with what `render` makes, when a write is due.
  void writeIfDue(const std::function<std::string()>& render, std::chrono::steady_clock::time_point tick);

 private:
  std::string path_;
  std::chrono::seconds period_;
  std::string what_;
  std::uint64_t runsSeen_ = 0;
  bool retry_ = false;  // the last write failed and was not itself the retry
  std::optional<std::chrono::steady_clock::time_point> lastWrite_;
  std::optional<std::chrono::steady_clock::time_point> lastFailureLine_;
};

}  // namespace kps
