// The service log: one time-stamped line per call on standard output.
#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>

namespace kps {

// Serialises every log line of the process (a process-wide object of the entry point's file).
extern std::mutex logMutex;

void logLine(const char* tag, int line, const char* message);
void logLine(const char* tag, int line, const char* message, const std::string& value);
void logLine(const char* tag, int line, const char* message, const char* value);
void logLine(const char* tag, int line, const char* message, std::uint32_t value);

// Local time (now, unless `when` says otherwise) as "%Y-%m-%d %H:%M:%S"; the store's time
// stamps use the same form.
std::string localTimeString(std::time_t when = std::time(nullptr));

}  // namespace kps

// Source tags are printed as they stand on every platform.
#define KPS_TAG_TASK "..\\..\\..\\src\\task"
#define KPS_TAG_DATABASE "..\\..\\..\\src\\Database"
#define KPS_TAG_REMOTE "..\\..\\..\\remote\\remote"
#define KPS_TAG_PRINTER "..\\..\\..\\printer\\PrinterManager"
