// The entry point hands every command line with arguments here; without arguments the
// process is the service and never comes here.
#include <iostream>
#include <string>
#include <vector>

#include "Deployment.h"
#include "ops/Commands.h"
#include "ops/Dispatch.h"

namespace kps {

namespace {

const char* const kUsage =
    "usage: kiosk-print-service                    run the service in the kiosk's working directory\n"
    "       kiosk-print-service --check            check config.ini, the printer, the backend, the\n"
    "                                              object store and the working directory; changes nothing\n"
    "       kiosk-print-service --test-page TYPE   print one calibration page for a product type\n"
    "                                              (postcards, frames, cardsets, fridgemagnets)\n"
    "       kiosk-print-service --status           the kiosk's health from its store (read-only, safe\n"
    "                                              while the service runs); exit 1 when something waits\n"
    "       kiosk-print-service --version\n"
    "       kiosk-print-service --help\n";

}  // namespace

int runOperatorCommand(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args == std::vector<std::string>{"--version"}) {
    std::cout << "kiosk-print-service " << deployment::kVersion << std::endl;
    return 0;
  }
  if (args == std::vector<std::string>{"--help"}) {
    std::cout << kUsage << std::flush;
    return 0;
  }
  if (args == std::vector<std::string>{"--check"}) return ops::runCheck(std::cout);
  if (args == std::vector<std::string>{"--status"}) return ops::runStatus(std::cout);
  if (args.size() == 2 && args[0] == "--test-page") return ops::runTestPage(args[1], std::cout);
  std::cerr << kUsage << std::flush;
  return 2;
}

}  // namespace kps
