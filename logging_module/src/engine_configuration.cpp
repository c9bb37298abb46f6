// The engine's configuration from a properties file, with an optional watch.
#include "engine_configuration.h"

#include <log4cxx/file.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "config_watch.h"
#include "lmx/platform/environment.h"
#include "lmx/platform/text.h"

namespace lmxlog {

using namespace Norvik::Lumetra;

namespace {

std::mutex g_configureLock;
std::atomic<bool> g_configured{false};

// A configuration that reaches no appender is taken as malformed: its messages
// would go nowhere, and the bootstrap has better fallbacks.
bool AnyLoggerHasAppenders() {
  if (!log4cxx::Logger::getRootLogger()->getAllAppenders().empty()) return true;
  for (const auto& logger : log4cxx::LogManager::getCurrentLoggers())
    if (!logger->getAllAppenders().empty()) return true;
  return false;
}

void DefineLogDirectory() {
  const char* defined = std::getenv("LMSDK_LOG_DIR");
  if (defined && *defined) return;
  lmx::platform::WriteEnvironmentVariable(L"LMSDK_LOG_DIR", lmx::platform::Utf8ToWide(DefaultLogDirectory()));
}

}  // namespace

std::string DefaultLogDirectory() {
  namespace fs = std::filesystem;
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && *state) return (fs::path(state) / "lmsdk").string();
  const char* home = std::getenv("HOME");
  if (home && *home) return (fs::path(home) / ".local" / "state" / "lmsdk").string();
  return (lmx::platform::TemporaryDirectory() / "lmsdk").string();
}

Status ConfigureFromFile(const std::wstring& path, int32_t watchDelay) {
  if (path.empty()) return LMX_STATUS_FILE_READ_FAILED;

  std::lock_guard<std::mutex> lock(g_configureLock);
  DefineLogDirectory();
  const log4cxx::File file(path);
  // Read once without a watch, so a malformed file starts no watchdog thread. An
  // unreadable file is reported by the engine on its diagnostic stream (stderr).
  const auto status = log4cxx::PropertyConfigurator::configure(file);
  if (status != log4cxx::spi::ConfigurationStatus::Configured) return LMX_STATUS_FILE_READ_FAILED;
  if (!AnyLoggerHasAppenders()) {
    log4cxx::LogManager::resetConfiguration();
    return LMX_STATUS_INIT_FAILED;
  }
  // One watch per process, the module's own (config_watch.h); a later file is
  // read once.
  if (watchDelay > 0) StartConfigWatch(path, watchDelay);
  g_configured.store(true, std::memory_order_release);
  return LMX_STATUS_NO_ERROR;
}

void ReconfigureFromFile(const std::wstring& path) {
  std::lock_guard<std::mutex> lock(g_configureLock);
  log4cxx::PropertyConfigurator::configure(log4cxx::File(path));
}

bool EngineConfigured() { return g_configured.load(std::memory_order_acquire); }

}  // namespace lmxlog
