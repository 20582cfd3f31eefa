#include "upkeep/PrinterWatch.h"

#include <algorithm>

#include "base/Log.h"
#include "base/Utf8.h"
#include "printer/PrinterManager.h"

namespace kps {

void markMediaLow(PrinterState& state, std::int32_t lowPrints) {
  // None left is out of media, whether or not the driver has said so yet (it says so when the
  // next job starts); empty is not low.
  if (state.media && state.media->remainingPrints == 0 && !state.has(Condition::MediaEmpty))
    state.conditions.push_back({Condition::MediaEmpty, Severity::Error});
  if (!state.media || state.has(Condition::MediaLow) || state.has(Condition::MediaEmpty) ||
      state.has(Condition::MarkerSupplyEmpty))
    return;
  const MediaReport& media = *state.media;
  const bool low = media.remainingPrints ? lowPrints > 0 && *media.remainingPrints <= lowPrints : media.low;
  if (low) state.conditions.push_back({Condition::MediaLow, Severity::Warning});
}

PrinterLine describePrinter(const PrinterState& state) {
  using Verdict = PrinterLine::Verdict;
  if (!state.known) return {Verdict::Fail, "not found"};
  if (state.needsPerson()) return {Verdict::Fail, "needs a person: " + state.needsPersonText()};
  std::string media;
  if (state.media && state.media->remainingPrints) {
    const std::int32_t prints = *state.media->remainingPrints;
    media = std::to_string(prints) + (prints == 1 ? " print" : " prints") + " remaining" +
            (state.media->name.empty() ? "" : " on " + state.media->name + " media");
  } else if (state.media && state.media->levelPercent) {
    media = (state.media->name.empty() ? std::string("media") : state.media->name) + " at " +
            std::to_string(*state.media->levelPercent) + " %";
  }
  if (state.has(Condition::MediaLow)) return {Verdict::Warn, "media low" + (media.empty() ? "" : ": " + media)};
  return {Verdict::Ok, "ready" + (media.empty() ? "" : ", " + media)};
}

PrinterWatch::PrinterWatch(std::string printerName, std::int32_t mediaLowPrints, Read read)
    : printerName_(std::move(printerName)), mediaLowPrints_(mediaLowPrints), read_(std::move(read)) {
  if (!read_) read_ = [](const std::wstring& name) { return PrinterManager().ReadPrinterState(name); };
}

const PrinterState& PrinterWatch::state(std::chrono::steady_clock::time_point now) {
  using namespace std::chrono_literals;
  if (lastRead_ && now - *lastRead_ < 60s) return state_;
  lastRead_ = now;
  state_ = read_(utf8ToWide(printerName_));
  markMediaLow(state_, mediaLowPrints_);
  // Said when it changes, never once a look.
  std::string words;
  for (const ConditionSeen& seen : state_.conditions) words += (words.empty() ? "" : ", ") + std::string(conditionWord(seen.condition));
  const std::string seen = !state_.known ? "not found" : words.empty() ? "ready" : words;
  if (seen != said_) logLine(KPS_TAG_TASK, __LINE__, "printer condition: ", seen);
  said_ = seen;
  return state_;
}

}  // namespace kps
