// What the loops last saw of the backend, kept for the status file: the poll's and the sync's
// latest exchange. Written by the loops, read by the status file's writer; its own lock only.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace kps {

struct ExchangeNote {
  std::string time;     // local, as the log writes it; empty: none yet
  std::string outcome;  // "HTTP 200, code \"100\", 2 tasks", "transfer error: ...", ...
  int rows = 0;         // the rows a sync sent (a sync with none to send is not noted)
};

class Health {
 public:
  static Health& instance();

  void notePoll(const std::string& outcome);
  void noteSync(int rows, const std::string& outcome);
  ExchangeNote lastPoll();
  ExchangeNote lastSync();

  // A print run ended: the status file is written at the sync loop's next turn.
  std::atomic<bool> runEnded{false};

 private:
  std::mutex mutex_;
  ExchangeNote poll_, sync_;
};

}  // namespace kps
