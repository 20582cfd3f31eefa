// Owners of what cairo hands out, released on every path.
#pragma once

#include <cairo.h>

#include <memory>

namespace kps {

struct CairoSurfaceDeleter {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using CairoSurface = std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter>;

struct CairoDeleter {
  void operator()(cairo_t* cr) const { cairo_destroy(cr); }
};
using Cairo = std::unique_ptr<cairo_t, CairoDeleter>;

}  // namespace kps
