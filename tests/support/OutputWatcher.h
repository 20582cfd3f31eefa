// Captures std::cout while alive and lets a test wait until a text has been written: the log
// writer flushes every line, and each flush publishes what was written so far.
#pragma once

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>

namespace kps {

// How often `needle` stands in a captured output or a log.
inline std::size_t count(const std::string& text, const std::string& needle) {
  std::size_t n = 0;
  for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

class OutputWatcher {
 public:
  OutputWatcher() : old_(std::cout.rdbuf(&buffer_)) {}
  ~OutputWatcher() {
    std::cout.flush();
    std::cout.rdbuf(old_);
  }
  bool waitFor(const std::string& text, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(buffer_.mutex);
    return buffer_.changed.wait_for(lock, timeout, [&] { return buffer_.published.find(text) != std::string::npos; });
  }
  std::string text() {
    std::cout.flush();
    std::lock_guard<std::mutex> lock(buffer_.mutex);
    return buffer_.published;
  }

 private:
  struct Buffer : std::stringbuf {
    int sync() override {
      std::lock_guard<std::mutex> lock(mutex);
      published = str();
      changed.notify_all();
      return 0;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::string published;
  };
  Buffer buffer_;
  std::streambuf* old_;
};

}  // namespace kps
