#include "base/Log.h"

#include <ctime>
#include <iostream>
#include <sstream>

namespace kps {

std::string localTimeString(std::time_t when) {
  std::tm local{};
#ifdef _WIN32
  localtime_s(&local, &when);
#else
  localtime_r(&when, &local);
#endif
  char buffer[80];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
  return buffer;
}

namespace {

template <typename Value>
void write(const char* tag, int line, const char* message, const Value* value) {
  std::lock_guard<std::mutex> lock(logMutex);
  // A write that failed once (a full disk under a redirected output) would otherwise silence
  // the streams for the rest of the process.
  std::cout.clear();
  std::cerr.clear();
  // The time is read under the lock so that consecutive lines never go backwards.
  std::ostringstream out;
  out << '[' << localTimeString() << "] [" << tag << ':' << line << "] " << message;
  if (value) out << *value;
  std::cout << out.str();
  std::cout << std::endl;
}

}  // namespace

void logLine(const char* tag, int line, const char* message) {
  write<std::string>(tag, line, message, nullptr);
}

void logLine(const char* tag, int line, const char* message, const std::string& value) {
  write(tag, line, message, &value);
}

void logLine(const char* tag, int line, const char* message, const char* value) {
  const std::string text = value ? value : "";
  write(tag, line, message, &text);
}

void logLine(const char* tag, int line, const char* message, std::uint32_t value) {
  write(tag, line, message, &value);
}

}  // namespace kps
