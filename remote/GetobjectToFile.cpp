#include <iostream>

#include "base/Health.h"
#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"

namespace kps {

int RemoteOrderIdManger::GetobjectToFile(const std::string& objectKey, const std::string& filePath) {
  OssError error;
  lastLocalFailure_ = LocalFailure::None;
  if (fetchObjectToFile(ossSettings(), objectKey, filePath, error)) {
    std::cout << "RemoteOrderIdManger::GetobjectToFile" << " success" << std::endl;
    return 0;
  }
  std::cout << "GetObjectToFile fail" << ",code:" << error.code << ",message:" << error.message
            << ",requestId:" << error.requestId << std::endl;
  if (!error.refused.empty()) {
    lastLocalFailure_ = LocalFailure::Refused;
    lastLocalMessage_ = error.refused;
  } else if (error.localWrite) {
    lastLocalFailure_ = error.keyLocal ? LocalFailure::Key : LocalFailure::Machine;
    lastLocalMessage_ = error.message;
  }
  // This machine's disk is not the object store's failure.
  if (!error.localWrite) Health::instance().noteDownloadFailed();
  return 1;
}

}  // namespace kps
