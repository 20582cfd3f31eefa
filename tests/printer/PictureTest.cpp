// Picture files as the CUPS layer decodes them: what GDI+ prints must print here too; what is
// not a whole picture must not.
#include "printer/cups/Picture.h"
#include "printer/cups/Page.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

// Each case makes p.* from good.jpg (40 x 60, red left, blue right) with a shell command run in
// its folder, and names the file to load.
TEST(BadInput, PictureFiles) {
  const std::string cut = "head -c $(( $(stat -c %s good.jpg) ";
  const std::tuple<const char*, std::string, std::string, bool> cases[] = {
      {"good JPEG", "true", "good.jpg", true},
      {"CMYK JPEG", "convert good.jpg -colorspace CMYK p.jpg", "p.jpg", true},
      {"PNG named .jpg", "convert good.jpg png:p.jpg", "p.jpg", true},
      {"BMP", "convert good.jpg p.bmp", "p.bmp", true},
      {"GIF", "convert good.jpg p.gif", "p.gif", true},
      {"TIFF", "convert good.jpg p.tiff", "p.tiff", true},
      {"JPEG with stray bytes before its end marker",
       cut + "- 2 )) good.jpg > p.jpg && head -c 3 /dev/zero >> p.jpg && tail -c 2 good.jpg >> p.jpg", "p.jpg", true},
      {"truncated JPEG", cut + "/ 2 )) good.jpg > p.jpg", "p.jpg", false},
      {"JPEG header only", "head -c 20 good.jpg > p.jpg", "p.jpg", false},
      {"truncated PNG", "convert good.jpg x.png && head -c 40 x.png > p.png", "p.png", false},
      {"zero bytes", ": > p.jpg", "p.jpg", false},
      {"text named .jpg", "echo not a picture at all > p.jpg", "p.jpg", false},
      {"a folder", "mkdir p.jpg", "p.jpg", false},
      {"missing", "true", "none.jpg", false},
  };
  for (const auto& [name, make, file, loads] : cases) {
    TempDir dir;
    ASSERT_TRUE(writeTestJpeg(dir.file("good.jpg"), 40, 60));
    ASSERT_EQ(sh("cd " + dir.path() + " && " + make), 0) << name;
    const CairoSurface picture = loadPicture(dir.file(file));
    ASSERT_EQ(static_cast<bool>(picture), loads) << name;
    if (!picture) continue;
    const auto* row = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(picture.get()));
    EXPECT_EQ(row[0] & 0xF0F0F0, 0xF00000u) << name;   // red on the left
    EXPECT_EQ(row[39] & 0xF0F0F0, 0x0000F0u) << name;  // blue on the right
  }
}

// A picture cairo cannot draw (here wider than the 32767 pixels it holds) gives no page at all,
// so no job is made: -10 without a sheet, where Windows ends the page and may feed a blank one.
TEST(BadInput, APictureThatCannotBeDrawnGivesNoPage) {
  const cups_size_t media{"na_index-4x6_4x6in", 10160, 15240, 0, 0, 0, 0};
  for (const auto& [width, code] : {std::pair{40, 0}, {40000, -10}}) {
    const CairoSurface picture(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, 60));
    std::int32_t result = 0;
    const std::string pdf = renderPage(picture.get(), media, PictureSize{370, 570}, result);
    EXPECT_EQ(result, code) << width;
    EXPECT_EQ(pdf.rfind("%PDF-", 0) == 0, code == 0) << width;
  }
}

}  // namespace
}  // namespace kps
