#include "printer/cups/Page.h"

#include <cairo-pdf.h>

#include <new>

#include "pictures/Jpeg.h"
#include "printer/PrinterManager.h"

namespace kps {

namespace {

// High enough that what is printed at the printer's resolution matches the photo; a third of
// the size of the pixels compressed without loss.
constexpr int kPageJpegQuality = 95;

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
  try {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
}

}  // namespace

std::string renderPage(const Picture& picture, const cups_size_t& media, const PictureSize& size,
                       std::int32_t& code) {
  cairo_surface_t* pixels = picture.surface.get();
  // A picture without pixels cannot be scaled: cairo's error, not a blank page.
  std::string encoded;
  if (cairo_surface_status(pixels) == CAIRO_STATUS_SUCCESS && picture.jpeg.empty())
    encoded = encodeJpeg(pixels, kPageJpegQuality);
  const std::string& jpeg = picture.jpeg.empty() ? encoded : picture.jpeg;
  if (jpeg.empty()) {
    code = kPrintDrawing;
    return "";
  }
  const double toPoints = 72.0 / 2540.0;  // hundredths of a millimetre to points
  std::string pdf;
  CairoSurface page(cairo_pdf_surface_create_for_stream(appendToString, &pdf,
                                                        media.width * toPoints,
                                                        media.length * toPoints));
  if (cairo_surface_status(page.get()) != CAIRO_STATUS_SUCCESS) {
    code = kPrintDeviceContext;
    return "";
  }
  // The PDF carries these bytes instead of the pixels; they are taken back before they go.
  cairo_surface_set_mime_data(pixels, CAIRO_MIME_TYPE_JPEG, reinterpret_cast<const unsigned char*>(jpeg.data()),
                              jpeg.size(), nullptr, nullptr);
  Cairo cr(cairo_create(page.get()));
  const double width = size.width * 0.72, height = size.height * 0.72;  // 1/100 in to points
  const double pictureWidth = cairo_image_surface_get_width(pixels);
  const double pictureHeight = cairo_image_surface_get_height(pixels);
  cairo_translate(cr.get(), media.left * toPoints, media.top * toPoints);
  if (width > 0 && height > 0) {
    cairo_rectangle(cr.get(), 0, 0, width, height);
    cairo_clip(cr.get());
    cairo_scale(cr.get(), width / pictureWidth, height / pictureHeight);
    cairo_set_source_surface(cr.get(), pixels, 0, 0);
    cairo_paint(cr.get());
  }
  cairo_show_page(cr.get());
  const bool drawn = cairo_status(cr.get()) == CAIRO_STATUS_SUCCESS;
  cr.reset();
  cairo_surface_finish(page.get());
  cairo_surface_set_mime_data(pixels, CAIRO_MIME_TYPE_JPEG, nullptr, 0, nullptr, nullptr);
  if (!drawn || cairo_surface_status(page.get()) != CAIRO_STATUS_SUCCESS) {
    code = kPrintDrawing;
    return "";
  }
  return pdf;
}

}  // namespace kps
