#include "src/LastWords.h"

#if defined(__GNUC__)
#include <cxxabi.h>
#endif

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <typeinfo>

namespace kps {

namespace {

#if defined(__GNUC__)
std::string currentExceptionType() {
  const std::type_info* type = abi::__cxa_current_exception_type();
  if (!type) return "?";
  int status = 0;
  char* readable = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
  const std::string name = status == 0 && readable ? readable : type->name();
  std::free(readable);
  return name;
}
#else
std::string currentExceptionType() { return "an exception"; }
#endif

// As the run-time would say it.
[[noreturn]] void logTermination() {
  std::string why = "terminate called without an active exception";
  if (const std::exception_ptr current = std::current_exception()) {
    why = "terminate called after throwing an instance of '" + currentExceptionType() + "'";
    try {
      std::rethrow_exception(current);
    } catch (const std::exception& error) {
      why += "\n  what():  " + std::string(error.what());
    } catch (...) {
    }
  }
  std::cerr << why << std::endl;
  std::abort();
}

}  // namespace

void sayLastWordsOnTheLog() { std::set_terminate(logTermination); }

}  // namespace kps
