// The logging bootstrap: the choice of the logger (SelectLogger), and its registry
// reads, names and properties file.
#include "log_bootstrap.h"

#include <cstdio>
#include <new>
#include <fstream>
#include <system_error>
#include <type_traits>

#include "lmx/platform/registry.h"
#include "lmx/platform/text.h"
#include "lmx_loggers.h"
#include "log_bootstrap_paths.h"

namespace lmsdk::log_bootstrap {

using lmx::platform::RegistryKey;
using lmx::platform::RegistryView;
using namespace Norvik::Lumetra;

namespace {

constexpr wchar_t kLoggingKey[] = L"Software\\Norvik\\LMSDK\\Logging";
constexpr wchar_t kLoggingKey32[] = L"Software\\Wow6432Node\\Norvik\\LMSDK\\Logging";
constexpr wchar_t kDispatchKey[] = L"Software\\Norvik\\LMSDK\\Dispatch";
constexpr wchar_t kDispatchKey32[] = L"Software\\Wow6432Node\\Norvik\\LMSDK\\Dispatch";
constexpr wchar_t kPropertiesFileName[] = L"lmxlog.properties";

std::wstring CutAtFirst(std::wstring text, std::wstring_view suffix) {
  const size_t at = text.find(suffix);
  if (at != std::wstring::npos) text.resize(at);
  return text;
}

}  // namespace

std::filesystem::path ToPath(const std::wstring& text) {
  if constexpr (std::is_same_v<std::filesystem::path::value_type, wchar_t>) {
    return std::filesystem::path(text);
  } else {
    return std::filesystem::path(lmx::platform::WideToUtf8(text));
  }
}

std::wstring ToWide(const std::filesystem::path& path) {
  if constexpr (std::is_same_v<std::filesystem::path::value_type, wchar_t>) {
    return path.wstring();
  } else {
    return lmx::platform::Utf8ToWide(path.string());
  }
}

bool FileExists(const std::wstring& path) {
  if (path.empty()) return false;
  std::error_code error;
  const auto status = std::filesystem::status(ToPath(path), error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

std::wstring ModuleNameFromPath(std::wstring_view path) {
  const size_t separator = path.find_last_of(L"\\/");
  std::wstring name(separator == std::wstring_view::npos ? path : path.substr(separator + 1));
  name = CutAtFirst(std::move(name), L".dll");
  name = CutAtFirst(std::move(name), L".exe");
  // ".so" on POSIX; ".dll" again (already cut) on Windows.
  return CutAtFirst(std::move(name), ToWide(lmx::platform::SharedLibraryFileName("x").extension()));
}

int32_t LevelFromName(std::wstring_view name) {
  struct Named {
    const wchar_t* name;
    int32_t level;
  };
  static constexpr Named kLevels[] = {
      {L"FATAL", LOG_LEVEL_FATAL},     {L"ERROR", LOG_LEVEL_ERROR}, {L"WARN", LOG_LEVEL_WARN},
      {L"INFO", LOG_LEVEL_INFO},       {L"DEBUG", LOG_LEVEL_DEBUG}, {L"TRACE", LOG_LEVEL_TRACE},
      {L"VERBOSE", LOG_LEVEL_VERBOSE},
  };
  for (const auto& entry : kLevels)
    if (name == entry.name) return entry.level;
  return LOG_LEVEL_INFO;
}

std::optional<std::wstring> ReadDebugViewLevel(const std::wstring& moduleName) {
  for (RegistryView view : {RegistryView::kDefault, RegistryView::k32Bit}) {
    const RegistryKey key = RegistryKey::OpenLocalMachine(kLoggingKey, view);
    std::optional<std::wstring> value;
    if (!moduleName.empty()) value = key.ReadString(moduleName);
    if (!value) value = key.ReadString(L"DebugView");
    if (value) return value;
  }
  return std::nullopt;
}

std::optional<PropertiesFile> FindPropertiesFile(const BootstrapContext& context) {
  struct Row {
    const wchar_t* key;
    const wchar_t* value;
    bool localRuntime;
  };
  static constexpr Row kRows[] = {
      {kLoggingKey, L"ConfigFile", false},
      {kLoggingKey32, L"ConfigFile", false},
      {kDispatchKey, L"LocalRuntime", true},
      {kDispatchKey32, L"LocalRuntime", true},
  };
  for (const auto& row : kRows) {
    std::optional<std::wstring> value;
    uint32_t watchDelay = 0;
    {
      const RegistryKey key = RegistryKey::OpenLocalMachine(row.key);
      value = key.ReadString(row.value);
      if (value) watchDelay = key.ReadDword(L"ConfigWatchDelay").value_or(0);
    }
    if (!value) continue;

    std::wstring path;
    if (row.localRuntime) {
      // A local runtime keeps its configuration four levels above its binaries.
      if (context.runtimeDirectory.empty()) continue;
      path = context.runtimeDirectory + NativeSeparators(L"..\\..\\..\\..\\config\\") + kPropertiesFileName;
    } else {
      path = NativeSeparators(*value);
      if (!path.empty() && path.front() == L'.') path = context.executableDirectory + path;
    }
    if (FileExists(path)) return PropertiesFile{path, watchDelay};
  }
  return std::nullopt;
}

std::wstring GeneratedPropertiesPath(const BootstrapContext& context) {
  if (context.temporaryDirectory.empty()) return {};
  std::wstring directory = context.temporaryDirectory;
  if (!EndsWithSeparator(directory)) directory.push_back(kSeparator);
  return directory + L"lmsdk_logs" + kSeparator + kPropertiesFileName;
}

bool WriteDefaultProperties(const std::wstring& path) {
  if (path.empty()) return false;
  // The text goes through a printf-style formatter, so "%%m" lands as "%m".
  char text[512];
  const int length = std::snprintf(text, sizeof text,
                                   "log4j.rootLogger = TRACE, QTR\n"
                                   "log4j.appender.QTR=org.apache.log4j.QTRAppender\n"
                                   "log4j.appender.QTR.layout=org.apache.log4j.PatternLayout\n"
                                   "log4j.appender.QTR.layout.ConversionPattern=%%m\n");
  if (length < 0 || static_cast<size_t>(length) >= sizeof text) return false;
  std::ofstream file(ToPath(path), std::ios::out | std::ios::trunc);  // text mode
  if (!file) return false;
  file.write(text, length);
  file.close();
  return !file.fail();
}

BootstrapResult SelectLogger(const BootstrapContext& context, const char* function) {
  BootstrapResult result;

  // A registry value forces the debugger output at the level it names.
  if (const auto levelName = ReadDebugViewLevel(context.moduleName)) {
    auto* logger = new (std::nothrow) LoggerDebugView(LevelFromName(*levelName));
    if (logger) {
      logger->SetName(context.moduleName.c_str());
      result.logger = logger;
      result.source = LoggerSource::kDebugView;
      return result;
    }
  }

  const std::optional<std::wstring> tracing =
      context.environment ? context.environment(L"NORVIK_LIBQTRNOTIFY64") : std::nullopt;
  const bool tracingActive = tracing && !tracing->empty();

  std::optional<PropertiesFile> properties = FindPropertiesFile(context);
  if (!properties && tracingActive) {
    // The tracing collector is active but nothing configures it: write the default text.
    const std::wstring path = GeneratedPropertiesPath(context);
    if (WriteDefaultProperties(path) && FileExists(path)) {
      properties = PropertiesFile{path, 0};
      result.propertiesGenerated = true;
    }
  }
  if (properties) {
    result.propertiesFile = properties->path;
    result.watchDelay = properties->watchDelay;
    LoadExternalLogger(context, *properties, function, result);
  }

  // The logging module has read the generated file by now; leave it empty.
  if (result.propertiesGenerated) {
    std::error_code error;
    std::filesystem::resize_file(ToPath(result.propertiesFile), 0, error);
  }
  return result;
}

}  // namespace lmsdk::log_bootstrap
