// The logging bootstrap driven by registry values: the forced debugger output,
// the properties-file rows, the dispatch registry, and Init itself.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "lmx_loggers.h"
#include "log_bootstrap_support.h"
#include "support/test_registry.h"

using namespace lmxtest;
using namespace lmsdk::log_bootstrap;

namespace {

const std::wstring kSdk = L"Software\\Norvik\\LMSDK";
const std::wstring kWow = L"Software\\Wow6432Node\\Norvik\\LMSDK";

class LogBootstrapRegistry : public ::testing::Test {
 protected:
  // Starts again from an empty registry.
  ScopedTestRegistry& Fresh() {
    registry_.reset();
    return registry_.emplace();
  }
  // A dispatch entry below <version>\Dispatch\<name>.
  void Dispatch(const std::wstring& version, const std::wstring& name, uint32_t cuid, const std::wstring& path) {
    const std::wstring key = kSdk + L"\\" + version + L"\\Dispatch\\" + name;
    registry_->SetDword(key, L"cuid", cuid);
    registry_->SetString(key, L"path", path);
  }

  TempFolder folder_;
  TestContext test_{folder_};
  std::optional<ScopedTestRegistry> registry_{std::in_place};
};

}  // namespace

TEST_F(LogBootstrapRegistry, DebugViewIsForcedByTheRegistry) {
  // A tracing collector and a logging module are there: the forced output wins over both.
  test_.environment[L"NORVIK_LIBQTRNOTIFY64"] = L"1";
  folder_.Directory("tmp/lmsdk_logs");
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  registry_->SetString(kSdk + L"\\Logging", L"DebugView", L"VERBOSE");
  {
    Selection result(test_.context);
    ASSERT_EQ(result.source, LoggerSource::kDebugView);
    EXPECT_EQ(result.logger->QueryLevel(), 2500);
    EXPECT_EQ(result.module, nullptr) << "no logging module is loaded";
    EXPECT_FALSE(fs::exists(ToPath(GeneratedPropertiesPath(test_.context))));
  }
  registry_->SetString(kSdk + L"\\Logging", test_.context.moduleName, L"ERROR");
  EXPECT_EQ(Selection(test_.context).logger->QueryLevel(), 40000) << "the value named after the module overrides it";
  // Nothing in the default view: the 32-bit view is asked.
  Fresh().SetString(kWow + L"\\Logging", L"DebugView", L"WARN");
  Selection result(test_.context);
  EXPECT_EQ(result.source, LoggerSource::kDebugView);
  EXPECT_EQ(result.logger ? result.logger->QueryLevel() : -1, 30000);
}

TEST_F(LogBootstrapRegistry, PropertiesFileRowsInOrder) {
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  folder_.Write("app/conf/lmxlog.properties", "log4j.rootLogger = INFO\n");
  const fs::path wow = folder_.Write("wow/lmxlog.properties", "log4j.rootLogger = WARN\n");

  // A missing file in the first row falls through; a relative path (leading dot)
  // is taken against the executable's folder, with that key's watch delay.
  registry_->SetString(kSdk + L"\\Logging", L"ConfigFile", ToWide(folder_.path() / "missing.properties"));
  registry_->SetDword(kSdk + L"\\Logging", L"ConfigWatchDelay", 100);
  registry_->SetString(kWow + L"\\Logging", L"ConfigFile", L".\\conf\\lmxlog.properties");
  registry_->SetDword(kWow + L"\\Logging", L"ConfigWatchDelay", 5000);
  {
    Selection result(test_.context);
    ASSERT_NE(result.logger, nullptr);
    EXPECT_FALSE(result.propertiesGenerated);
    EXPECT_EQ(result.propertiesFile, test_.context.executableDirectory + L"./conf/lmxlog.properties");
    const FakeLoggingRecord& record = *RecordOf(result.module);
    EXPECT_EQ(std::pair(record.configureKind, record.watchDelay), std::pair(2, 5000));
    EXPECT_STREQ(record.propertiesText, "log4j.rootLogger = INFO\n");
  }

  // A local runtime keeps its file four folders above the runtime's binaries; the
  // ConfigFile rows come first. Malformed content is not parsed here: the logging
  // module gets the file as it is.
  test_.context.runtimeDirectory = folder_.Directory("a/b/c/d/bin");
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  const char malformed[] = "log4j.rootLogger = = DEBUG,\n[no key\n\x01\x7f=\n";
  folder_.Write("a/config/lmxlog.properties", malformed);
  for (const std::wstring& root : {kSdk, kWow}) {
    Fresh().SetString(root + L"\\Dispatch", L"LocalRuntime", L"1");
    Selection result(test_.context);
    ASSERT_NE(result.logger, nullptr);
    EXPECT_STREQ(RecordOf(result.module)->propertiesText, malformed);
  }
  Fresh().SetString(kSdk + L"\\Dispatch", L"LocalRuntime", L"1");
  registry_->SetString(kSdk + L"\\Logging", L"ConfigFile", ToWide(wow));
  Selection result(test_.context);
  ASSERT_NE(result.logger, nullptr);
  EXPECT_EQ(result.propertiesFile, ToWide(wow));
}

