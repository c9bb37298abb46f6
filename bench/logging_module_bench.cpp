// The logging module (liblmxlog) against log4cxx called directly: the same INFO
// line through the same kind of file appender and the same pattern layout, and
// the cost of a disabled level. The module is loaded through its export table,
// as the library's bootstrap loads it.
#include <benchmark/benchmark.h>
#include <log4cxx/logger.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "lmxlogging.h"
#include "module_host.h"

using namespace Norvik::Lumetra;

namespace {

constexpr char kMessage[] = "frame 42 converted from YUY2 to BGRA in 1.25 ms";

// Two loggers with an appender each, alike but for the name; writes go to /dev/null
// so the file system does not set the pace. Buffered, so formatting dominates.
constexpr char kProperties[] =
    "log4j.rootLogger=OFF\n"
    "log4j.logger.bench.module=INFO, M\n"
    "log4j.logger.bench.direct=INFO, D\n"
    "log4j.appender.M=org.apache.log4j.FileAppender\n"
    "log4j.appender.M.File=/dev/null\n"
    "log4j.appender.M.BufferedIO=true\n"
    "log4j.appender.M.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.M.layout.ConversionPattern=%d{ISO8601} %-5p %c %f:%L %M - %m%n\n"
    "log4j.appender.D=org.apache.log4j.FileAppender\n"
    "log4j.appender.D.File=/dev/null\n"
    "log4j.appender.D.BufferedIO=true\n"
    "log4j.appender.D.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.D.layout.ConversionPattern=%d{ISO8601} %-5p %c %f:%L %M - %m%n\n";

// The module's logger named "bench.module", configured with kProperties.
LoggingService* ModuleLogger() {
  static LoggingService* logger = [] {
    const auto properties = std::filesystem::temp_directory_path() / "lmx_logging_module_bench.properties";
    std::ofstream(properties) << kProperties;
    static lmxhost::Module module;  // loaded for the whole run
    LoggingService* service = nullptr;
    if (!module.Load(LMX_LOGGING_MODULE) || module.Create(LoggingService::kIid, nullptr, &service) < 0)
      return static_cast<LoggingService*>(nullptr);
    service->Configure(LoggingService::kConfigurePropertiesFile, properties.wstring().c_str(), 0);
    service->SetName(L"bench.module");
    return service->IsConfigured() ? service : nullptr;
  }();
  return logger;
}

void ModuleInfo(benchmark::State& state) {
  LoggingService* logger = ModuleLogger();
  if (!logger) return state.SkipWithError("liblmxlog did not load or configure");
  for (auto _ : state)
    if (logger->IsLevelEnabled(LOG_LEVEL_INFO)) logger->Log(LOG_LEVEL_INFO, kMessage, __FILE__, __LINE__, __func__);
}

void ModuleInfoWide(benchmark::State& state) {
  LoggingService* logger = ModuleLogger();
  if (!logger) return state.SkipWithError("liblmxlog did not load or configure");
  const std::wstring message(std::begin(kMessage), std::end(kMessage) - 1);
  for (auto _ : state)
    if (logger->IsLevelEnabled(LOG_LEVEL_INFO))
      logger->LogW(LOG_LEVEL_INFO, message.c_str(), __FILE__, __LINE__, __func__);
}

// log4cxx's own macro: level check, message stream, location.
void DirectInfo(benchmark::State& state) {
  if (!ModuleLogger()) return state.SkipWithError("liblmxlog did not load or configure");
  const log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("bench.direct");
  for (auto _ : state) LOG4CXX_INFO(logger, kMessage);
}

void DirectInfoWide(benchmark::State& state) {
  if (!ModuleLogger()) return state.SkipWithError("liblmxlog did not load or configure");
  const log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("bench.direct");
  const std::wstring message(std::begin(kMessage), std::end(kMessage) - 1);
  for (auto _ : state) LOG4CXX_INFO(logger, message);
}

void ModuleDisabled(benchmark::State& state) {
  LoggingService* logger = ModuleLogger();
  if (!logger) return state.SkipWithError("liblmxlog did not load or configure");
  for (auto _ : state) {
    const bool enabled = logger->IsLevelEnabled(LOG_LEVEL_DEBUG);
    benchmark::DoNotOptimize(enabled);
    if (enabled) logger->Log(LOG_LEVEL_DEBUG, kMessage, __FILE__, __LINE__, __func__);
  }
}

void DirectDisabled(benchmark::State& state) {
  if (!ModuleLogger()) return state.SkipWithError("liblmxlog did not load or configure");
  const log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("bench.direct");
  for (auto _ : state) LOG4CXX_DEBUG(logger, kMessage);
}

}  // namespace

BENCHMARK(ModuleInfo);
BENCHMARK(ModuleInfoWide);
BENCHMARK(DirectInfo);
BENCHMARK(DirectInfoWide);
BENCHMARK(ModuleDisabled);
BENCHMARK(DirectDisabled);
