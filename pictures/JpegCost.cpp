#include "pictures/JpegCost.h"

#include <algorithm>

namespace kps {

namespace {

// libjpeg's tables, its state and the rows it works on beyond those counted below.
constexpr std::uint64_t kFixedBytes = 64 << 10;
// Rows of a component held at once: its row group in the decoder's buffer with the groups
// above and below it that upsampling looks at.
constexpr std::uint64_t kRowGroupsHeld = 3;

std::uint64_t roundUp(std::uint64_t value, std::uint64_t step) { return (value + step - 1) / step * step; }
std::uint64_t divideUp(std::uint64_t value, std::uint64_t by) { return (value + by - 1) / by; }

}  // namespace

std::uint64_t jpegDecoderBytes(std::uint32_t width, std::uint32_t height, const JpegLayout& layout) {
  const int components = std::min<int>(layout.components, kMostJpegComponents);
  // Factors libjpeg refuses (0, or more than 4) count as 1: such a file is never decoded.
  const auto across = [&](int i) { return std::max(1, layout.sampling[i] >> 4); };
  const auto down = [&](int i) { return std::max(1, layout.sampling[i] & 15); };
  int mostAcross = 1, mostDown = 1;
  for (int i = 0; i < components; ++i) mostAcross = std::max(mostAcross, across(i)), mostDown = std::max(mostDown, down(i));
  const bool everyCoefficient = layout.progressive || layout.firstScanComponents < layout.components;
  std::uint64_t bytes = kFixedBytes;
  for (int i = 0; i < components; ++i) {
    const std::uint64_t h = across(i), v = down(i);
    const std::uint64_t columns = roundUp(divideUp(std::uint64_t{width} * h, mostAcross * 8), h);
    const std::uint64_t rows = roundUp(divideUp(std::uint64_t{height} * v, mostDown * 8), v);
    bytes += columns * 8 * v * 8 * kRowGroupsHeld;  // a sample a byte
    if (everyCoefficient) bytes += columns * rows * 64 * 2;
  }
  return bytes;
}

}  // namespace kps
