// What a build trusts for TLS, as its configure step decides it from the deployment variables.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

const std::string kSandboxCa = std::string(KPS_SOURCE_DIR) + "/sandbox/state/ca.pem";
const std::string kRealAddresses =
    " -DKPS_BACKEND_PRODUCTION_URL=https://backend.example -DKPS_BACKEND_TEST_URL=https://backend-test.example"
    " -DKPS_OSS_ENDPOINT=https://oss-cn-beijing.example";

// Configures the project in `build` with `arguments`; the trust line it printed (or all it
// printed, when there is not exactly one) and the CA bundle compiled in.
std::pair<std::string, std::string> configure(const TempDir& build, const std::string& arguments) {
  const std::string printed = output("cmake -S " KPS_SOURCE_DIR " -B " + build.path() +
                                     " -DKPS_BUILD_TESTS=OFF -DKPS_BUILD_BENCH=OFF" + arguments + " 2>&1");
  const std::string prefix = "-- kiosk-print-service TLS trust: ";
  const auto at = printed.find(prefix);
  std::string line = printed;
  if (at != std::string::npos && printed.find(prefix, at + 1) == std::string::npos)
    line = printed.substr(at + prefix.size(), printed.find('\n', at) - at - prefix.size());
  const std::string header = build.read("generated/Deployment.h");
  const auto bundle = header.find("kCaBundle = \"");
  return {line, bundle == std::string::npos ? "?" : header.substr(bundle + 13, header.find('"', bundle + 13) - bundle - 13)};
}

TEST(Deployment, TheSandboxCaIsTrustedOnlyWhileEveryAddressIsTheSandboxs) {
  const std::string system = "the system's trust store (OpenSSL's default)";
  struct Case {
    const char* name;
    std::vector<std::string> configures;  // in one build folder, one after the other
    std::string trust, bundle;
  };
  const Case cases[] = {
      {"the sandbox's addresses", {""}, "the sandbox CA (" + kSandboxCa + ")", kSandboxCa},
      {"a kiosk's addresses, no CA", {kRealAddresses}, system, ""},
      {"one address not the sandbox's", {" -DKPS_OSS_ENDPOINT=https://oss.example"}, system, ""},
      {"a kiosk's CA", {kRealAddresses + " -DKPS_CA_BUNDLE=/etc/kiosk/ca.pem"}, "the CA bundle /etc/kiosk/ca.pem",
       "/etc/kiosk/ca.pem"},
      {"the sandbox's CA beside a kiosk's address", {kRealAddresses + " -DKPS_CA_BUNDLE=" + kSandboxCa}, system, ""},
      {"the sandbox's addresses, CA emptied", {" -DKPS_CA_BUNDLE="}, system, ""},
      {"a sandbox build folder given a kiosk's addresses", {"", kRealAddresses}, system, ""},
  };
  for (const auto& c : cases) {
    TempDir build;
    std::pair<std::string, std::string> result;
    for (const auto& arguments : c.configures) result = configure(build, arguments);
    EXPECT_EQ(result.first, c.trust) << c.name;
    EXPECT_EQ(result.second, c.bundle) << c.name;
  }
  // A deployment file that forgets the CA.
  TempDir build;
  const std::string file = build.write("deploy.cmake",
                                       "set(KPS_BACKEND_PRODUCTION_URL \"https://backend.example\" CACHE STRING \"\")\n"
                                       "set(KPS_BACKEND_TEST_URL \"https://backend-test.example\" CACHE STRING \"\")\n"
                                       "set(KPS_OSS_ENDPOINT \"https://oss-cn-beijing.example\" CACHE STRING \"\")\n");
  EXPECT_EQ(configure(build, " -C " + file), std::make_pair(system, std::string()));
}

}  // namespace
}  // namespace kps
