// The one page of a copy, as the PDF the scheduler is sent.
#pragma once

#include <cairo.h>
#include <cups/cups.h>

#include <cstdint>
#include <string>

#include "pictures/Picture.h"
#include "printer/PrintDecisions.h"

namespace kps {

// Media-sized, the picture stretched to size.width x size.height hundredths of an inch from the
// top-left corner of the printable area, carried as a JPEG: the picture's own file where it has
// one, else its pixels encoded. Empty on failure, with `code` set: -8 when no page can be made,
// -10 when the picture cannot be drawn on it. The page is whole before any job exists, so a
// failure sends nothing: no blank sheet of photo paper.
std::string renderPage(const Picture& picture, const cups_size_t& media, const PictureSize& size,
                       std::int32_t& code);

}  // namespace kps
