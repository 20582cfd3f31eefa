// The object store's error document.
#include <cstdint>
#include <string>

#include "remote/OssError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  const kps::OssError error = kps::parseOssError(body);
  if (error.code.size() > body.size() || error.message.size() > body.size()) __builtin_trap();
  return 0;
}
