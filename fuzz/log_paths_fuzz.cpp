// Fuzz target: the logging bootstrap's names and paths. Arbitrary wide texts (beyond
// Unicode included) go in as names, paths, directories and registry values (a file
// named by $LMSDK_REGISTRY, rewritten per input); nothing else is loaded or written.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "lmx/platform/text.h"
#include "log_bootstrap.h"
#include "log_bootstrap_paths.h"
#include "fuzz_support.h"

namespace bootstrap = lmsdk::log_bootstrap;
using namespace Norvik::Lumetra;

namespace {

std::string g_registry;

// Two bytes per code unit; a set flag bit lifts the unit beyond U+10FFFF.
std::wstring ConsumeWide(FuzzedDataProvider& input, size_t limit = 48) {
  const std::string bytes = input.ConsumeRandomLengthString(limit * 2);
  std::wstring text;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    uint32_t unit = static_cast<uint8_t>(bytes[i]) | static_cast<uint32_t>(static_cast<uint8_t>(bytes[i + 1])) << 8;
    if (sizeof(wchar_t) == 4 && (unit & 0x8000) && (unit & 1)) unit += 0x110000;
    text.push_back(static_cast<wchar_t>(unit));
  }
  return text;
}

// A registry string value, written as UTF-8 (replacement characters included).
std::string Quoted(const std::wstring& text) { return "\"" + lmx::platform::WideToUtf8(text) + "\""; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char pattern[] = "/tmp/lmx_log_paths_fuzz_XXXXXX";
  const int fd = ::mkstemp(pattern);
  if (fd < 0) std::abort();
  ::close(fd);
  g_registry = pattern;
  ::setenv("LMSDK_REGISTRY", g_registry.c_str(), 1);
  std::atexit([] { std::remove(g_registry.c_str()); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);

  // Names from paths: never a separator, never longer than the path.
  const std::wstring path = ConsumeWide(input);
  const std::wstring name = bootstrap::ModuleNameFromPath(path);
  Check(name.find_first_of(L"\\/") == std::wstring::npos && name.size() <= path.size());
  const int32_t level = bootstrap::LevelFromName(ConsumeWide(input, 8));
  Check(level == LOG_LEVEL_VERBOSE || level == LOG_LEVEL_TRACE ||
        (level % 10000 == 0 && level >= LOG_LEVEL_DEBUG && level <= LOG_LEVEL_FATAL));

  // Text and paths survive the file system's form when they are plain Unicode.
  const std::wstring text = ConsumeWide(input);
  if (text.find(L'\0') == std::wstring::npos && lmx::platform::Utf8ToWide(lmx::platform::WideToUtf8(text)) == text)
    Check(bootstrap::ToWide(bootstrap::ToPath(text)) == text);
  (void)bootstrap::FileExists(text);

  bootstrap::BootstrapContext context;
  context.moduleName = name;
  context.runtimeDirectory = ConsumeWide(input);
  context.executableDirectory = ConsumeWide(input);
  context.temporaryDirectory = ConsumeWide(input);
  const std::wstring sdk = ConsumeWide(input);
  const bool sdkSet = input.ConsumeBool();
  context.environment = [&](const std::wstring& variable) {
    return variable == L"LMSDK_DIR" && sdkSet ? std::optional(sdk) : std::nullopt;
  };
  context.reportEvent = [](const char*) {};

  // The generated file stays inside the temporary directory, and needs one.
  const std::wstring generated = bootstrap::GeneratedPropertiesPath(context);
  Check(generated.empty() == context.temporaryDirectory.empty() && generated.rfind(context.temporaryDirectory, 0) == 0);

  // The registry the bootstrap reads: the logging key, a dispatch entry and the
  // local-runtime row, with fuzzed names, values and paths.
  {
    const uint32_t cuid = input.ConsumeBool() ? bootstrap::kLoggingDispatchCuid : input.ConsumeIntegral<uint32_t>();
    std::ofstream file(g_registry, std::ios::binary | std::ios::trunc);
    file << "Windows Registry Editor Version 5.00\r\n"
         << "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
         << Quoted(ConsumeWide(input, 16)) << "=" << Quoted(ConsumeWide(input, 16)) << "\r\n"
         << "\"DebugView\"=" << Quoted(ConsumeWide(input, 16)) << "\r\n"
         << "\"ConfigFile\"=" << Quoted(ConsumeWide(input)) << "\r\n"
         << "\"ConfigWatchDelay\"=dword:" << std::hex << input.ConsumeIntegral<uint32_t>() << "\r\n"
         << "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\" << lmx::platform::WideToUtf8(ConsumeWide(input, 8))
         << "\\Dispatch\\" << lmx::platform::WideToUtf8(ConsumeWide(input, 8)) << "]\r\n"
         << "\"cuid\"=dword:" << cuid << "\r\n"
         << "\"path\"=" << Quoted(ConsumeWide(input)) << "\r\n"
         << "[HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Norvik\\LMSDK\\Dispatch]\r\n"
         << "\"LocalRuntime\"=" << Quoted(ConsumeWide(input, 8)) << "\r\n"
         << lmx::platform::WideToUtf8(ConsumeWide(input, 64));
  }
  (void)bootstrap::ReadDebugViewLevel(context.moduleName);
  (void)bootstrap::FindPropertiesFile(context);
  const std::wstring module = bootstrap::LoggingModuleFileName();
  for (const std::wstring& candidate : bootstrap::LoggingModuleCandidates(context)) Check(!candidate.empty());
  if (auto dispatch = bootstrap::DispatchRegistryPath()) Check(!dispatch->empty());
  return 0;
}
