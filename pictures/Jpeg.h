// JPEG through libjpeg: a photo decoded a row at a time at the smallest scale the decoder offers
// (eighths) that still covers the size asked for, and the page's picture encoded again.
#pragma once

#include <cstdio>
#include <string>

#include "pictures/Picture.h"
#include "pictures/PictureHeader.h"

namespace kps {

// The JPEG at `file`, whose header read `header`, area averaged to at most `most` pixels. Null
// when it is not a whole picture (an error, or data that ends before its last row), memory ran
// short, or what libjpeg reads of it is refused: then `refusal` says why, before a row is decoded.
CairoSurface decodeJpeg(std::FILE* file, const PictureHeader& header, const PixelSize& most, std::string& refusal);

// An RGB24 surface as a JPEG file of this quality (1-100); empty when memory ran short.
std::string encodeJpeg(cairo_surface_t* surface, int quality);

}  // namespace kps
