// The picture `--test-page` prints: made here, so that a kiosk needs no file to commission it.
#pragma once

#include <cstdint>
#include <string>

namespace kps::ops {

// Writes a 24-bit BMP, 4 pixels per unit of the configured size: white, a black frame along its
// four edges, a red arrow into its top-left corner, and `label` in its middle. False when the
// file cannot be written.
bool writeCalibrationPicture(const std::string& path, std::int32_t width, std::int32_t height,
                             const std::string& label);

}  // namespace kps::ops
