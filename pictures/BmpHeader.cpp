#include "pictures/HeaderReaders.h"

namespace kps {

void readBmpHeader(HeaderBytes& in, PictureHeader& header) {
  std::uint32_t size = 0, width = 0, height = 0;
  if (!in.number(14, 4, false, size)) return;
  if (size == 12) {  // OS/2 1.x: 16-bit sizes
    if (in.number(18, 2, false, width) && in.number(20, 2, false, height)) header.width = width, header.height = height;
    return;
  }
  if (size < 16 || size > 124 || !in.number(18, 4, false, width) || !in.number(22, 4, false, height)) return;
  const auto signedWidth = static_cast<std::int32_t>(width), signedHeight = static_cast<std::int32_t>(height);
  if (signedWidth <= 0 || signedHeight == 0 || signedHeight == INT32_MIN) return;
  header.width = width;
  header.height = static_cast<std::uint32_t>(signedHeight < 0 ? -signedHeight : signedHeight);  // top-down rows
}

}  // namespace kps
