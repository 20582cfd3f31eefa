#include <iostream>

#include "remote/ObjectStore.h"
#include "remote/RemoteOrderIdManger.h"

namespace kps {

int RemoteOrderIdManger::GetobjectToFile(const std::string& objectKey, const std::string& filePath) {
  OssError error;
  lastDownloadLocal_ = false;
  if (fetchObjectToFile(ossSettings(), objectKey, filePath, error)) {
    std::cout << "RemoteOrderIdManger::GetobjectToFile" << " success" << std::endl;
    return 0;
  }
  std::cout << "GetObjectToFile fail" << ",code:" << error.code << ",message:" << error.message
            << ",requestId:" << error.requestId << std::endl;
  lastDownloadLocal_ = error.localWrite;
  return 1;
}

}  // namespace kps
