// What libjpeg read of a JPEG's frame and first scan (after jpeg_read_header), in the terms the
// service's header reader gives them.
#pragma once

// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <algorithm>

#include "pictures/JpegCost.h"

namespace kps {

inline JpegLayout layoutOf(const jpeg_decompress_struct& info) {
  JpegLayout layout;
  layout.progressive = info.progressive_mode;
  layout.components = static_cast<std::uint8_t>(info.num_components);
  for (int i = 0; i < std::min(info.num_components, kMostJpegComponents); ++i)
    layout.sampling[i] = static_cast<std::uint8_t>(info.comp_info[i].h_samp_factor << 4 | info.comp_info[i].v_samp_factor);
  layout.firstScanComponents = static_cast<std::uint8_t>(info.comps_in_scan);
  return layout;
}

}  // namespace kps
