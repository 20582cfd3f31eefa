#include "pictures/PictureSize.h"

#include <algorithm>
#include <cmath>

namespace kps {

PixelSize pixelsToDecode(const PictureHeader& header, const PictureSize& size, double dpiX, double dpiY) {
  const auto fit = [](std::int32_t hundredths, double dpi, std::uint32_t most) {
    const double wanted = std::ceil(std::max(hundredths, 1) * dpi / 100.0);
    return wanted >= most ? most : std::max<std::uint32_t>(1, static_cast<std::uint32_t>(wanted));
  };
  return PixelSize{fit(size.width, dpiX, header.width), fit(size.height, dpiY, header.height)};
}

}  // namespace kps
