// `--check`, the printer: the one the configured name selects by the service's own rule, whether
// it takes jobs, its condition and media, and whether its driver offers each product type's paper
// and the paper source.
#include <algorithm>
#include <string>
#include <vector>

#include "base/Utf8.h"
#include "ops/Commands.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "upkeep/PrinterWatch.h"

namespace kps::ops {

namespace {

std::string joined(const std::vector<std::string>& items) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : ", ") + item;
  return text.empty() ? "none" : text;
}

// One line for a configured number: what the driver does with it.
void checkChoice(CheckReport& report, const std::string& what, const std::string& setting, const char* noun,
                 const DriverChoice& choice) {
  const std::string value = setting + " " + choice.configured;
  const auto problem = [&](const std::string& found) {
    choice.required ? report.fail(what, found) : report.warn(what, found);
  };
  if (!choice.hasChoice)
    report.ok(what, "the driver has no " + std::string(noun) + " to choose; " + value + " is not sent");
  else if (!choice.named)
    problem(value + " has no name on this platform (see the README's paper table)");
  else if (!choice.offered)
    problem(value + " is not offered by the driver; it offers " + joined(choice.offers));
  else if (choice.cutOrComposite)
    report.warn(what, value + " offered only as the driver's cut or composite " + choice.uses +
                          ": none of its plain papers holds the size");
  else
    report.ok(what, value + " offered" + (choice.uses.empty() ? "" : " as the driver's " + choice.uses));
}

}  // namespace

void checkPrinter(CheckReport& report, const PrinterConfigValues& config) {
  PrinterSettings = printerSettingsFrom(config);  // what the type rules below read
  PrinterManager manager;
  bool failed = false;
  const std::vector<InstalledPrinter> installed = manager.InstalledPrinters(failed);
  const std::string what = "printer \"" + config.PrinterName + "\"";
  if (failed) {
    report.fail(what, "the spooler cannot be asked for its printers");
    return;
  }
  std::vector<std::wstring> all;
  std::vector<std::string> names;
  for (const auto& printer : installed) {
    all.push_back(printer.name);
    names.push_back(wideToUtf8(printer.name));
  }
  // The service's own choice; failing that, the printer it would take were it ready.
  const std::wstring target = utf8ToWide(config.PrinterName);
  std::wstring chosen = manager.FindPrinter(target);
  if (chosen.empty()) chosen = matchPrinter(all, target);
  if (chosen.empty()) {
    report.fail(what, "matches no installed printer; installed: " + joined(names));
    return;
  }
  // Its condition and media, as the upkeep reads them.
  const auto conditionLine = [&] {
    PrinterState state = manager.ReadPrinterState(chosen);
    markMediaLow(state, config.MediaLowPrints);
    const PrinterLine condition = describePrinter(state);
    if (condition.verdict == PrinterLine::Verdict::Ok) report.ok("printer condition", condition.text);
    else if (condition.verdict == PrinterLine::Verdict::Warn) report.warn("printer condition", condition.text);
    else report.fail("printer condition", condition.text);
  };
  const auto found = std::find_if(installed.begin(), installed.end(),
                                  [&](const InstalledPrinter& p) { return p.name == chosen; });
  if (found != installed.end() && !found->ready) {
    report.fail(what, "selects " + wideToUtf8(chosen) + ", which " + found->state);
    conditionLine();
    return;
  }
  report.ok(what, "selects " + wideToUtf8(chosen) + " (ready)");
  conditionLine();

  std::vector<std::pair<const char*, DriverChoice>> papers;
  for (const char* type : {"postcards", "frames", "cardsets", "fridgemagnets"})
    papers.emplace_back(type, manager.PaperChoice(chosen, *paperSizeFor(type, PrinterSettings)));
  if (!papers.front().second.known) {
    report.warn("paper and source", "the driver of " + wideToUtf8(chosen) + " does not say what it offers");
    return;
  }
  for (const auto& [type, choice] : papers)
    checkChoice(report, std::string("paper for ") + type, "paper size", "paper size", choice);
  checkChoice(report, "paper source", "Rearfeeder", "paper source", manager.SourceChoice(chosen, config.Rearfeeder));
  // The media type every copy asks for (the kiosk driver's photo paper), where the platform asks.
  const DriverChoice type = manager.MediaTypeChoice(chosen, 326);
  if (type.known) checkChoice(report, "media type", "media type", "media type", type);
}

}  // namespace kps::ops
