// The logging module's LoggingService on the engine's loggers.
#include "engine_logger.h"

#include <log4cxx/logmanager.h>
#include <log4cxx/spi/location/locationinfo.h>

#include <type_traits>

#include "engine_configuration.h"
#include "engine_levels.h"
#include "lmx/platform/text.h"

namespace lmxlog {

using namespace Norvik::Lumetra;

namespace {

// The engine's text type is UTF-8 in this build, as the library's narrow messages are.
static_assert(std::is_same_v<log4cxx::LogString, std::string>, "the engine must be built with UTF-8 text");

// Trace lines have no source position; the engine prints "?" and -1 for an unknown one.
constexpr char kNoFile[] = "?";
constexpr int32_t kNoLine = -1;

const char* OrEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void EngineLogger::Bind() {
  if (EngineConfigured()) logger_ = log4cxx::LogManager::getLogger(name_);
}

Status EngineLogger::SetName(const wchar_t* name) {
  if (!name || !*name) return LMX_STATUS_HANDLE_INVALID;
  name_ = lmx::platform::WideToUtf8(name);
  Bind();
  return LMX_STATUS_NO_ERROR;
}

Status EngineLogger::Configure(int32_t kind, const wchar_t* path, int32_t watchDelay) {
  if (kind != kConfigurePropertiesFile) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (!path) return LMX_STATUS_HANDLE_INVALID;
  const Status sts = ConfigureFromFile(path, watchDelay);
  if (sts == LMX_STATUS_NO_ERROR) Bind();
  return sts;
}

bool EngineLogger::IsConfigured() {
  if (!logger_) Bind();  // configured by another of the module's loggers
  return logger_ != nullptr;
}

Status EngineLogger::SetLevel(int32_t level) {
  if (!logger_) return LMX_STATUS_DATA_NOT_INITIALIZED;
  logger_->setLevel(EngineLevel(level));
  return LMX_STATUS_NO_ERROR;
}

// The engine's inline checks compare with the logger's cached threshold first, so a
// disabled level costs no call into the engine.
bool EngineLogger::IsLevelEnabled(int32_t level) {
  using log4cxx::Logger;
  if (level >= LOG_LEVEL_FATAL) return Logger::isFatalEnabledFor(logger_);
  if (level >= LOG_LEVEL_ERROR) return Logger::isErrorEnabledFor(logger_);
  if (level >= LOG_LEVEL_WARN) return Logger::isWarnEnabledFor(logger_);
  if (level >= LOG_LEVEL_INFO) return Logger::isInfoEnabledFor(logger_);
  if (level >= LOG_LEVEL_DEBUG) return Logger::isDebugEnabledFor(logger_);
  if (level >= LOG_LEVEL_TRACE) return Logger::isTraceEnabledFor(logger_);
  return logger_ && logger_->isEnabledFor(EngineLevel(level));
}

int32_t EngineLogger::QueryLevel() {
  return logger_ ? KitLevel(logger_->getEffectiveLevel()) : KitLevel(log4cxx::Level::getOff());
}

void EngineLogger::Emit(int32_t level, const log4cxx::LogString& message, const char* file, int32_t line,
                        const char* function) {
  const char* path = OrEmpty(file);
  const log4cxx::spi::LocationInfo location(path, log4cxx::spi::LocationInfo::calcShortFileName(path),
                                            OrEmpty(function), line);
  logger_->forcedLogLS(EngineLevel(level), message, location);
}

// Narrow messages go to the engine as they are: no conversion, no copy of the format.
void EngineLogger::Log(int32_t level, const char* message, const char* file, int32_t line, const char* function) {
  if (IsLevelEnabled(level)) Emit(level, OrEmpty(message), file, line, function);
}

void EngineLogger::LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char* function) {
  if (IsLevelEnabled(level)) Emit(level, lmx::platform::WideToUtf8(message ? message : L""), file, line, function);
}

void EngineLogger::TraceEnter(int32_t level, const char* function) {
  if (IsLevelEnabled(level)) Emit(level, "enter " + std::string(OrEmpty(function)), kNoFile, kNoLine, function);
}

void EngineLogger::TraceLeave(int32_t level, const char* function) {
  if (IsLevelEnabled(level)) Emit(level, "leave " + std::string(OrEmpty(function)), kNoFile, kNoLine, function);
}

}  // namespace lmxlog
