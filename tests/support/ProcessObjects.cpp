// The service's process-wide objects for test programs, which link the libraries without the
// entry point's file (and so without its two stores on PrintData.db).
#include "base/Log.h"
#include "printer/PrinterSettings.h"
#include "store/Runtime.h"

kps::PrinterSettingsRecord kps::PrinterSettings;
std::mutex kps::logMutex;
std::mutex kps::databaseMutex;
std::mutex kps::newOrderMutex;
std::condition_variable kps::newOrderCondition;
bool kps::newOrderFlag = false;
