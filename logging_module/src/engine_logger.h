// engine_logger.h: the LoggingService of the logging module, on the engine's loggers.
//
// Each object is one named engine logger ("lmsdk.liblmxcore" after SetName;
// "lmsdk" until then). Messages go to the engine unformatted, with source file,
// line and function as the engine's location, so layouts print them (%F %L %M)
// and the layout is the only formatting pass. Wide messages become UTF-8.
//
// Until a properties file has configured the engine the logger is silent (every
// level disabled), so nothing reaches the engine's own fallback configuration.
// Thread safety: the logging operations and IsLevelEnabled may be called from any
// thread; SetName and Configure must not race with them (the bootstrap calls them
// before it publishes the logger).
#pragma once

#include <log4cxx/logger.h>

#include <string>

#include "lmximpl.h"
#include "lmxlogging.h"

namespace lmxlog {

class EngineLogger final : public Norvik::Lumetra::BaseImpl<Norvik::Lumetra::LoggingService> {
 public:
  Norvik::Lumetra::Status SetName(const wchar_t* name) override;
  // Kind 2 only: a properties file, and a watch delay in milliseconds (0: no watch).
  Norvik::Lumetra::Status Configure(int32_t kind, const wchar_t* path, int32_t watchDelay) override;
  bool IsConfigured() override;
  Norvik::Lumetra::Status SetLevel(int32_t level) override;
  bool IsLevelEnabled(int32_t level) override;
  int32_t QueryLevel() override;
  void Log(int32_t level, const char* message, const char* file, int32_t line, const char* function) override;
  void LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char* function) override;
  void TraceEnter(int32_t level, const char* function) override;
  void TraceLeave(int32_t level, const char* function) override;
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

 private:
  // Binds the engine logger of name_ once the engine is configured.
  void Bind();
  void Emit(int32_t level, const log4cxx::LogString& message, const char* file, int32_t line, const char* function);

  std::string name_ = "lmsdk";  // UTF-8
  log4cxx::LoggerPtr logger_;   // null until bound
};

}  // namespace lmxlog
