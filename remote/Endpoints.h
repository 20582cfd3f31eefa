// The backend URLs: a compiled-in origin chosen by the environment setting plus a fixed path.
#pragma once

#include <cstdint>
#include <string>

namespace kps {

// environment 0 selects the test backend, any other value production.
std::string backendBase(std::int32_t environment);
std::string taskListUrl(std::int32_t environment);
std::string syncUrl(std::int32_t environment);

}  // namespace kps
