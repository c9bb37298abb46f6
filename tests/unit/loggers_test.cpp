// LoggerDebugView's filtering and line format, its lines as they arrive at the
// debugger output, EmptyLogger, and the global logger.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lmx_loggers.h"
#include "support/debug_output_capture.h"

using namespace Norvik::Lumetra;
using lmsdk::LoggerDebugView;

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

  lmsdk::LoggerEventHandler handler;  // registered under the executable's name
  EXPECT_TRUE(handler.IsRegistered() && handler.Report("lmxcore test: event log entry"));
  EXPECT_FALSE(handler.Report(nullptr));
}

TEST(DebugOutput, LoggerLinesOfNameLevelBareFileLineAndMessageArriveFiltered) {
  LoggerDebugView logger;
  EXPECT_TRUE(logger.IsLevelEnabled(1)) << "threshold 0 until SetLevel: everything passes";
  logger.SetName(L"caf\u00e9");
  logger.SetLevel(LOG_LEVEL_ERROR);
  EXPECT_EQ(logger.QueryLevel(), LOG_LEVEL_ERROR);
  char line[LoggerDebugView::kLineBufferSize];
  logger.FormatLine(line, 15000, "odd", "x.cpp", 3);
  EXPECT_STREQ(line, "caf\xc3\xa9: : x.cpp: 3: odd\n") << "a level outside the table: no name";
  lmxtest::DebugOutputCapture capture;
  logger.Log(LOG_LEVEL_ERROR, "narrow shown", "C:\\src\\dir\\file.cpp", 7, "F");
  logger.Log(LOG_LEVEL_WARN, "below the threshold", "file.cpp", 8, "F");
  logger.LogW(LOG_LEVEL_FATAL, L"wide shown", "log_utils/src/x.cpp", 9, "F");
  const std::string text = capture.Finish();
  EXPECT_NE(text.find("caf\xc3\xa9: ERROR: file.cpp: 7: narrow shown\n"), std::string::npos) << "a wide name as UTF-8";
  EXPECT_NE(text.find("caf\xc3\xa9: FATAL: x.cpp: 9: wide shown\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("below the threshold"), std::string::npos) << text;
}

TEST(DebugOutput, LinesFromConcurrentThreadsNeverInterleave) {
  LoggerDebugView logger;
  logger.SetName(L"t");
  constexpr int kThreads = 4, kLines = 50;
  const std::string payload(200, 'p');
  lmxtest::DebugOutputCapture capture;
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([&, t] {
        for (int i = 0; i < kLines; ++i) logger.Log(LOG_LEVEL_INFO, payload.c_str(), "f.cpp", t, "F");
      });
  }
  std::istringstream lines(capture.Finish());
  int whole = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("t: INFO", 0) != 0) continue;  // anything else the process printed
    EXPECT_EQ(line.size(), std::string("t: INFO: f.cpp: 0: ").size() + payload.size()) << line;
    EXPECT_EQ(line.substr(line.size() - payload.size()), payload);
    ++whole;
  }
  EXPECT_EQ(whole, kThreads * kLines);
}
