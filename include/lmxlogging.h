// lmxlogging.h: the LoggingService interface, its levels, and the process-wide logger.
//
// A message is shown when its level is at least the logger's threshold. All logging
// of the library goes through the one global logger, which is never null: until the
// logging bootstrap has chosen one it is the static EmptyLogger.
#pragma once

#include <cstdint>

#include "lmxbase.h"

namespace Norvik::Lumetra {

enum LogLevel : int32_t {
  LOG_LEVEL_VERBOSE = 2500,
  LOG_LEVEL_TRACE = 5000,
  LOG_LEVEL_DEBUG = 10000,
  LOG_LEVEL_INFO = 20000,
  LOG_LEVEL_WARN = 30000,
  LOG_LEVEL_ERROR = 40000,
  LOG_LEVEL_FATAL = 50000,
};

// Slots: 0 QueryInstance, 1 Release, 2 SetName, 3 Configure, 4 IsConfigured,
// 5 SetLevel, 6 IsLevelEnabled, 7 QueryLevel, 8 Log, 9 LogW, 10 TraceEnter,
// 11 TraceLeave, 12 Destroy.
// Implementations are safe for concurrent calls.
class LoggingService : public Base {
 public:
  static constexpr InterfaceId kIid = 0x3870DB28;
  static constexpr InterfaceId kIid2 = 0x3870DB29;

  // Kind 2 of Configure names a properties file.
  static constexpr int32_t kConfigurePropertiesFile = 2;

  virtual Status SetName(const wchar_t* name) = 0;
  virtual Status Configure(int32_t kind, const wchar_t* path, int32_t watchDelay) = 0;
  virtual bool IsConfigured() = 0;
  virtual Status SetLevel(int32_t level) = 0;
  virtual bool IsLevelEnabled(int32_t level) = 0;
  virtual int32_t QueryLevel() = 0;
  virtual void Log(int32_t level, const char* message, const char* file, int32_t line, const char* function) = 0;
  virtual void LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char* function) = 0;
  virtual void TraceEnter(int32_t level, const char* function) = 0;
  virtual void TraceLeave(int32_t level, const char* function) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LoggingService() = default;
};

// The printed name of a level ("VERBOSE" ... "FATAL"); empty for any other number.
const char* LogLevelName(int32_t level);

}  // namespace Norvik::Lumetra

namespace lmsdk {

class LogUtil {
 public:
  // The process-wide logger; never null.
  static Norvik::Lumetra::LoggingService* GetLogger() { return logger_; }
  // Replaces the process-wide logger (null restores the EmptyLogger). For the
  // bootstrap and for tests that capture log lines; not synchronised with logging.
  static void SetLogger(Norvik::Lumetra::LoggingService* logger);

  // Chooses and installs the logger at library start (registry, environment,
  // properties file); defined by the logging bootstrap.
  static void Init(wchar_t* reserved);

 private:
  static Norvik::Lumetra::LoggingService* logger_;
};

}  // namespace lmsdk
