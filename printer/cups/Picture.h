// A picture file decoded into a cairo image surface: JPEG (CMYK too), PNG, BMP, GIF, TIFF and
// the other formats the system's gdk-pixbuf loaders read, told by content, not name.
#pragma once

#include <cairo.h>

#include <memory>
#include <string>

namespace kps {

struct CairoSurfaceDeleter {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using CairoSurface = std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter>;

struct CairoDeleter {
  void operator()(cairo_t* cr) const { cairo_destroy(cr); }
};
using Cairo = std::unique_ptr<cairo_t, CairoDeleter>;

// Null when the file is missing, unreadable, or not a picture the loaders can decode.
CairoSurface loadPicture(const std::string& path);

}  // namespace kps
