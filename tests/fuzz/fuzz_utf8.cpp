// UTF-8 to wide text and back: never fails, and what it gives back converts back to itself.
#include <cstdint>
#include <string>

#include "src/Utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::wstring wide = kps::utf8ToWide(text);
  const std::string repaired = kps::wideToUtf8(wide);
  if (kps::utf8ToWide(repaired) != wide) __builtin_trap();
  return 0;
}
