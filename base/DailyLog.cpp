#include "base/DailyLog.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <unordered_map>

#include "base/FilePath.h"
#include "base/Log.h"
#include "base/OwnFiles.h"

namespace kps {

namespace {

constexpr std::chrono::seconds kRetry{60};

std::string localDay(std::time_t when) { return localTimeString(when).substr(0, 10); }

}  // namespace

// The stream side: characters gather per thread until a line ends, so that lines of several
// threads never mix and a line is handed over whole.
class DailyLog::Stream : public std::streambuf {
 public:
  Stream(DailyLog& log, std::streambuf* fallback) : log_(log), fallback_(fallback) {}

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      const char ch = traits_type::to_char_type(c);
      append(&ch, 1);
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    append(text, static_cast<std::size_t>(count));
    return count;
  }

 private:
  void append(const char* text, std::size_t count) {
    thread_local std::unordered_map<const Stream*, std::string> unfinished;
    std::string& line = unfinished[this];
    for (std::size_t i = 0; i < count; ++i) {
      line += text[i];
      if (text[i] == '\n') {
        log_.writeLine(line, fallback_);
        line.clear();
      }
    }
  }
  DailyLog& log_;
  std::streambuf* fallback_;
};

DailyLog::DailyLog(DailyLogSettings settings, Clock clock, Ticks ticks)
    : settings_(std::move(settings)), clock_(std::move(clock)), ticks_(std::move(ticks)) {
  if (settings_.keepDays < 1) settings_.keepDays = 14;
  std::error_code ignored;
  std::filesystem::create_directories(toPath(settings_.folder), ignored);  // tried, not required
}

DailyLog::~DailyLog() {
  if (savedOut_) std::cout.rdbuf(savedOut_);
  if (savedErr_) std::cerr.rdbuf(savedErr_);
}

void DailyLog::attach() {
  std::cout.flush();
  std::cerr.flush();
  out_ = std::make_unique<Stream>(*this, std::cout.rdbuf());
  err_ = std::make_unique<Stream>(*this, std::cerr.rdbuf());
  savedOut_ = std::cout.rdbuf(out_.get());
  savedErr_ = std::cerr.rdbuf(err_.get());
}

void DailyLog::writeLine(const std::string& line, std::streambuf* fallback) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::time_t now = clock_();
  const std::string day = localDay(now);
  if (day != day_) {  // the first line, or the first of a new day
    day_ = day;
    open(now);
    removeOldFiles(now);
  } else if (!file_ && ticks_() - lastTry_ >= kRetry) {
    open(now);
  } else if (file_) {
    // A file whose folder was removed still takes writes, and loses them: looked for each time.
    std::error_code error;
    if (!std::filesystem::exists(toPath(path_), error)) open(now);
  }
  if (file_) {
    const std::string text = halfLine_ ? "\n" + line : line;
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) == text.size() && std::fflush(file_.get()) == 0) {
      halfLine_ = false;
      return;
    }
    giveUp(std::string("cannot write it: ") + std::strerror(errno), now);
  }
  fallback->sputn(line.data(), static_cast<std::streamsize>(line.size()));
  fallback->pubsync();
}

void DailyLog::open(std::time_t now) {
  file_.reset();
  lastTry_ = ticks_();
  path_ = fromPath(toPath(settings_.folder) /
                   toPath(dailyLogName(std::stoi(day_.substr(0, 4)), std::stoi(day_.substr(5, 2)),
                                       std::stoi(day_.substr(8, 2)))));
  // A folder removed under the running service is made again.
  std::error_code ignored;
  std::filesystem::create_directories(toPath(settings_.folder), ignored);
  file_.reset(openFile(path_, "a+b"));
  if (!file_) {
    giveUp(std::string("cannot open it: ") + std::strerror(errno), now);
    return;
  }
  halfLine_ = std::fseek(file_.get(), -1, SEEK_END) == 0 && std::fgetc(file_.get()) != '\n';
  std::fseek(file_.get(), 0, SEEK_END);
}

void DailyLog::giveUp(const std::string& why, std::time_t now) {
  file_.reset();
  lastTry_ = ticks_();
  const std::string line = "[" + localTimeString(now) + "] log file " + path_ + ": " + why +
                           "; lines go to the standard streams, tried again in a minute\n";
  std::streambuf* err = savedErr_ ? savedErr_ : std::cerr.rdbuf();
  err->sputn(line.data(), static_cast<std::streamsize>(line.size()));
  err->pubsync();
}

void DailyLog::removeOldFiles(std::time_t now) {
  // Names carry their day; the oldest kept is keepDays before today.
  const std::string oldestKept = localDay(now - static_cast<std::time_t>(settings_.keepDays) * 86400);
  std::error_code error;
  for (std::filesystem::directory_iterator it(toPath(settings_.folder), error), end; !error && it != end;
       it.increment(error)) {
    const std::string name = fromPath(it->path().filename());
    if (!isDailyLogName(name) || !it->is_regular_file(error)) continue;
    const std::string day = name.substr(20, 10);
    std::error_code ignored;
    if (day < oldestKept) std::filesystem::remove(it->path(), ignored);
  }
}

}  // namespace kps
