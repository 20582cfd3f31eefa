// The object store's error document: <Error><Code/><Message/><RequestId/>...</Error>.
#pragma once

#include <string>

namespace kps {

struct OssError {
  std::string code;
  std::string message;
  std::string requestId;
  std::string serverTime;   // the store's clock, in a RequestTimeTooSkewed answer
  // The object arrived but could not be written here: because of the key's own name (a name
  // this file system cannot hold) when keyLocal, else because of the machine (a full disk).
  bool localWrite = false;
  bool keyLocal = false;
  // Why the object is no picture this service takes (larger, or slower, than any photo), or
  // "": the task fails at once.
  std::string refused;
};

// Reads the fields from an error body; a field that is missing stays empty, so a body that is
// not the store's document gives an empty code. Never throws.
OssError parseOssError(const std::string& body);

}  // namespace kps
