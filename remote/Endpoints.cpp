#include "remote/Endpoints.h"

#include "Deployment.h"

namespace kps {

std::string backendBase(std::int32_t environment) {
  return environment == 0 ? deployment::kBackendTestUrl : deployment::kBackendProductionUrl;
}

std::string taskListUrl(std::int32_t environment) {
  return backendBase(environment) + "/print/task/list";
}

std::string syncUrl(std::int32_t environment) {
  return backendBase(environment) + "/print/task/sync";
}

}  // namespace kps
