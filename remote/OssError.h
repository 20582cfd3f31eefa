// The object store's error document: <Error><Code/><Message/><RequestId/>...</Error>.
#pragma once

#include <string>

namespace kps {

struct OssError {
  std::string code;
  std::string message;
  std::string requestId;
};

// Reads the three fields from an error body; a field that is missing stays empty. Never throws.
OssError parseOssError(const std::string& body);

}  // namespace kps
