// The lines of `--check`: one per check, its verdict first, so that a person reads down the
// left column and a script greps for FAIL.
#pragma once

#include <ostream>
#include <string>

namespace kps::ops {

class CheckReport {
 public:
  explicit CheckReport(std::ostream& out) : out_(out) {}

  void ok(const std::string& what, const std::string& found) { line("OK  ", what, found); }
  void warn(const std::string& what, const std::string& found) { line("WARN", what, found); }
  void fail(const std::string& what, const std::string& found) {
    failed_ = true;
    line("FAIL", what, found);
  }
  bool failed() const { return failed_; }

 private:
  void line(const char* verdict, const std::string& what, const std::string& found) {
    out_ << verdict << ' ' << what << ": " << found << std::endl;
  }
  std::ostream& out_;
  bool failed_ = false;
};

}  // namespace kps::ops