TEST_F(LogBootstrapRegistry, DispatchRegistryNamesTheModule) {
  const std::wstring older = folder_.Directory("rt15/logging");
  const std::wstring newer = folder_.Directory("rt20/logging");
  PlaceModule(FakeLoggingModule(), newer);
  const fs::path properties = folder_.Write("lmxlog.properties", "log4j.rootLogger = INFO\n");
  registry_->SetString(kSdk + L"\\Logging", L"ConfigFile", ToWide(properties));
  // Subkeys sort as text: "1.5" < "10.0" < "2.0"; the last match wins.
  Dispatch(L"2.0", L"Logging", 0x3870db28, newer);
  Dispatch(L"2.0", L"Zeta", 1, older);
  Dispatch(L"1.5", L"Logging", 0x3870db28, older);
  Dispatch(L"10.0", L"Logging", 0x3870db28, older + kModuleFile);
  EXPECT_EQ(DispatchRegistryPath(), newer + kModuleFile) << "a folder gets the module's file name";

  Selection result(test_.context);
  ASSERT_NE(result.logger, nullptr);
  EXPECT_EQ(result.modulePath, newer + kModuleFile);
}

TEST_F(LogBootstrapRegistry, InitInstallsTheChosenLogger) {
  Norvik::Lumetra::LoggingService* const previous = lmsdk::LogUtil::GetLogger();
  lmsdk::LogUtil::Init(nullptr);
  EXPECT_EQ(lmsdk::LogUtil::GetLogger(), &lmsdk::EmptyLogger::Instance());

  // The process's own module (this test program) names the logger; the module is
  // found through the dispatch registry.
  const std::wstring moduleDirectory = folder_.Directory("installed");
  PlaceModule(FakeLoggingModule(), moduleDirectory);
  const fs::path properties = folder_.Write("lmxlog.properties", "log4j.rootLogger = INFO\n");
  registry_->SetString(kSdk + L"\\Logging", L"ConfigFile", ToWide(properties));
  Dispatch(L"1.0", L"Logging", 0x3870db28, moduleDirectory);
  lmsdk::LogUtil::Init(nullptr);
  Norvik::Lumetra::LoggingService* const installed = lmsdk::LogUtil::GetLogger();
  lmsdk::LogUtil::SetLogger(previous);
  ASSERT_NE(installed, &lmsdk::EmptyLogger::Instance());

  auto module = lmx::platform::LoadModule(ToPath(moduleDirectory + kModuleFile));
  const FakeLoggingRecord& record = *RecordOf(module);
  const std::wstring name = L"lmsdk." + ModuleNameFromPath(ToWide(lmx::platform::ExecutablePath()));
  EXPECT_EQ(std::wstring(record.name), name);
  EXPECT_NE(std::string(record.function).find("lmsdk::LogUtil::Init"), std::string::npos) << record.function;
  installed->Release();
  lmx::platform::UnloadModule(module);
}
