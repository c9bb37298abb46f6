// The logging bootstrap without registry values: names and levels, the generated
// properties file, the logging module's search order, its export table and the
// fall-backs when it is missing or refuses its configuration.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "log_bootstrap_support.h"

using namespace lmxtest;
using namespace lmsdk::log_bootstrap;

namespace {

std::wstring Native(const std::wstring& text) { return ToWide(ToPath(text).make_preferred()); }

// Every test runs against an empty registry (a registry file that does not exist,
// where the registry is a file), in a temporary folder of its own.
class LogBootstrap : public ::testing::Test {
 protected:
  LogBootstrap() : registry_(L"LMSDK_REGISTRY", ToWide(folder_.path() / "none.reg")), test_(folder_) {}

  ~LogBootstrap() override {
    for (auto module : prepared_) lmx::platform::UnloadModule(module);
  }

  // Loads the module copy in directory for the test to prepare its record; the
  // copy stays loaded until the test ends, so the bootstrap finds the same record.
  FakeLoggingRecord& Prepare(const std::wstring& directory) {
    prepared_.push_back(lmx::platform::LoadModule(ToPath(directory + kModuleFile)));
    return *RecordOf(prepared_.back());
  }
  void ActivateTracing() {
    test_.environment[L"NORVIK_LIBQTRNOTIFY64"] = L"1";
    folder_.Directory("tmp/lmsdk_logs");
  }

  TempFolder folder_;
  ScopedEnvironment registry_;
  TestContext test_;
  std::vector<lmx::platform::ModuleHandle> prepared_;
};

}  // namespace

TEST(LogBootstrapNames, ModuleNamesAndExactLevelNames) {
  // The platform's own library extension is cut too (".so" here, ".dll" on Windows).
  const std::wstring extension = lmx::platform::SharedLibraryFileName("x").extension().wstring();
  // clang-format off
  for (auto [path, name] : {std::pair<std::wstring, std::wstring>{L"C:\\app\\viewer.exe", L"viewer"}, {L"", L""},
       {L"/opt/sdk/lib/liblmxcore" + extension + L".1", L"liblmxcore"}, {L"relative/dir\\mixed.dll.bak", L"mixed"}})
    EXPECT_EQ(ModuleNameFromPath(path), name);
  // Only the exact names count; anything else is INFO.
  for (auto [name, level] : {std::pair{L"FATAL", 50000}, {L"ERROR", 40000}, {L"WARN", 30000}, {L"INFO", 20000},
       {L"DEBUG", 10000}, {L"TRACE", 5000}, {L"VERBOSE", 2500}, {L"verbose", 20000}, {L"Trace", 20000},
       {L" ERROR", 20000}, {L"", 20000}, {L"5000", 20000}})
    EXPECT_EQ(LevelFromName(name), level) << ToPath(name);
  // clang-format on
}

TEST_F(LogBootstrap, NothingConfiguredChoosesNothingAndWritesNoFile) {
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  folder_.Directory("tmp/lmsdk_logs");
  Selection result(test_.context);
  EXPECT_EQ(result.source, LoggerSource::kNone);
  EXPECT_TRUE(result.logger == nullptr && result.module == nullptr) << "no properties file: no module loaded";
  EXPECT_FALSE(fs::exists(ToPath(GeneratedPropertiesPath(test_.context))));

  // The tracing collector alone cannot create the folder the file belongs in.
  fs::remove(ToPath(test_.context.temporaryDirectory + L"lmsdk_logs"));
  test_.environment[L"NORVIK_LIBQTRNOTIFY64"] = L"1";
  Selection second(test_.context);
  EXPECT_TRUE(second.logger == nullptr && !second.propertiesGenerated);
  EXPECT_FALSE(fs::exists(ToPath(test_.context.temporaryDirectory + L"lmsdk_logs")));
  EXPECT_TRUE(test_.events.empty());
}

