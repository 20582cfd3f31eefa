#include "upkeep/StatusFile.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "base/FilePath.h"
#include "base/Health.h"
#include "base/Log.h"
#include "Deployment.h"
#include "upkeep/PrinterWatch.h"
#include "store/StoreReader.h"

namespace kps {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void exchange(Writer& json, const char* name, const ExchangeNote& note, bool rows) {
  json.Key(name);
  if (note.time.empty()) {
    json.Null();
    return;
  }
  json.StartObject();
  json.Key("time"), json.String(note.time.c_str());
  if (rows) json.Key("rowsSent"), json.Int(note.rows);
  json.Key("outcome"), json.String(note.outcome.c_str());
  json.EndObject();
}

// Orders are taken in in row order and finish soon after, and a copy takes more than a minute:
// a day's orders lie among the newest 2 000 rows. Looking at those alone keeps a store of a
// million orders as cheap as a new one.
const char* const kRecent = "local ORDER BY rowid DESC LIMIT 2000";

}  // namespace

StatusFile::StatusFile(std::string path, PrinterWatch& printer, std::string storePath)
    : UpkeepFile(std::move(path), std::chrono::minutes(1), "status file", printer, std::move(storePath)) {}

std::string StatusFile::render(std::time_t now, std::chrono::steady_clock::time_point tick) {
  rapidjson::StringBuffer text;
  Writer json(text);
  json.StartObject();
  json.Key("time"), json.String(localTimeString(now).c_str());
  json.Key("version"), json.String(deployment::kVersion);
  exchange(json, "lastPoll", Health::instance().lastPoll(), false);
  exchange(json, "lastSync", Health::instance().lastSync(), true);

  const PrinterState& printer = watch().state(tick);
  const auto optionalText = [&](const std::string& text) { text.empty() ? json.Null() : json.String(text.c_str()); };
  json.Key("printer"), json.StartObject();
  json.Key("name"), optionalText(printer.known ? printer.name : "");
  json.Key("ready"), json.Bool(printer.ready());
  json.Key("conditions"), json.StartArray();
  for (const ConditionSeen& seen : printer.conditions) json.String(conditionWord(seen.condition));
  json.EndArray();
  json.Key("message"), optionalText(printer.message);
  json.Key("media"), optionalText(printer.media ? printer.media->name : "");
  json.Key("remainingPrints");
  if (printer.media && printer.media->remainingPrints) json.Int(*printer.media->remainingPrints);
  else json.Null();
  json.EndObject();

  StoreReader& store = this->store();
  const auto [pending, oldest] = store.pendingOrders();
  json.Key("pending"), json.StartObject();
  json.Key("count"), json.Int64(pending);
  json.Key("oldestAgeSeconds"), oldest < 0 ? json.Null() : json.Int64(oldest);
  json.EndObject();
  const auto today = store.rows(std::string("SELECT ifnull(sum(status = 2 AND updateTime >= ?1), 0), "
                                            "ifnull(sum(status = 4 AND updateTime >= ?1), 0) FROM (SELECT status, updateTime FROM ") +
                                    kRecent + ")",
                                {localTimeString(now).substr(0, 10)});
  json.Key("today"), json.StartObject();
  json.Key("printed"), json.Int64(today.empty() ? 0 : std::stoll(today[0][0]));
  json.Key("failed"), json.Int64(today.empty() ? 0 : std::stoll(today[0][1]));
  json.EndObject();
  const auto last = store.rows(std::string("SELECT updateTime, uuid, failReason FROM (SELECT status, updateTime, uuid, "
                                           "failReason FROM ") + kRecent + ") WHERE status = 4 ORDER BY updateTime DESC LIMIT 1");
  json.Key("lastFailure");
  if (last.empty()) {
    json.Null();
  } else {
    json.StartObject();
    json.Key("time"), json.String(last[0][0].c_str());
    json.Key("task"), json.String(last[0][1].c_str());
    json.Key("failReason"), json.String(last[0][2].c_str());
    json.EndObject();
  }
  if (!store.error().empty()) json.Key("storeError"), json.String(store.error().c_str());
  json.EndObject();
  return std::string(text.GetString(), text.GetSize()) + "\n";
}

}  // namespace kps
