#include "printer/cups/Page.h"

#include <cairo-pdf.h>

#include "printer/PrinterManager.h"
#include "printer/cups/Picture.h"

namespace kps {

namespace {

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

std::string renderPage(cairo_surface_t* picture, const cups_size_t& media, const PictureSize& size,
                       std::int32_t& code) {
  const double toPoints = 72.0 / 2540.0;  // hundredths of a millimetre to points
  std::string pdf;
  CairoSurface page(cairo_pdf_surface_create_for_stream(appendToString, &pdf,
                                                        media.width * toPoints,
                                                        media.length * toPoints));
  if (cairo_surface_status(page.get()) != CAIRO_STATUS_SUCCESS) {
    code = kPrintDeviceContext;
    return "";
  }
  Cairo cr(cairo_create(page.get()));
  const double width = size.width * 0.72, height = size.height * 0.72;  // 1/100 in to points
  const double pictureWidth = cairo_image_surface_get_width(picture);
  const double pictureHeight = cairo_image_surface_get_height(picture);
  cairo_translate(cr.get(), media.left * toPoints, media.top * toPoints);
  if (width > 0 && height > 0) {
    cairo_rectangle(cr.get(), 0, 0, width, height);
    cairo_clip(cr.get());
    // A picture without pixels cannot be scaled: cairo's error, not a blank page.
    cairo_scale(cr.get(), width / pictureWidth, height / pictureHeight);
    cairo_set_source_surface(cr.get(), picture, 0, 0);
    cairo_paint(cr.get());
  }
  cairo_show_page(cr.get());
  const bool drawn = cairo_status(cr.get()) == CAIRO_STATUS_SUCCESS;
  cr.reset();
  cairo_surface_finish(page.get());
  if (!drawn || cairo_surface_status(page.get()) != CAIRO_STATUS_SUCCESS) {
    code = kPrintDrawing;
    return "";
  }
  return pdf;
}

}  // namespace kps
