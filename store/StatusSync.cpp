// Status sync: every row whose status changed since it was last reported goes to the backend in
// one JSON array; what a completed exchange carried is stamped with syncTime.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <iostream>

#include "base/Health.h"
#include "base/Log.h"
#include "remote/HttpRequest.h"
#include "store/Database.h"

namespace kps {

void Database::syncStatus(std::string url) {
  SqliteStatement query(db,
                        "SELECT uuid, status, failReason, syncTime, updateTime, completedNumber "
                        "FROM local WHERE (syncTime IS NULL OR updateTime > syncTime) AND status "
                        "!= 0;");
  if (!query.ok()) {
    std::cerr << "Failed to prepare query: " << errorMessage() << std::endl;
    return;
  }
  rapidjson::Document document(rapidjson::kArrayType);
  auto& pool = document.GetAllocator();
  int result;
  while ((result = query.step()) == SQLITE_ROW) {
    const char* uuid = query.text(0);
    const std::int32_t status = query.integer(1);
    const char* failReason = query.text(2);
    const char* syncTime = query.text(3);
    const char* updateTime = query.text(4);
    if (!uuid) continue;  // the primary key is never NULL; nothing to report without it
    // The same test again in memory: an empty syncTime counts as never reported.
    if (syncTime && *syncTime && !(updateTime && std::strcmp(updateTime, syncTime) > 0)) continue;

    rapidjson::Value item(rapidjson::kObjectType);
    item.AddMember("taskId", rapidjson::Value(uuid, pool), pool);
    item.AddMember("status", status, pool);
    item.AddMember("completedNumber", query.integer(5), pool);
    if (status == 4 && failReason)
      item.AddMember("failReason", rapidjson::Value(failReason, pool), pool);
    document.PushBack(item, pool);
  }
  if (result != SQLITE_DONE) std::cerr << "Failed to fetch data: " << errorMessage() << std::endl;
  if (!document.Empty()) postStatus(url, document);
}

void Database::postStatus(const std::string& url, const rapidjson::Document& document) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  document.Accept(writer);
  const std::string body(text.GetString(), text.GetSize());
  logLine(KPS_TAG_DATABASE, __LINE__, "Printer Sending the following data to backend: ", body);

  std::string response;
  const int rows = static_cast<int>(document.Size());
  if (sendRequest(url, body, "POST", response) != 0) {
    std::cout << "URL_UPDATE_PRINTSTATUS ERROR " << std::endl;
    Health::instance().noteSync(rows, "not reached the backend", false);
    return;
  }
  Health::instance().noteSync(rows, "reported", true);
  // Any completed exchange counts as received; the answer is only logged.
  logLine(KPS_TAG_DATABASE, __LINE__, "backend updataDataResponse : ", response);
  for (const auto& item : document.GetArray()) {
    const auto taskId = item.FindMember("taskId");
    if (taskId != item.MemberEnd() && taskId->value.IsString())
      updateSyncTime(std::string(taskId->value.GetString(), taskId->value.GetStringLength()));
  }
}

std::int32_t Database::sendRequest(const std::string& url, const std::string& body,
                                   const char* method, std::string& response) {
  return HttpRequestQuiet(url, body, method, response);
}

}  // namespace kps
