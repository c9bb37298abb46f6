// The process-wide logger and event-log handler, and the logging bootstrap.
#include "lmx_loggers.h"
#include "lmxlogging.h"

namespace lmsdk {

using namespace Norvik::Lumetra;

extern constinit EmptyLogger g_emptyLogger;

LoggingService* LogUtil::logger_ = &g_emptyLogger;

void LogUtil::SetLogger(LoggingService* logger) { logger_ = logger ? logger : &EmptyLogger::Instance(); }

// Until a logger is chosen from the configuration, the library logs nowhere.
void LogUtil::Init(wchar_t*) {
  if (!logger_) logger_ = &EmptyLogger::Instance();
}

LoggerEventHandler& EventLogHandler() {
  static LoggerEventHandler handler;
  return handler;
}

namespace {

// Runs at library load: the event-log handler first, then the logger selection.
struct StartUp {
  StartUp() {
    EventLogHandler();
    LogUtil::Init(nullptr);
  }
} g_startUp;

}  // namespace

}  // namespace lmsdk
