// EmptyLogger and the level names shared by every logger.
#include "lmx_loggers.h"

namespace Norvik::Lumetra {

const char* LogLevelName(int32_t level) {
  switch (level) {
    case LOG_LEVEL_VERBOSE:
      return "VERBOSE";
    case LOG_LEVEL_TRACE:
      return "TRACE";
    case LOG_LEVEL_DEBUG:
      return "DEBUG";
    case LOG_LEVEL_INFO:
      return "INFO";
    case LOG_LEVEL_WARN:
      return "WARN";
    case LOG_LEVEL_ERROR:
      return "ERROR";
    case LOG_LEVEL_FATAL:
      return "FATAL";
  }
  return "";
}

}  // namespace Norvik::Lumetra

namespace lmsdk {

using namespace Norvik::Lumetra;

void* EmptyLogger::QueryInstance(InterfaceId iid) {
  if (iid == 0 || iid == LoggingService::kIid || iid == LoggingService::kIid2)
    return static_cast<LoggingService*>(this);
  return nullptr;
}

// Constant-initialised, so it is usable by static initialisers of any translation unit.
constinit EmptyLogger g_emptyLogger;

EmptyLogger& EmptyLogger::Instance() { return g_emptyLogger; }

}  // namespace lmsdk
