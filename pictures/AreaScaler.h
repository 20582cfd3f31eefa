// Shrinks a picture handed over one row at a time into a cairo RGB24 surface: each output pixel
// is the mean of the input area it covers (exact fractions at the edges), so a photo of any
// size is held as two rows of sums, never whole.
#pragma once

#include <cstdint>
#include <vector>

#include "pictures/Picture.h"

namespace kps {

class AreaScaler {
 public:
  // outWidth and outHeight at most the input's. Allocates everything it will use here, so that
  // addRow never allocates (a decoder may call it where nothing may throw); throws
  // std::bad_alloc, or leaves surface() in an error state, when memory is short.
  AreaScaler(std::uint32_t inWidth, std::uint32_t inHeight, std::uint32_t outWidth, std::uint32_t outHeight);

  // The next input row, top to bottom: inWidth pixels of 8-bit R, G, B.
  void addRow(const unsigned char* rgb);
  // Whether every input row has come.
  bool done() const { return rowsIn_ == inHeight_; }
  CairoSurface take() { return std::move(surface_); }
  cairo_surface_t* surface() const { return surface_.get(); }

 private:
  void emit(const float* sums);

  const std::uint32_t inWidth_, inHeight_, outWidth_, outHeight_;
  CairoSurface surface_;
  // The input columns each output column covers: from first_[x], count_[x] of them, weighted.
  std::vector<std::uint32_t> first_, count_;
  std::vector<float> weights_;
  std::vector<float> row_;         // the current input row, shrunk across
  std::vector<float> sums_, next_;  // the output row being summed, and the one after it
  std::uint32_t rowsIn_ = 0, rowsOut_ = 0;
};

}  // namespace kps
