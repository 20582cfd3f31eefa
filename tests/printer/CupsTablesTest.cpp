#include "printer/cups/CupsTables.h"

#include <gtest/gtest.h>

namespace kps {
namespace {

TEST(CupsTables, WindowsNumbersToPwgNames) {
  EXPECT_EQ(pwgMediaForPaper(9), "iso_a4_210x297mm");
  EXPECT_EQ(pwgMediaForPaper(256), "na_index-4x6_4x6in");
  EXPECT_EQ(pwgMediaForPaper(0), std::nullopt);
  EXPECT_EQ(pwgMediaForPaper(4464), std::nullopt);
  EXPECT_EQ(pwgSourceForBin(15), "rear");
  EXPECT_EQ(pwgSourceForBin(7), "auto");
  EXPECT_EQ(pwgSourceForBin(99), std::nullopt);
  EXPECT_EQ(pwgTypeForMedia(326), "photographic-glossy");
}

TEST(CupsTables, JobStateToResultCode) {
  struct Case {
    const char* name;
    CupsJobView view;
    std::optional<std::int32_t> result;
  };
  const auto view = [](ipp_jstate_t state, std::vector<std::string> jobReasons = {},
                       ipp_pstate_t printer = IPP_PSTATE_PROCESSING,
                       std::vector<std::string> printerReasons = {}) {
    CupsJobView v;
    v.state = state;
    v.jobReasons = std::move(jobReasons);
    v.printerState = printer;
    v.printerReasons = std::move(printerReasons);
    return v;
  };
  CupsJobView gone;
  gone.known = false;
  const Case cases[] = {
      {"completed", view(IPP_JSTATE_COMPLETED, {"processing-to-stop-point"}), 0},
      {"unknown", gone, 0},
      {"canceled", view(IPP_JSTATE_CANCELED), -1},
      {"aborted", view(IPP_JSTATE_ABORTED), -1},
      {"stopped_with_errors", view(IPP_JSTATE_STOPPED, {"job-completed-with-errors"}), -1},
      {"printer_stopped", view(IPP_JSTATE_PENDING, {}, IPP_PSTATE_STOPPED, {"paused"}), -2},
      {"offline", view(IPP_JSTATE_PROCESSING, {}, IPP_PSTATE_PROCESSING, {"offline-report"}), -2},
      {"media_empty", view(IPP_JSTATE_PROCESSING, {}, IPP_PSTATE_PROCESSING, {"media-empty-error"}), -3},
      {"media_needed", view(IPP_JSTATE_PROCESSING, {"media-needed"}), -3},
      {"held", view(IPP_JSTATE_HELD, {"job-hold-until-specified"}, IPP_PSTATE_IDLE), -4},
      {"printing", view(IPP_JSTATE_PROCESSING), std::nullopt},
      {"pending", view(IPP_JSTATE_PENDING, {}, IPP_PSTATE_IDLE), std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(resultForCupsJob(c.view), c.result) << c.name;
}

}  // namespace
}  // namespace kps
