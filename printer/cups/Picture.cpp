#include "printer/cups/Picture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <memory>

namespace kps {

namespace {

struct PixbufDeleter {
  void operator()(GdkPixbuf* pixbuf) const { g_object_unref(pixbuf); }
};
struct ErrorDeleter {
  void operator()(GError* error) const { g_error_free(error); }
};

// Straight 8-bit RGB or RGBA rows into cairo's native-endian, premultiplied pixels.
CairoSurface toSurface(GdkPixbuf* pixbuf) {
  const int width = gdk_pixbuf_get_width(pixbuf), height = gdk_pixbuf_get_height(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  const bool alpha = gdk_pixbuf_get_has_alpha(pixbuf);
  if (gdk_pixbuf_get_bits_per_sample(pixbuf) != 8 || channels != (alpha ? 4 : 3)) return nullptr;
  CairoSurface surface(
      cairo_image_surface_create(alpha ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24, width, height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
  const guchar* in = gdk_pixbuf_read_pixels(pixbuf);
  const int inStride = gdk_pixbuf_get_rowstride(pixbuf);
  unsigned char* out = cairo_image_surface_get_data(surface.get());
  const int outStride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < height; ++y) {
    const guchar* from = in + static_cast<std::size_t>(y) * inStride;
    auto* to = reinterpret_cast<std::uint32_t*>(out + static_cast<std::size_t>(y) * outStride);
    for (int x = 0; x < width; ++x, from += channels) {
      const std::uint32_t a = alpha ? from[3] : 255;
      const auto premultiply = [a](std::uint32_t c) { return (c * a + 127) / 255; };
      to[x] = (a << 24) | (premultiply(from[0]) << 16) | (premultiply(from[1]) << 8) |
              premultiply(from[2]);
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

}  // namespace

CairoSurface loadPicture(const std::string& path) {
  GError* raw = nullptr;
  const std::unique_ptr<GdkPixbuf, PixbufDeleter> pixbuf(gdk_pixbuf_new_from_file(path.c_str(), &raw));
  const std::unique_ptr<GError, ErrorDeleter> error(raw);
  if (!pixbuf) return nullptr;
  return toSurface(pixbuf.get());
}

}  // namespace kps
