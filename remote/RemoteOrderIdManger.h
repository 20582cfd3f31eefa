// The intake's store object: a Database with the task intake and the picture download.
#pragma once

#include <string>

#include "src/Database.h"

namespace kps {

class RemoteOrderIdManger : public Database {
 public:
  using Database::Database;
};

}  // namespace kps
