// [WaitForPrinter]: what the print run keeps between runs while its copies wait for a person.
// The printer has needed a person since a moment of the steady clock; a copy waits while that
// is less than the setting's minutes ago, then fails as it would have without the setting.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "printer/PrinterCondition.h"

namespace kps {

class PrinterWait {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;
  // Tests put in a clock of their own.
  Clock clock = [] { return std::chrono::steady_clock::now(); };

  // A look found the printer needing a person: one log line when it starts, or when what it
  // needs changes. True while the wait may go on (less than `minutes` since it started).
  bool needsPerson(const PrinterState& state, std::int32_t minutes);
  // A look found it printing again: one log line.
  void back();
  // The last look left a copy waiting: the worker looks again soon.
  bool waiting() const { return waiting_; }
  void setWaiting(bool waiting) { waiting_ = waiting; }
  // A stopped queue or a held job given back to its driver at most once a minute.
  bool resumeDue();

  // How long a copy's job was followed with nothing wrong, across runs.
  std::uint32_t& quietMs(const std::string& uuid, std::int32_t copy) { return quiet_[{uuid, copy}]; }
  void forget(const std::string& uuid, std::int32_t copy) { quiet_.erase({uuid, copy}); }

 private:
  std::optional<std::chrono::steady_clock::time_point> since_;
  std::string said_;  // what the last line said it needs
  std::optional<std::chrono::steady_clock::time_point> lastResume_;
  bool waiting_ = false;
  std::map<std::pair<std::string, std::int32_t>, std::uint32_t> quiet_;
};

}  // namespace kps
