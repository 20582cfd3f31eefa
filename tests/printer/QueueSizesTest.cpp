// The driver's paper for a size: the rule the copy and --check share, on sizes as CUPS gives them.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "printer/cups/QueueMedia.h"

namespace kps {
namespace {

// The driver's paper for a size, at the edges of the rule: a printable area at least the size
// (a hundredth of a millimetre short is rounding), at most 4 mm more on each edge, the smallest
// of those, the first of equals; a plain page before any cut or composite one.
TEST(QueueSizes, TheDriversPaperForASize) {
  const auto size = [](const char* name, int width, int length, int left = 0, int bottom = 0, int right = 0, int top = 0,
                       const char* text = "") {
    QueueSize out;
    out.name = name;
    out.text = text;
    out.size.width = width, out.size.length = length;
    out.size.left = left, out.size.bottom = bottom, out.size.right = right, out.size.top = top;
    return out;
  };
  const std::vector<QueueSize> ds620 = {
      size("B7", 9212, 16256, 0, 1575, 0, 1575),          size("w144h432", 10499, 16256, 5249, 322, 0, 322),
      size("w288h432", 10499, 16256, 0, 322, 0, 322),     size("w288h432-div2", 10499, 16256, 0, 322, 0, 322),
      size("w324h432", 11735, 16256, 0, 322, 0, 322)};
  const std::tuple<std::vector<QueueSize>, int, int, const char*> rows[] = {
      {ds620, 10160, 15240, "w288h432"},  // 4 x 6 in; 2x6 has the same outer size but half the print
      {ds620, 8890, 12700, "B7"},         // 3.5 x 5 in
      {ds620, 21000, 29700, nullptr},     // A4
      {{size("a", 10159, 15240)}, 10160, 15240, "a"},          // a hundredth short: rounding
      {{size("a", 10158, 15240)}, 10160, 15240, nullptr},      // two: smaller paper
      {{size("a", 10960, 16040)}, 10160, 15240, "a"},          // 4 mm more on each edge
      {{size("a", 10961, 15240)}, 10160, 15240, nullptr},      // more than 4 mm
      {{size("big", 10900, 16000), size("small", 10500, 15500)}, 10160, 15240, "small"},
      {{size("bordered", 10160, 15240, 300, 300, 300, 300)}, 10160, 15240, nullptr},  // margins eat the size
      {{}, 10160, 15240, nullptr},
      // Cut and composite twins: a plain page first, whatever the order and the sizes.
      {{size("w288h432-div2", 10499, 16256, 0, 322, 0, 322), size("w288h432", 10499, 16256, 0, 322, 0, 322)}, 10160, 15240,
       "w288h432"},
      {{size("w288h288_w288h144", 10160, 15240), size("w288h432", 10500, 15600)}, 10160, 15240, "w288h432"},
      {{size("4x6.Borderless", 10160, 15240), size("4x6", 10300, 15400)}, 10160, 15240, "4x6"},
      {{size("strips", 10160, 15240, 0, 0, 0, 0, "2x6*2"), size("w288h432", 10160, 15240)}, 10160, 15240, "w288h432"},
      {{size("w288h432", 10464, 15560), size("w288h432-div2", 10531, 15560)}, 10500, 14800, "w288h432-div2"},  // A6
      {{size("w288h432-div2", 10531, 15560), size("w288h432-div3", 10520, 15560)}, 10500, 14800, "w288h432-div3"},
  };
  for (const auto& [sizes, width, length, name] : rows) {
    const QueueSize* chosen = sizeFor(sizes, width, length);
    EXPECT_EQ(chosen ? chosen->name : "none", name ? name : "none") << width << " x " << length;
  }
}

}  // namespace
}  // namespace kps
