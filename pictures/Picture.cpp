#include "pictures/Picture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <new>
#include <vector>

#include "pictures/AreaScaler.h"
#include "pictures/Jpeg.h"

namespace kps {

namespace {

struct ObjectUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

// The loader's own reading of the size, before it allocates: beyond the budget it is told to
// stop (a size of 0 is gdk-pixbuf's word for that), whatever the header said. Nothing here may
// throw: it runs inside GLib.
void onSizePrepared(GdkPixbufLoader* loader, gint width, gint height, gpointer) {
  if (width <= 0 || height <= 0 || !withinPixelBudget(std::uint64_t(width), std::uint64_t(height)))
    gdk_pixbuf_loader_set_size(loader, 0, 0);
}

struct ErrorFreer {
  void operator()(GError* error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, ErrorFreer>;

const char* loaderName(PictureFormat format) {
  switch (format) {
    case PictureFormat::Png: return "png";
    case PictureFormat::Bmp: return "bmp";
    case PictureFormat::Gif: return "gif";
    case PictureFormat::Tiff: return "tiff";
    default: return nullptr;
  }
}

// Only the loader of the format the header named ever sees the bytes. These loaders hold the
// whole picture; the header's budget bounds it.
CairoSurface decodeWithPixbuf(std::FILE* file, PictureFormat format, const PixelSize& most) {
  GError* raw = nullptr;
  const std::unique_ptr<GdkPixbufLoader, ObjectUnref> loader(gdk_pixbuf_loader_new_with_type(loaderName(format), &raw));
  Error error(raw);
  if (!loader) return nullptr;
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(onSizePrepared), nullptr);
  std::vector<guchar> chunk(1 << 16);
  bool whole = true;
  for (std::size_t got; whole && (got = std::fread(chunk.data(), 1, chunk.size(), file)) > 0;) {
    whole = gdk_pixbuf_loader_write(loader.get(), chunk.data(), got, &raw);
    error.reset(raw), raw = nullptr;
  }
  // Closed in any case: a loader unreferenced open complains on standard error.
  whole = gdk_pixbuf_loader_close(loader.get(), &raw) && whole && !std::ferror(file);
  error.reset(raw);
  GdkPixbuf* pixbuf = gdk_pixbuf_loader_get_pixbuf(loader.get());  // the loader's
  if (!whole || !pixbuf) return nullptr;

  const int width = gdk_pixbuf_get_width(pixbuf), height = gdk_pixbuf_get_height(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  const bool alpha = gdk_pixbuf_get_has_alpha(pixbuf);
  if (width <= 0 || height <= 0 || gdk_pixbuf_get_bits_per_sample(pixbuf) != 8 || channels != (alpha ? 4 : 3))
    return nullptr;
  const auto w = static_cast<std::uint32_t>(width), h = static_cast<std::uint32_t>(height);
  AreaScaler scaler(w, h, std::min(most.width, w), std::min(most.height, h));
  if (cairo_surface_status(scaler.surface()) != CAIRO_STATUS_SUCCESS) return nullptr;
  const guchar* pixels = gdk_pixbuf_read_pixels(pixbuf);
  const std::size_t stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf));
  std::vector<unsigned char> rgb(alpha ? std::size_t{w} * 3 : 0);
  for (std::uint32_t y = 0; y < h; ++y) {
    const guchar* row = pixels + y * stride;
    if (alpha) {  // over white paper
      for (std::uint32_t x = 0; x < w; ++x) {
        const unsigned a = row[4 * x + 3];
        for (int c = 0; c < 3; ++c)
          rgb[3 * x + c] = static_cast<unsigned char>((row[4 * x + c] * a + 255 * (255 - a) + 127) / 255);
      }
      row = rgb.data();
    }
    scaler.addRow(row);
  }
  return scaler.take();
}

// A file no larger than its raw pixels: past that a JPEG carries something other than its
// picture, which is not sent.
std::string wholeFile(std::FILE* file, const PictureHeader& header) {
  if (std::fseek(file, 0, SEEK_END) != 0) return "";
  const long size = std::ftell(file);
  if (size <= 0 || static_cast<std::uint64_t>(size) > std::uint64_t{header.width} * header.height * 3 + 65536)
    return "";
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::rewind(file);
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) return "";
  return bytes;
}

}  // namespace

std::optional<Picture> decodePicture(std::FILE* file, const PictureHeader& header, const PixelSize& most,
                                     const std::string& path) {
  try {
    Picture picture;
    std::string refusal;
    picture.surface = header.format == PictureFormat::Jpeg ? decodeJpeg(file, header, most, refusal)
                                                           : decodeWithPixbuf(file, header.format, most);
    if (!refusal.empty()) logPictureRefusal(refusal, path);
    if (!picture.surface) return std::nullopt;
    const bool scaled = static_cast<std::uint32_t>(cairo_image_surface_get_width(picture.surface.get())) !=
                            header.width ||
                        static_cast<std::uint32_t>(cairo_image_surface_get_height(picture.surface.get())) != header.height;
    if (header.format == PictureFormat::Jpeg && header.plainJpeg && !scaled) picture.jpeg = wholeFile(file, header);
    return picture;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace kps
