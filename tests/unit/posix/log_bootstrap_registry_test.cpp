// The logging bootstrap driven by the registry file: the forced debugger output,
// the properties-file rows, the dispatch registry, and Init itself.
#include <gtest/gtest.h>

#include <string>

#include "lmx/platform/text.h"
#include "lmx_loggers.h"
#include "log_bootstrap_support.h"

using namespace lmxtest;
using namespace lmsdk::log_bootstrap;

namespace {

constexpr char kFunction[] = "test-function";
constexpr char kHeader[] = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::wstring kModuleFile = LoggingModuleFileName();

// Escapes a path for a .reg string value.
std::string RegString(const std::wstring& text) {
  std::string out;
  for (char c : lmx::platform::WideToUtf8(text)) {
    if (c == '\\' || c == '"') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

std::string Utf16LeWithBom(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (char c : ascii) {
    bytes.push_back(c);
    bytes.push_back('\0');
  }
  return bytes;
}

class LogBootstrapRegistry : public ::testing::Test {
 protected:
  LogBootstrapRegistry()
      : registryPath_(folder_.path() / "lmsdk.reg"), registry_(L"LMSDK_REGISTRY", ToWide(registryPath_)), test_(folder_) {}

  void WriteRegistry(const std::string& body) { folder_.Write("lmsdk.reg", kHeader + body); }
  void WriteRegistryBytes(const std::string& bytes) { folder_.Write("lmsdk.reg", bytes); }

  // Selects with a tracing collector and a logging module in the runtime folder, so
  // a debugger-output logger is seen to win over both.
  BootstrapResult SelectWithModuleAvailable() {
    test_.environment[L"NORVIK_LIBQTRNOTIFY64"] = L"1";
    folder_.Directory("tmp/lmsdk_logs");
    PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
    return SelectLogger(test_.context, kFunction);
  }

  TempFolder folder_;
  fs::path registryPath_;
  ScopedEnvironment registry_;
  TestContext test_;
};

int32_t DebugViewLevel(const BootstrapResult& result) {
  EXPECT_EQ(result.source, LoggerSource::kDebugView);
  return result.logger ? result.logger->QueryLevel() : -1;
}

}  // namespace

TEST_F(LogBootstrapRegistry, DebugViewIsForcedByTheRegistry) {
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n\"DebugView\"=\"VERBOSE\"\r\n");
  {
    BootstrapResult result = SelectWithModuleAvailable();
    ResultGuard guard{result};
    ASSERT_NE(result.logger, nullptr);
    EXPECT_EQ(DebugViewLevel(result), 2500);
    EXPECT_TRUE(result.logger->IsLevelEnabled(2500));
    EXPECT_EQ(result.module, nullptr) << "no logging module is loaded";
    EXPECT_FALSE(fs::exists(ToPath(GeneratedPropertiesPath(test_.context))));
    char line[lmsdk::LoggerDebugView::kLineBufferSize];
    static_cast<lmsdk::LoggerDebugView*>(result.logger)->FormatLine(line, 2500, "m", "a/b.cpp", 7);
    EXPECT_STREQ(line, "bootstrap_test: VERBOSE: b.cpp: 7: m\n") << "named after the module";
  }

  // Exact level names and per-module values: see the registry-driven tests.

  // Nothing in the default view: the 32-bit view is asked.
  WriteRegistryBytes(Utf16LeWithBom(std::string(kHeader) +
                                    "[HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Norvik\\LMSDK\\Logging]\r\n"
                                    "\"DebugView\"=\"WARN\"\r\n"));
  {
    BootstrapResult result = SelectLogger(test_.context, kFunction);
    ResultGuard guard{result};
    EXPECT_EQ(DebugViewLevel(result), 30000);
  }
}

TEST_F(LogBootstrapRegistry, PropertiesFileRowsInOrder) {
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  folder_.Write("app/conf/lmxlog.properties", "log4j.rootLogger = INFO\n");
  const fs::path wow = folder_.Write("wow/lmxlog.properties", "log4j.rootLogger = WARN\n");

  // A missing file in the first row falls through; a relative path (leading dot)
  // is taken against the executable's folder, with that key's watch delay.
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
                "\"ConfigFile\"=\"" + RegString(ToWide(folder_.path() / "missing.properties")) + "\"\r\n"
                "\"ConfigWatchDelay\"=dword:00000064\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Norvik\\LMSDK\\Logging]\r\n"
                "\"ConfigFile\"=\".\\\\conf\\\\lmxlog.properties\"\r\n"
                "\"ConfigWatchDelay\"=dword:00001388\r\n");
  {
    BootstrapResult result = SelectLogger(test_.context, kFunction);
    ResultGuard guard{result};
    ASSERT_NE(result.logger, nullptr);
    EXPECT_FALSE(result.propertiesGenerated);
    EXPECT_EQ(result.propertiesFile, test_.context.executableDirectory + L"./conf/lmxlog.properties");
    const FakeLoggingRecord& record = *RecordOf(result.module);
    EXPECT_EQ(record.configureKind, 2);
    EXPECT_EQ(record.watchDelay, 5000);
    EXPECT_STREQ(record.propertiesText, "log4j.rootLogger = INFO\n");
  }

