// `--check`, the printer: the one the configured name selects by the service's own rule, whether
// it takes jobs, and whether its driver offers each product type's paper and the paper source.
#include <algorithm>
#include <string>
#include <vector>

#include "ops/Commands.h"
#include "printer/PrintDecisions.h"
#include "printer/PrinterManager.h"
#include "printer/PrinterSettings.h"
#include "src/Utf8.h"

namespace kps::ops {

namespace {

std::string joined(const std::vector<std::string>& items) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : ", ") + item;
  return text.empty() ? "none" : text;
}

void checkOffered(CheckReport& report, const std::string& what, const std::string& setting,
                  std::int32_t number, const std::optional<std::string>& name,
                  const std::vector<std::string>& offered) {
  const std::string value = setting + " " + std::to_string(number);
  if (!name)
    report.warn(what, value + " has no name on this platform (see the README's paper table)");
  else if (std::find(offered.begin(), offered.end(), *name) == offered.end())
    report.warn(what, value + (*name == std::to_string(number) ? "" : " (" + *name + ")") +
                          " is not offered by the driver; it offers " + joined(offered));
  else
    report.ok(what, value + (*name == std::to_string(number) ? "" : " (" + *name + ")") + " offered");
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
  const auto found = std::find_if(installed.begin(), installed.end(),
                                  [&](const InstalledPrinter& p) { return p.name == chosen; });
  if (found != installed.end() && !found->ready) {
    report.fail(what, "selects " + wideToUtf8(chosen) + ", which " + found->state);
    return;
  }
  report.ok(what, "selects " + wideToUtf8(chosen) + " (ready)");

  const DriverOffer offer = manager.OfferedMedia(chosen);
  if (!offer.known) {
    report.warn("paper and source", "the driver of " + wideToUtf8(chosen) + " does not say what it offers");
    return;
  }
  for (const char* type : {"postcards", "frames", "cardsets", "fridgemagnets"}) {
    const std::int32_t paper = *paperSizeFor(type, PrinterSettings);
    checkOffered(report, std::string("paper for ") + type, "paper size", paper,
                 manager.PaperName(paper), offer.papers);
  }
  checkOffered(report, "paper source", "Rearfeeder", config.Rearfeeder,
               manager.SourceName(config.Rearfeeder), offer.sources);
}

}  // namespace kps::ops