TEST_F(LogBootstrap, TracingCollectorConfiguresTheModuleWithAGeneratedFileThenEmptiesIt) {
  ActivateTracing();
  PlaceModule(FakeLoggingModule(), test_.context.runtimeDirectory);
  Prepare(test_.context.runtimeDirectory).level = 10000;

  Selection result(test_.context);
  ASSERT_EQ(result.source, LoggerSource::kExternalModule);
  EXPECT_EQ(result.modulePath, test_.context.runtimeDirectory + kModuleFile);
  EXPECT_TRUE(result.propertiesGenerated);
  EXPECT_EQ(result.propertiesFile, Native(test_.context.temporaryDirectory + L"lmsdk_logs/lmxlog.properties"));

  const FakeLoggingRecord& record = *RecordOf(result.module);
  EXPECT_EQ(std::tuple(record.factoryCalls, record.requestedIid, record.configureCalls, record.configureKind,
                       record.watchDelay),
            std::tuple(1, 0x3870DB28, 1, 2, 0));
  EXPECT_EQ(std::wstring(record.configurePath), result.propertiesFile);
  // Written in text mode: line ends are the platform's own.
  std::string properties = record.propertiesText;
  for (size_t at; (at = properties.find("\r\n")) != std::string::npos;) properties.erase(at, 1);
  EXPECT_EQ(properties,
            "log4j.rootLogger = TRACE, QTR\n"
            "log4j.appender.QTR=org.apache.log4j.QTRAppender\n"
            "log4j.appender.QTR.layout=org.apache.log4j.PatternLayout\n"
            "log4j.appender.QTR.layout.ConversionPattern=%m\n");
  EXPECT_EQ(std::wstring(record.name), L"lmsdk.bootstrap_test");
  EXPECT_EQ(std::pair(record.logCalls, record.logLevel), std::pair(1, 20000));
  EXPECT_EQ(std::wstring(record.message), L"Logger 'lmsdk.bootstrap_test' created with level 10000");
  EXPECT_STREQ(record.file, "log_utils/src/log_utils.cpp");
  EXPECT_STREQ(record.function, kFunction);

  std::error_code error;
  EXPECT_EQ(fs::file_size(ToPath(result.propertiesFile), error), 0u) << "emptied after the module read it";
  EXPECT_TRUE(test_.events.empty());

  // The created line only when the module enables INFO.
  RecordOf(result.module)->level = 30000;
  Selection quiet(test_.context);
  EXPECT_EQ(RecordOf(quiet.module)->logCalls, 1);
}

TEST_F(LogBootstrap, ModuleSearchOrder) {
  const std::wstring& runtime = test_.context.runtimeDirectory;
  test_.environment[L"LMSDK_DIR"] = folder_.Directory("sdkroot");
  const std::vector<std::wstring> expected = {
      runtime + Native(L"../../logging/x64/") + kModuleFile,
      runtime + kModuleFile,
      runtime + Native(L"x64/") + kModuleFile,
      test_.environment[L"LMSDK_DIR"] + Native(L"runtime/logging/x64/") + kModuleFile,
  };
  EXPECT_EQ(LoggingModuleCandidates(test_.context), expected);

  // The earliest candidate that loads wins.
  ActivateTracing();
  PlaceModule(FakeLoggingModule(), runtime + Native(L"x64/"));
  PlaceModule(FakeLoggingModule(), test_.environment[L"LMSDK_DIR"] + Native(L"runtime/logging/x64/"));
  Selection viaX64(test_.context);
  EXPECT_TRUE(viaX64.logger && viaX64.modulePath == expected[2]);

  PlaceModule(FakeLoggingModule(), ToWide(ToPath(runtime + Native(L"../../logging/x64/")).lexically_normal()));
  Selection viaLogging(test_.context);
  EXPECT_EQ(viaLogging.modulePath, expected[0]);

  // Without a runtime directory or LMSDK_DIR nothing is guessed relative to the working directory.
  test_.context.runtimeDirectory.clear();
  test_.environment.erase(L"LMSDK_DIR");
  EXPECT_TRUE(LoggingModuleCandidates(test_.context).empty());
}

TEST_F(LogBootstrap, MissingModuleIsReportedToTheEventLog) {
  ActivateTracing();
  Selection result(test_.context);
  EXPECT_TRUE(result.logger == nullptr && result.module == nullptr);
  EXPECT_EQ(test_.events, std::vector<std::string>{"failed to load " + ToPath(kModuleFile).string()});
  std::error_code error;
  EXPECT_EQ(fs::file_size(ToPath(result.propertiesFile), error), 0u) << "the generated file is emptied on every path";
}

TEST_F(LogBootstrap, ModuleWithoutAValidTableOrConfigurationGivesNoLogger) {
  ActivateTracing();
  PlaceModule(BadSignatureLoggingModule(), test_.context.runtimeDirectory);
  Selection bad(test_.context);
  ASSERT_NE(bad.module, nullptr) << "the module loads";
  EXPECT_TRUE(bad.logger == nullptr && RecordOf(bad.module)->factoryCalls == 0) << "a wrong table is not used";
  EXPECT_TRUE(test_.events.empty());

  const std::wstring refusing = folder_.Directory("refusing");
  PlaceModule(FakeLoggingModule(), refusing);
  test_.context.runtimeDirectory = refusing;
  Prepare(refusing).refuseConfigure = true;
  Selection unconfigured(test_.context);
  ASSERT_NE(unconfigured.module, nullptr);
  EXPECT_EQ(unconfigured.logger, nullptr);
  const FakeLoggingRecord& record = *RecordOf(unconfigured.module);
  EXPECT_EQ(std::tuple(record.configureCalls, record.destroyed, record.setNameCalls), std::tuple(1, 1, 0))
      << "the unconfigured logger is released unnamed";
}