  // A local runtime keeps its file four folders above the runtime's binaries; the
  // ConfigFile rows come first.
  test_.context.runtimeDirectory = folder_.Directory("a/b/c/d/bin");
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  // Malformed content is not parsed here: the logging module gets the file as it is.
  const char malformed[] = "log4j.rootLogger = = DEBUG,\n[no key\n\x01\x7f=\n";
  folder_.Write("a/config/lmxlog.properties", malformed);
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Norvik\\LMSDK\\Dispatch]\r\n"
                "\"LocalRuntime\"=\"1\"\r\n");
  {
    BootstrapResult result = SelectLogger(test_.context, kFunction);
    ResultGuard guard{result};
    ASSERT_NE(result.logger, nullptr);
    EXPECT_STREQ(RecordOf(result.module)->propertiesText, malformed);
  }
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Dispatch]\r\n\"LocalRuntime\"=\"1\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
                "\"ConfigFile\"=\"" + RegString(ToWide(wow)) + "\"\r\n");
  {
    BootstrapResult result = SelectLogger(test_.context, kFunction);
    ResultGuard guard{result};
    ASSERT_NE(result.logger, nullptr);
    EXPECT_EQ(result.propertiesFile, ToWide(wow));
  }
}

TEST_F(LogBootstrapRegistry, DispatchRegistryNamesTheModule) {
  const std::wstring older = folder_.Directory("rt15/logging");
  const std::wstring newer = folder_.Directory("rt20/logging");
  PlaceModule(FakeLoggingModule(), newer);
  const fs::path properties = folder_.Write("lmxlog.properties", "log4j.rootLogger = INFO\n");
  // Subkeys sort as text: "1.5" < "10.0" < "2.0"; the last match wins.
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
                "\"ConfigFile\"=\"" + RegString(ToWide(properties)) + "\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\2.0\\Dispatch\\Logging]\r\n"
                "\"cuid\"=dword:3870db28\r\n\"path\"=\"" + RegString(newer) + "\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\2.0\\Dispatch\\Zeta]\r\n"
                "\"cuid\"=dword:00000001\r\n\"path\"=\"" + RegString(older) + "\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\1.5\\Dispatch\\Logging]\r\n"
                "\"cuid\"=dword:3870db28\r\n\"path\"=\"" + RegString(older) + "\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\10.0\\Dispatch\\Logging]\r\n"
                "\"cuid\"=dword:3870db28\r\n\"path\"=\"" + RegString(older + kModuleFile) + "\"\r\n");
  EXPECT_EQ(DispatchRegistryPath(), newer + kModuleFile) << "a folder gets the module's file name";

  BootstrapResult result = SelectLogger(test_.context, kFunction);
  ResultGuard guard{result};
  ASSERT_NE(result.logger, nullptr);
  EXPECT_EQ(result.modulePath, newer + kModuleFile);
}

TEST_F(LogBootstrapRegistry, InitInstallsTheChosenLogger) {
  Norvik::Lumetra::LoggingService* const previous = lmsdk::LogUtil::GetLogger();
  WriteRegistry("");
  lmsdk::LogUtil::Init(nullptr);
  EXPECT_EQ(lmsdk::LogUtil::GetLogger(), &lmsdk::EmptyLogger::Instance());

  // The process's own module (this test program) names the logger; the module is
  // found through the dispatch registry.
  const std::wstring moduleDirectory = folder_.Directory("installed");
  PlaceModule(FakeLoggingModule(), moduleDirectory);
  const fs::path properties = folder_.Write("lmxlog.properties", "log4j.rootLogger = INFO\n");
  WriteRegistry("[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
                "\"ConfigFile\"=\"" + RegString(ToWide(properties)) + "\"\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\1.0\\Dispatch\\Logging]\r\n"
                "\"cuid\"=dword:3870db28\r\n\"path\"=\"" + RegString(moduleDirectory) + "\"\r\n");
  lmsdk::LogUtil::Init(nullptr);
  Norvik::Lumetra::LoggingService* const installed = lmsdk::LogUtil::GetLogger();
  lmsdk::LogUtil::SetLogger(previous);
  ASSERT_NE(installed, &lmsdk::EmptyLogger::Instance());

  auto module = lmx::platform::LoadModule(ToPath(moduleDirectory + kModuleFile));
  const FakeLoggingRecord& record = *RecordOf(module);
  const std::wstring name =
      L"lmsdk." + ModuleNameFromPath(ToWide(lmx::platform::ExecutablePath()));
  EXPECT_EQ(std::wstring(record.name), name);
  EXPECT_EQ(std::wstring(record.message), L"Logger '" + name + L"' created with level 0");
  EXPECT_STREQ(record.file, "log_utils/src/log_utils.cpp");
  EXPECT_NE(std::string(record.function).find("lmsdk::LogUtil::Init"), std::string::npos) << record.function;
  installed->Release();
  lmx::platform::UnloadModule(module);
}
