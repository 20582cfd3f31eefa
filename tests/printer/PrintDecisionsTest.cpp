// The printing decisions that do not need a spooler.
#include "printer/PrintDecisions.h"

#include <gtest/gtest.h>

#include <deque>
#include <tuple>

#include "tests/support/OutputWatcher.h"

namespace kps {
namespace {

using namespace std::chrono_literals;

TEST(MatchPrinter, SubstringFirstUnmarkedElseFirstMarked) {
  const std::wstring copy = L"Studio A" + kCopyNameMarker;
  const std::wstring copy2 = L"Studio A 2" + kCopyNameMarker;
  const std::tuple<std::vector<std::wstring>, std::wstring, std::wstring> cases[] = {
      {{L"Studio A (copy 1)", L"Studio A"}, L"Studio A", L"Studio A (copy 1)"},
      {{copy, L"Studio A"}, L"Studio A", L"Studio A"},
      {{copy, copy2}, L"Studio A", copy},
      {{copy2, L"Other"}, L"Studio A", copy2},
      {{L"Other", L"Studio B"}, L"", L"Other"},
      {{L"Studio"}, L"Studio A", L""},
      {{L"studio a"}, L"Studio A", L""},  // case-sensitive
      {{}, L"Studio A", L""},
      {{L"A"}, L"A", L"A"},  // shorter than the marker
  };
  for (const auto& [names, target, expected] : cases) EXPECT_EQ(matchPrinter(names, target), expected);
}

TEST(ProductTables, PaperAndPictureByType) {
  PrinterSettingsRecord s;
  s.fourWidth = 100, s.fourHeight = 150, s.threeWidth = 5, s.threeHeight = 7, s.fourSize = 70000, s.threeSize = 12;
  const std::pair<const char*, std::string> cases[] = {
      {"postcards", "70000 370x570"}, {"frames", "70000 370x570"},
      {"cardsets", "12 370x570"},  // Three paper, Four picture
      {"fridgemagnets", "12 18x26"},  // 18.5 and 26.6 truncated
      {"Postcards", "- -"}, {"postcards ", "- -"}, {"", "- -"}};
  for (const auto& [type, expected] : cases) {
    const auto paper = paperSizeFor(type, s);
    const auto picture = pictureSizeFor(type, s);
    EXPECT_EQ((paper ? std::to_string(*paper) : "-") + " " +
                  (picture ? std::to_string(picture->width) + "x" + std::to_string(picture->height) : "-"),
              expected) << type;
  }
  s.fourWidth = -3;  // toward zero, not down
  EXPECT_EQ(pictureSizeFor("frames", s)->width, -11);
  EXPECT_EQ(static_cast<std::int16_t>(*paperSizeFor("frames", s)), 4464);
}

TEST(JobStatus, WordToResultInItsOrder) {
  const std::pair<std::uint32_t, std::optional<std::int32_t>> cases[] = {
      {0, 0},          {0x80, 0},      {0x80 | 0x2, 0}, {0x2, -1},  {0x4, -1},
      {0x100, -1},     {0x2 | 0x20, -1}, {0x20, -2},    {0x40, -3}, {0x20 | 0x40, -2},
      {0x400, -4},     {0x10, std::nullopt}, {0x8, std::nullopt}, {0x1, std::nullopt}, {0x200, std::nullopt},
  };
  for (const auto& [status, result] : cases) EXPECT_EQ(resultForJobStatus(status), result) << status;  // 0x10 printing,
  // 0x8 spooling, 0x1 paused, 0x200 blocked: no result yet
}

// A tick clock that moves only when the wait sleeps.
struct FakeClock {
  std::uint32_t now;
  JobWaitClock clock() {
    return {[this] { return now; }, [this](std::uint32_t ms) { now += ms; }};
  }
};

TEST(JobWait, PollsOnceASecondUntilAFinalCodeOrTheLimit) {
  const JobWaitTiming timing{1000, 1000, 60000};
  FakeClock fake{0xFFFFFFFFu - 30000};  // the tick counter wraps half-way through
  int queries = 0;
  OutputWatcher log;
  EXPECT_EQ(waitForJob([&]() -> std::optional<std::int32_t> { ++queries; return std::nullopt; }, fake.clock(), timing), -7);
  EXPECT_EQ(queries, 60);
  EXPECT_NE(log.text().find("] WaitForJobCompletion timed out.\n"), std::string::npos);

  std::deque<std::optional<std::int32_t>> answers = {std::nullopt, std::nullopt, -3};
  FakeClock other{5};
  queries = 0;
  EXPECT_EQ(waitForJob([&] { ++queries; auto a = answers.front(); answers.pop_front(); return a; }, other.clock(), timing), -3);
  EXPECT_EQ(queries, 3);
  EXPECT_EQ(other.now, 2005u);
}

TEST(WideText, Utf8RoundTripAndRepair) {
  const std::string text = "Studio \xE7\x85\xA7\xE7\x89\x87 \xF0\x9F\x93\xB7";
  EXPECT_EQ(wideToUtf8(utf8ToWide(text)), text);
  EXPECT_EQ(utf8ToWide("a\xFF" "b"), L"a\xFFFD" L"b");
  EXPECT_EQ(utf8ToWide("\xE7\x85"), L"\xFFFD");             // cut short
  EXPECT_EQ(utf8ToWide("\xC0\xAF"), L"\xFFFD");             // overlong '/'
  EXPECT_EQ(utf8ToWide("\xED\xA0\x80"), L"\xFFFD");         // a surrogate
  EXPECT_EQ(wideToUtf8(kCopyNameMarker), "(\xE9\x8D\x93\xEE\x88\x9B\xE6\xB9\xB0)");
}

}  // namespace
}  // namespace kps
