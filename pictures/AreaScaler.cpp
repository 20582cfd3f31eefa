#include "pictures/AreaScaler.h"

#include <algorithm>

namespace kps {

// Positions are counted in units that make both grids whole: an input column is outWidth units
// wide and an output column inWidth, so every overlap is an exact integer.
AreaScaler::AreaScaler(std::uint32_t inWidth, std::uint32_t inHeight, std::uint32_t outWidth,
                       std::uint32_t outHeight)
    : inWidth_(inWidth), inHeight_(inHeight), outWidth_(outWidth), outHeight_(outHeight),
      surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(outWidth),
                                          static_cast<int>(outHeight))) {
  if (cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) return;
  first_.resize(outWidth), count_.resize(outWidth);
  weights_.reserve(std::size_t{inWidth} + outWidth);
  for (std::uint32_t x = 0; x < outWidth; ++x) {
    const std::uint64_t from = std::uint64_t{x} * inWidth, to = from + inWidth;
    first_[x] = static_cast<std::uint32_t>(from / outWidth);
    const auto last = static_cast<std::uint32_t>((to - 1) / outWidth);
    count_[x] = last - first_[x] + 1;
    for (std::uint32_t s = first_[x]; s <= last; ++s) {
      const std::uint64_t overlap = std::min<std::uint64_t>((s + 1ull) * outWidth, to) -
                                    std::max<std::uint64_t>(std::uint64_t{s} * outWidth, from);
      weights_.push_back(static_cast<float>(overlap) / static_cast<float>(inWidth));
    }
  }
  row_.resize(std::size_t{outWidth} * 3);
  sums_.assign(row_.size(), 0.0f);
  next_.assign(row_.size(), 0.0f);
}

void AreaScaler::addRow(const unsigned char* rgb) {
  if (done() || cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) return;
  const float* weight = weights_.data();
  for (std::uint32_t x = 0; x < outWidth_; ++x) {
    float r = 0, g = 0, b = 0;
    const unsigned char* in = rgb + std::size_t{first_[x]} * 3;
    for (std::uint32_t i = 0; i < count_[x]; ++i, in += 3, ++weight) {
      r += *weight * in[0], g += *weight * in[1], b += *weight * in[2];
    }
    row_[3 * x] = r, row_[3 * x + 1] = g, row_[3 * x + 2] = b;
  }
  // This input row spans [row * outHeight, (row + 1) * outHeight); output row y spans
  // [y * inHeight, (y + 1) * inHeight). Shrinking, a row falls into one output row or two.
  const std::uint64_t from = std::uint64_t{rowsIn_} * outHeight_, to = from + outHeight_;
  const std::uint64_t end = (rowsOut_ + 1ull) * inHeight_;
  const std::uint64_t here = std::min(to, end) - from;
  const float inHere = static_cast<float>(here) / static_cast<float>(inHeight_);
  const float inNext = static_cast<float>(outHeight_ - here) / static_cast<float>(inHeight_);
  for (std::size_t i = 0; i < row_.size(); ++i) sums_[i] += inHere * row_[i];
  if (here < outHeight_)
    for (std::size_t i = 0; i < row_.size(); ++i) next_[i] += inNext * row_[i];
  ++rowsIn_;
  if (to >= end) {
    emit(sums_.data());
    sums_.swap(next_);
    std::fill(next_.begin(), next_.end(), 0.0f);
  }
}

void AreaScaler::emit(const float* sums) {
  if (rowsOut_ >= outHeight_) return;
  unsigned char* data = cairo_image_surface_get_data(surface_.get());
  auto* out = reinterpret_cast<std::uint32_t*>(
      data + static_cast<std::size_t>(rowsOut_) * cairo_image_surface_get_stride(surface_.get()));
  const auto channel = [](float value) {
    return static_cast<std::uint32_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
  };
  for (std::uint32_t x = 0; x < outWidth_; ++x)
    out[x] = 0xFF000000u | channel(sums[3 * x]) << 16 | channel(sums[3 * x + 1]) << 8 | channel(sums[3 * x + 2]);
  if (++rowsOut_ == outHeight_) cairo_surface_mark_dirty(surface_.get());
}

}  // namespace kps
