// IniFile::load and get over arbitrary file contents.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "config/IniFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/kps-fuzz-ini-" + std::to_string(::getpid()) + ".ini";
  if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
    std::fwrite(data, 1, size, file);
    std::fclose(file);
  }
  kps::IniFile ini;
  ini.load(path);
  for (const auto& section : ini.sections()) ini.get(section, "name");
  for (const auto& entry : ini.entries())
    if (ini.get(entry.section, entry.key).empty() && !entry.value.empty() &&
        ini.entries().size() == 1)
      __builtin_trap();  // a lone entry must be found again
  return 0;
}
