// LoggerDebugView's lines as they arrive at the debugger output.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lmx_loggers.h"
#include "support/debug_output_capture.h"

using namespace Norvik::Lumetra;
using lmsdk::LoggerDebugView;

TEST(DebugOutput, LoggerLinesArriveWholeAndFiltered) {
  LoggerDebugView logger;
  logger.SetName(L"lmsdk.test");
  logger.SetLevel(LOG_LEVEL_ERROR);
  lmxtest::DebugOutputCapture capture;
  logger.Log(LOG_LEVEL_ERROR, "narrow shown", "C:\\src\\dir\\file.cpp", 7, "F");
  logger.Log(LOG_LEVEL_WARN, "below the threshold", "file.cpp", 8, "F");
  logger.LogW(LOG_LEVEL_FATAL, L"wide shown", "log_utils/src/x.cpp", 9, "F");
  const std::string text = capture.Finish();
  EXPECT_NE(text.find("lmsdk.test: ERROR: file.cpp: 7: narrow shown\n"), std::string::npos) << text;
  EXPECT_NE(text.find("lmsdk.test: FATAL: x.cpp: 9: wide shown\n"), std::string::npos) << text;
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
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kLines; ++i) logger.Log(LOG_LEVEL_INFO, payload.c_str(), "f.cpp", t, "F");
      });
    }
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
