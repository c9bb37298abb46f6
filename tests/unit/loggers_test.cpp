// LoggerDebugView's filtering and line format, EmptyLogger, and the global logger.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lmx_loggers.h"

using namespace Norvik::Lumetra;
using lmsdk::LoggerDebugView;

namespace {

std::string Format(LoggerDebugView& logger, int32_t level, const char* message, const char* file, int line) {
  char buffer[LoggerDebugView::kLineBufferSize];
  logger.FormatLine(buffer, level, message, file, line);
  return buffer;
}

}  // namespace

TEST(LoggerDebugView, ThresholdAndLineOfNameLevelBareFileLineAndMessage) {
  LoggerDebugView logger;
  EXPECT_TRUE(logger.IsLevelEnabled(1)) << "threshold 0 until SetLevel: everything passes";
  logger.SetLevel(LOG_LEVEL_ERROR);
  EXPECT_TRUE(logger.IsLevelEnabled(LOG_LEVEL_FATAL));
  EXPECT_FALSE(logger.IsLevelEnabled(LOG_LEVEL_WARN));
  EXPECT_EQ(logger.QueryLevel(), LOG_LEVEL_ERROR);

  logger.SetName(L"caf\u00e9");
  EXPECT_EQ(Format(logger, 20000, "m", "f", 2), "caf\xc3\xa9: INFO: f: 2: m\n") << "a wide name is printed as UTF-8";
  logger.SetName(L"lmsdk.liblmxcore");
  EXPECT_EQ(Format(logger, 40000, "failed on data", "liblmxcore/src/coreaccel_manager.cpp", 88),
            "lmsdk.liblmxcore: ERROR: coreaccel_manager.cpp: 88: failed on data\n");
  EXPECT_EQ(Format(logger, 15000, "odd", "C:\\build\\src\\x.cpp", 3), "lmsdk.liblmxcore: : x.cpp: 3: odd\n")
      << "a level outside the table has an empty name; a backslash path is cut too";
  EXPECT_EQ(Format(logger, 2500, "m", "plain.cpp", 1), "lmsdk.liblmxcore: VERBOSE: plain.cpp: 1: m\n");
}

TEST(LoggerDebugView, LongLineIsCutWithinTheBuffer) {
  LoggerDebugView logger;
  logger.SetName(L"n");
  const std::string message(5000, 'x');
  char buffer[LoggerDebugView::kLineBufferSize + 16];
  std::memset(buffer, 0x5A, sizeof buffer);
  logger.FormatLine(buffer, 40000, message.c_str(), "f.cpp", 1);
  const std::string line(buffer);
  EXPECT_EQ(line.size(), LoggerDebugView::kLineBufferSize - 1);
  EXPECT_EQ(line.back(), '\n');
  for (size_t i = LoggerDebugView::kLineBufferSize; i < sizeof buffer; ++i)
    EXPECT_EQ(buffer[i], 0x5A) << "nothing written past the buffer";
}

TEST(EmptyLogger, EveryLevelDisabledAndTheGlobalLoggerIsNeverNull) {
  auto& empty = lmsdk::EmptyLogger::Instance();
  for (int level : {0, 2500, 50000, 0x7FFFFFFF}) EXPECT_FALSE(empty.IsLevelEnabled(level));
  EXPECT_TRUE(empty.IsConfigured());
  EXPECT_EQ(empty.QueryInstance(LoggingService::kIid), static_cast<LoggingService*>(&empty));
  ASSERT_NE(lmsdk::LogUtil::GetLogger(), nullptr);
  LoggingService* before = lmsdk::LogUtil::GetLogger();
  lmsdk::LogUtil::SetLogger(nullptr);
  EXPECT_EQ(lmsdk::LogUtil::GetLogger(), static_cast<LoggingService*>(&empty));
  lmsdk::LogUtil::SetLogger(before);
}

TEST(LoggerEventHandler, RegistersUnderTheExecutableNameAndReports) {
  lmsdk::LoggerEventHandler handler;
  EXPECT_TRUE(handler.IsRegistered());
  EXPECT_TRUE(handler.Report("lmxcore test: event log entry"));
  EXPECT_FALSE(handler.Report(nullptr));
}
