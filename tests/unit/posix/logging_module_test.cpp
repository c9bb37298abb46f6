// The real logging module (liblmxlog on log4cxx) loaded by the real bootstrap in a
// child process (fixtures/log_module_child.cpp), configured through a registry file
// and a properties file that sends DEBUG and above to a file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <sys/wait.h>

#include "log_bootstrap_support.h"
#include "support/test_registry.h"

namespace lmxtest {
namespace {

constexpr char kDebugToFile[] =
    "log4j.rootLogger=DEBUG, F\n"
    "log4j.appender.F=org.apache.log4j.FileAppender\n"
    "log4j.appender.F.File=${LMSDK_LOG_DIR}/child.log\n"
    "log4j.appender.F.Encoding=UTF-8\n"
    "log4j.appender.F.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.F.layout.ConversionPattern=%-5p %c %f %M | %m%n\n";

class LoggingModule : public ::testing::Test {
 protected:
  void SetUp() override {
#ifndef LMX_LOG_MODULE_CHILD
    GTEST_SKIP() << "liblmxlog is not built (log4cxx not found)";
#endif
  }

  // Runs the child in `mode` with a registry naming `properties`; its exit code,
  // or -1 if it did not exit normally (a crash).
  int RunChild(const std::string& mode, const std::string& properties, uint32_t watchDelay = 0) {
    const fs::path file = folder_.Write("lmxlog.properties", properties);
    ScopedTestRegistry registry;  // inherited by the child through $LMSDK_REGISTRY
    registry.SetString(L"Software\\Norvik\\LMSDK\\Logging", L"ConfigFile", ToWide(file));
    registry.SetDword(L"Software\\Norvik\\LMSDK\\Logging", L"ConfigWatchDelay", watchDelay);
    const std::string command = "env -u NORVIK_LIBQTRNOTIFY64 LMSDK_LOG_DIR='" + folder_.path().string() + "' '" +
                                LMX_LOG_MODULE_CHILD + "' " + mode + " '" + file.string() + "' 2>/dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string LogFile() const {
    std::stringstream text;
    text << std::ifstream(folder_.path() / "child.log", std::ios::binary).rdbuf();
    return text.str();
  }

  TempFolder folder_;
};

TEST_F(LoggingModule, LibraryLinesReachTheFileFilteredByLevel) {
  ASSERT_EQ(RunChild("lines", kDebugToFile), 0);
  const std::string log = LogFile();
  const std::pair<const char*, bool> kExpected[] = {
      // (text, present)
      // Level, logger name, source file and function reach the layout.
      {"INFO  lmsdk.log_module_child log_utils.cpp Init | Logger 'lmsdk.log_module_child' created with level 10000",
       true},
      {"ERROR lmsdk.log_module_child coreaccel_manager.cpp CreateObject | failed on buffer", true},
      {"DEBUG lmsdk.log_module_child coreaccel_manager.cpp ~AllocatorImpl | this = 0x", true},
      {"| wide: Gr\u00FC\u00DFe, \u6E29\u5EA6 \u00B0C, \u20AC \U0001F600\n", true},  // UTF-8 in the file
      {"enter CreateImage", false},                                                  // TRACE is below DEBUG
      {"verbose line", false},
  };
  for (auto [text, present] : kExpected) EXPECT_EQ(log.find(text) != std::string::npos, present) << text << "\n" << log;
}

TEST_F(LoggingModule, WatchedFileChangesTheLevelWhileRunning) {
  // The child rewrites the root level to WARN and waits (bounded) for the logger to follow.
  EXPECT_EQ(RunChild("watch", kDebugToFile, 100), 0);
}

TEST_F(LoggingModule, MalformedFileFallsBackAndTheProcessKeepsRunning) {
  for (const char* properties : {
           "this is not a properties file\n%%%\n",  // nothing configured
           "log4j.rootLogger=DEBUG, MISSING\n",     // an appender never defined
           "log4j.rootLogger=DEBUG, F\nlog4j.appender.F=no.such.Appender\n",
       })
    EXPECT_EQ(RunChild("fallback", properties), 0) << properties;
}

}  // namespace
}  // namespace lmxtest
