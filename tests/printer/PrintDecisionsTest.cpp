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
  EXPECT_EQ(waitForJob([&] { ++queries; return JobLook{}; }, fake.clock(), timing), -7);
  EXPECT_EQ(queries, 60);
  EXPECT_NE(log.text().find("] WaitForJobCompletion timed out.\n"), std::string::npos);

  std::deque<JobLook> answers = {{}, {}, {std::nullopt, -3, {}}};
  FakeClock other{5};
  queries = 0;
  EXPECT_EQ(waitForJob([&] { ++queries; auto a = answers.front(); answers.pop_front(); return a; }, other.clock(), timing), -3);
  EXPECT_EQ(queries, 3);
  EXPECT_EQ(other.now, 2005u);
}

// [WaitForPrinter]: a look that finds the printer needing a person ends the wait with the job
// left waiting, the code it would have given kept; the minute counts only the looks that found
// nothing wrong, carried from one wait to the next; the job's own end ends it at once.
TEST(JobWait, ACopyWaitingForAPersonCountsOnlyTheQuietTime) {
  const JobWaitTiming timing{1000, 1000, 60000};
  PrinterState outOfPaper;
  outOfPaper.conditions = {{Condition::MediaEmpty, Severity::Error}};
  PrinterState low;
  low.conditions = {{Condition::MediaLow, Severity::Warning}};
  struct Row {
    const char* name;
    std::uint32_t quietBefore;
    std::vector<JobLook> looks;  // the last one repeats
    std::int32_t code;
    std::uint32_t quietAfter;
    std::int32_t fault;
  };
  const Row rows[] = {
      {"out of paper at the first look", 0, {{std::nullopt, -3, outOfPaper}}, kPrintWaiting, 0, -3},
      {"out of paper after 20 quiet seconds", 0, {{}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {std::nullopt, -3, outOfPaper}},
       kPrintWaiting, 20000, -3},
      {"back, and 40 more quiet seconds to the minute", 20000, {{}}, -7, 60000, 0},
      {"a low supply is nothing wrong", 58000, {{std::nullopt, std::nullopt, low}}, -7, 60000, 0},
      {"printed while the printer reports a fault", 0, {{0, -3, outOfPaper}}, 0, 0, 0},
      {"cancelled at the PC", 59000, {{-1, std::nullopt, {}}}, -1, 59000, 0},
  };
  for (const Row& row : rows) {
    CopyJob copy;
    copy.waitForPerson = true;
    copy.quietMs = row.quietBefore;
    FakeClock clock{100};
    std::size_t next = 0;
    const auto look = [&] { return row.looks[std::min(next++, row.looks.size() - 1)]; };
    EXPECT_EQ(waitForJob(look, clock.clock(), timing, &copy), row.code) << row.name;
    EXPECT_EQ(copy.quietMs, row.quietAfter) << row.name;
    EXPECT_EQ(copy.fault, row.fault) << row.name;
  }
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
