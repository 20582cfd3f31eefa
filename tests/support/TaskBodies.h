// Task lists as the backend sends them.
#pragma once

#include <string>
#include <vector>

namespace kps {

inline std::string task(const std::string& id, const std::string& pic, int copies = 1,
                        const std::string& type = "postcards") {
  std::string key;  // JSON-escaped
  for (const char c : pic) {
    if (c == '\\' || c == '"') key += std::string{'\\', c};
    else if (static_cast<unsigned char>(c) < 0x20) key += "\\u00" + std::string{"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    else key += c;
  }
  return "{\"taskId\":\"" + id + "\",\"pic\":\"" + key + "\",\"businessOrderId\":\"O-" + id +
         "\",\"status\":0,\"number\":" + std::to_string(copies) + ",\"type\":\"" + type + "\"}";
}

inline std::string taskList(const std::vector<std::string>& tasks) {
  std::string data;
  for (const auto& t : tasks) data += (data.empty() ? "" : ",") + t;
  return "{\"code\":\"100\",\"msg\":\"success\",\"data\":[" + data + "]}";
}

}  // namespace kps
