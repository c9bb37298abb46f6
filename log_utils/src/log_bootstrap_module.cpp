// The logging bootstrap's view of modules: the process context, where the logging
// module is looked for, and how its export table is read.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "lmx/platform/environment.h"
#include "lmx/platform/registry.h"
#include "lmx_loggers.h"
#include "log_bootstrap.h"
#include "log_bootstrap_paths.h"

namespace lmsdk::log_bootstrap {

using lmx::platform::RegistryKey;
using namespace Norvik::Lumetra;
using Norvik::Lumetra::Service::DLLExportTable;
using Norvik::Lumetra::Service::SessionService;

namespace {

constexpr wchar_t kProductKey[] = L"Software\\Norvik\\LMSDK";

std::vector<std::wstring> SortedSubkeys(const std::wstring& key) {
  auto names = RegistryKey::OpenLocalMachine(key).EnumerateSubkeys();
  std::sort(names.begin(), names.end());
  return names;
}

std::wstring DirectoryOfPath(const std::filesystem::path& path) {
  return path.empty() ? std::wstring() : DirectoryOf(ToWide(path));
}

}  // namespace

BootstrapContext ProcessBootstrapContext() {
  BootstrapContext context;
  // Any function of this library locates its own module.
  const auto ownPath = lmx::platform::ModulePathOf(reinterpret_cast<const void*>(&ProcessBootstrapContext));
  context.moduleName = ModuleNameFromPath(ToWide(ownPath));

  const auto sessionPath = lmx::platform::LoadedModulePath("liblmxsession");
  context.runtimeDirectory = DirectoryOfPath(sessionPath.empty() ? ownPath : sessionPath);
  context.executableDirectory = DirectoryOfPath(lmx::platform::ExecutablePath());
  context.temporaryDirectory = ToWide(lmx::platform::TemporaryDirectory());
  context.environment = [](const std::wstring& name) { return lmx::platform::ReadEnvironmentVariable(name); };
  context.reportEvent = [](const char* text) { EventLogHandler().Report(text); };
  return context;
}

std::wstring LoggingModuleFileName() { return ToWide(lmx::platform::SharedLibraryFileName("liblmxlog")); }

std::vector<std::wstring> LoggingModuleCandidates(const BootstrapContext& context) {
  const std::wstring file = LoggingModuleFileName();
  std::vector<std::wstring> candidates;
  const std::wstring& runtime = context.runtimeDirectory;
  if (!runtime.empty()) {
    candidates.push_back(runtime + NativeSeparators(L"..\\..\\logging\\x64\\") + file);
    candidates.push_back(runtime + file);
    candidates.push_back(runtime + NativeSeparators(L"x64\\") + file);
  }
  if (auto dispatch = DispatchRegistryPath()) candidates.push_back(*dispatch);
  // LMSDK_DIR is the SDK root with its trailing separator; it is prefixed as is.
  std::optional<std::wstring> sdk = context.environment ? context.environment(L"LMSDK_DIR") : std::nullopt;
  if (sdk && !sdk->empty())
    candidates.push_back(NativeSeparators(*sdk) + NativeSeparators(L"runtime\\logging\\x64\\") + file);
  return candidates;
}

std::optional<std::wstring> DispatchRegistryPath() {
  std::optional<std::wstring> found;
  for (const auto& version : SortedSubkeys(kProductKey)) {
    const std::wstring dispatchKey = std::wstring(kProductKey) + L"\\" + version + L"\\Dispatch";
    for (const auto& component : SortedSubkeys(dispatchKey)) {
      const RegistryKey entry = RegistryKey::OpenLocalMachine(dispatchKey + L"\\" + component);
      const auto cuid = entry.ReadDword(L"cuid");
      const auto path = entry.ReadString(L"path");
      if (cuid == kLoggingDispatchCuid && path && !path->empty()) found = NativeSeparators(*path);
    }
  }
  if (!found) return std::nullopt;
  std::error_code error;
  if (EndsWithSeparator(*found) || std::filesystem::is_directory(ToPath(*found), error)) {
    if (!EndsWithSeparator(*found)) found->push_back(kSeparator);
    *found += LoggingModuleFileName();
  }
  return found;
}

const DLLExportTable* FindExportTable(lmx::platform::ModuleHandle module) {
  if (!module) return nullptr;
  // The signature word sits at offset 16 of the exported entry.
  auto valid = [](const void* symbol) {
    if (!symbol) return false;
    uint32_t signature = 0;
    std::memcpy(&signature, static_cast<const unsigned char*>(symbol) + offsetof(DLLExportTable, desc),
                sizeof signature);
    return signature == SessionService::kSignature;
  };
  if (const void* named = lmx::platform::FindExport(module, kLMXExportTableName); valid(named))
    return static_cast<const DLLExportTable*>(named);
  if (const void* first = lmx::platform::FindExportByOrdinal(module, 1); valid(first))
    return static_cast<const DLLExportTable*>(first);
  return nullptr;
}

}  // namespace lmsdk::log_bootstrap
