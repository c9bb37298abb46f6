// The process-wide logger and event-log handler, and the bootstrap's loading of the
// external logging module (its line names this file).
#include <new>
#include <sstream>
#include <system_error>

#include "lmx/platform/module.h"
#include "lmx_loggers.h"
#include "lmxlogging.h"
#include "lmxutils.h"
#include "log_bootstrap.h"
#include "log_bootstrap_paths.h"

namespace lmsdk {

using namespace Norvik::Lumetra;
using Norvik::Lumetra::Service::DLLExportTable;
using Norvik::Lumetra::Service::SessionService;

extern constinit EmptyLogger g_emptyLogger;

LoggingService* LogUtil::logger_ = &g_emptyLogger;

namespace {
// The logging module stays loaded for the process's lifetime.
lmx::platform::ModuleHandle g_loggingModule = nullptr;
// A logger Init made itself (the forced debugger output); freed when the library
// is unloaded if it is still the global logger.
LoggingService* g_ownLogger = nullptr;
}  // namespace

void LogUtil::SetLogger(LoggingService* logger) { logger_ = logger ? logger : &EmptyLogger::Instance(); }

// Runs once at library start. The global logger stays the EmptyLogger while the
// choice is made, so it is never null, not even during Init.
void LogUtil::Init(wchar_t*) {
  log_bootstrap::BootstrapResult result =
      log_bootstrap::SelectLogger(log_bootstrap::ProcessBootstrapContext(), LMX_FUNCSIG);
  if (result.module) g_loggingModule = result.module;
  if (!result.module && result.logger != &EmptyLogger::Instance()) g_ownLogger = result.logger;
  SetLogger(result.logger);
}

namespace log_bootstrap {

namespace {

// Creates the logger from the first entry of the module's table; null if the
// module offers none.
LoggingService* CreateExternalLogger(const DLLExportTable* table) {
  if (!table->factory) return nullptr;
  Base* object = nullptr;
  const Status sts =
      table->factory(nullptr, nullptr, nullptr, const_cast<DLLExportTable*>(table), LoggingService::kIid, &object);
  // A failed factory leaves the result untouched by convention; it is not released.
  if (sts < LMX_STATUS_NO_ERROR || !object) return nullptr;
  auto* logger = static_cast<LoggingService*>(object->QueryInstance(LoggingService::kIid));
  if (!logger) object->Release();
  return logger;
}

}  // namespace

void LoadExternalLogger(const BootstrapContext& context, const PropertiesFile& properties, const char* function,
                        BootstrapResult& result) {
  for (const auto& candidate : LoggingModuleCandidates(context)) {
    result.module = lmx::platform::LoadModule(ToPath(candidate));
    if (result.module) {
      result.modulePath = candidate;
      break;
    }
  }
  if (!result.module) {
    const std::string text = "failed to load " + lmx::platform::SharedLibraryFileName("liblmxlog").string();
    if (context.reportEvent) context.reportEvent(text.c_str());
    return;
  }

  const DLLExportTable* table = FindExportTable(result.module);
  LoggingService* logger = table ? CreateExternalLogger(table) : nullptr;
  if (!logger) return;

  if (!logger->IsConfigured()) {
    logger->Configure(LoggingService::kConfigurePropertiesFile, properties.path.c_str(),
                      static_cast<int32_t>(properties.watchDelay));
    if (!logger->IsConfigured()) {
      logger->Release();
      return;
    }
  }
  const std::wstring name = L"lmsdk." + context.moduleName;
  logger->SetName(name.c_str());
  if (logger->IsLevelEnabled(LOG_LEVEL_INFO)) {
    std::wostringstream message;
    message << L"Logger '" << name << L"' created with level " << logger->QueryLevel();
    logger->LogW(LOG_LEVEL_INFO, message.str().c_str(), __FILE__, __LINE__, function);
  }
  result.logger = logger;
  result.source = LoggerSource::kExternalModule;
}

}  // namespace log_bootstrap

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
  ~StartUp() {
    if (g_ownLogger && LogUtil::GetLogger() == g_ownLogger) {
      LogUtil::SetLogger(nullptr);
      g_ownLogger->Release();
    }
  }
} g_startUp;

}  // namespace

}  // namespace lmsdk
