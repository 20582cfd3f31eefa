// [LogFile]: everything the process writes to its standard streams (the log writer's lines and
// the untimed lines other parts write) goes to one file per local day in a folder of its own,
// so that a kiosk's log keeps itself for months without anybody moving it aside.
#pragma once

#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>

#include "base/FilePath.h"

namespace kps {

struct DailyLogSettings {
  std::string folder;  // absolute, or relative to the working directory
  int keepDays = 14;   // files of its own name older than this many days are deleted
};

class DailyLog {
 public:
  using Clock = std::function<std::time_t()>;
  // Intervals (a minute before a file that failed is tried again) run on a steady clock: a wall
  // clock set back two hours must not silence the file for two hours.
  using Ticks = std::function<std::chrono::steady_clock::time_point()>;
  explicit DailyLog(DailyLogSettings settings, Clock clock = [] { return std::time(nullptr); },
                    Ticks ticks = [] { return std::chrono::steady_clock::now(); });
  // Puts the standard streams back.
  ~DailyLog();
  DailyLog(const DailyLog&) = delete;
  DailyLog& operator=(const DailyLog&) = delete;

  // From now on std::cout and std::cerr write here, every line whole into exactly one file:
  // a line belongs to the day on which its last character is written.
  void attach();

 private:
  class Stream;
  void writeLine(const std::string& line, std::streambuf* fallback);
  void open(std::time_t now);
  void removeOldFiles(std::time_t now);
  void giveUp(const std::string& why, std::time_t now);

  DailyLogSettings settings_;
  Clock clock_;
  Ticks ticks_;
  std::unique_ptr<Stream> out_, err_;
  std::streambuf* savedOut_ = nullptr;
  std::streambuf* savedErr_ = nullptr;

  std::mutex mutex_;
  std::string day_;           // the open file's day, "YYYY-MM-DD"
  std::string path_;
  FilePtr file_;
  bool halfLine_ = false;  // the file ends inside a line (a write failed, the power went): a new one starts first
  std::chrono::steady_clock::time_point lastTry_;  // a file that could not be used is tried again a minute later
};

}  // namespace kps
