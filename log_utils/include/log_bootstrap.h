// log_bootstrap.h: the logging bootstrap behind lmsdk::LogUtil::Init, in pieces.
//
// Init builds a BootstrapContext from the running process and hands it to
// SelectLogger, which picks one of:
//   1. a LoggerDebugView forced by the registry (Logging key, value named after the
//      module or "DebugView"; default view, then the 32-bit view);
//   2. the external logging module (liblmxlog), configured with a properties file
//      found through the registry, next to the runtime, or generated in the
//      temporary directory while the tracing collector is active;
//   3. nothing, in which case Init installs the EmptyLogger.
// Tests run SelectLogger with their own context: directories, environment and the
// event-log writer are injected; the registry is the one of the platform layer
// (on POSIX the file named by $LMSDK_REGISTRY).
//
// All texts are wide; paths use the platform's separator (registry values written
// with backslashes are converted on POSIX) and directories end with a separator.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lmx/platform/module.h"
#include "lmxlogging.h"
#include "lmxsession.h"

namespace lmsdk::log_bootstrap {

// What the selection reads from the process besides the registry.
struct BootstrapContext {
  std::wstring moduleName;           // own module's file name, no directory, no extension
  std::wstring runtimeDirectory;     // directory of liblmxsession if loaded, else our own
  std::wstring executableDirectory;  // directory of the process's executable
  std::wstring temporaryDirectory;
  // Environment lookup: nothing when the variable is not set.
  std::function<std::optional<std::wstring>(const std::wstring&)> environment;
  // Writes one error entry to the event log.
  std::function<void(const char*)> reportEvent;
};

// The context of the running process (what Init uses).
BootstrapContext ProcessBootstrapContext();

enum class LoggerSource { kNone, kDebugView, kExternalModule };

struct BootstrapResult {
  // The chosen logger with one reference; null when none was chosen.
  Norvik::Lumetra::LoggingService* logger = nullptr;
  LoggerSource source = LoggerSource::kNone;
  // The logging module, once loaded (whether or not it gave a logger). The
  // process keeps it loaded for its lifetime.
  lmx::platform::ModuleHandle module = nullptr;
  std::wstring modulePath;      // the candidate path that loaded
  std::wstring propertiesFile;  // the file handed to the logging module, if any
  uint32_t watchDelay = 0;
  bool propertiesGenerated = false;  // written from the default text (and emptied again)
};

// Everything Init does except installing the result. `function` is the function
// text of the "Logger '...' created with level N" line (Init passes its own).
BootstrapResult SelectLogger(const BootstrapContext& context, const char* function);

// ---- the steps, exposed for tests ----

// "C:\\x\\liblmxcore.dll" -> "liblmxcore"; "/x/liblmxcore.so" -> "liblmxcore". Cut
// after the last separator, then at the first ".dll", ".exe" and the platform's
// shared-library suffix.
std::wstring ModuleNameFromPath(std::wstring_view path);

// Exact, case-sensitive level names; any other text is 20000 (INFO).
int32_t LevelFromName(std::wstring_view name);

// The forced debugger-output level name, if the registry gives one.
std::optional<std::wstring> ReadDebugViewLevel(const std::wstring& moduleName);

struct PropertiesFile {
  std::wstring path;
  uint32_t watchDelay = 0;  // "ConfigWatchDelay" of the key the path came from
};
// Searches the four registry rows (ConfigFile, ConfigFile 32-bit, LocalRuntime,
// LocalRuntime 32-bit); the first existing file wins.
std::optional<PropertiesFile> FindPropertiesFile(const BootstrapContext& context);

// Where the default properties file is written: <temp>lmsdk_logs/lmxlog.properties.
std::wstring GeneratedPropertiesPath(const BootstrapContext& context);
// Writes the default properties text (create or truncate); false on failure.
// The directory is not created.
bool WriteDefaultProperties(const std::wstring& path);

// "liblmxlog.so" on POSIX, "liblmxlog.dll" on Windows.
std::wstring LoggingModuleFileName();
// The full paths tried in order; unusable ones (no runtime directory, no
// dispatch entry, LMSDK_DIR unset) are left out.
std::vector<std::wstring> LoggingModuleCandidates(const BootstrapContext& context);

// Dispatch subkey value "cuid" that marks the logging module: the LoggingService
// interface identifier.
inline constexpr uint32_t kLoggingDispatchCuid = static_cast<uint32_t>(Norvik::Lumetra::LoggingService::kIid);
// The logging module's path from the dispatch registry: subkeys of
// Software\Norvik\LMSDK and of each one's Dispatch key are visited in sorted
// order; of the entries whose "cuid" is kLoggingDispatchCuid and whose "path" is
// not empty, the last visited wins (the highest version name). A "path" that names
// a directory gets the module's file name appended.
std::optional<std::wstring> DispatchRegistryPath();

// The module's export table: the export "LMXDLLExportTable", else ordinal 1,
// each accepted only with the signature 0x02454C44 at offset 16; null if neither.
const Norvik::Lumetra::Service::DLLExportTable* FindExportTable(lmx::platform::ModuleHandle module);

// Path conversions between wide text and the file system's own form.
std::filesystem::path ToPath(const std::wstring& text);
std::wstring ToWide(const std::filesystem::path& path);
bool FileExists(const std::wstring& path);

}  // namespace lmsdk::log_bootstrap
