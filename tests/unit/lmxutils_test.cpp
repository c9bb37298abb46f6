// The check, call-check and trace helpers of lmxutils.h and the status text of
// values outside the table.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "lmxutils.h"
#include "test_support.h"

using namespace Norvik::Lumetra;

namespace {

Status CheckPositive(int value) {
  LMX_CHECK(value > 0, LMX_STATUS_HANDLE_INVALID);
  return LMX_STATUS_NO_ERROR;
}

int callsAfterCheck = 0;
Status Forward(Status produced) {
  LMX_CHECK_CALL(static_cast<Status>(produced));
  ++callsAfterCheck;
  return LMX_STATUS_NO_ERROR;
}

Status Traced(bool fail, bool raise) {
  LMX_TRACE("Traced");
  if (raise) throw std::runtime_error("boom");
  LMX_CHECK(!fail, LMX_STATUS_PARAM_UNSUPPORTED);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

TEST(StatusText, UnknownValuesGiveTheWideText) {
  for (int value : {-4, -100, 105, 1, -6, -8, 0x7FFFFFFF}) {
    const char* text = GetStatusText(static_cast<Status>(value));
    EXPECT_EQ(std::wcscmp(reinterpret_cast<const wchar_t*>(text), L"Unknown lmxStatus code"), 0) << value;
    EXPECT_STREQ(text, "U") << "a narrow reader sees the first character only";
  }
}

TEST(FailureConvention, PreconditionLogsConditionTextWithSiteAndReturnsStatus) {
  lmxtest::ScopedCapture capture;
  EXPECT_EQ(CheckPositive(1), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(capture->Lines().empty());
  EXPECT_EQ(CheckPositive(-3), LMX_STATUS_HANDLE_INVALID);
  const auto lines = capture->Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, LOG_LEVEL_ERROR);
  EXPECT_EQ(lines[0].message, "failed on value > 0");
  EXPECT_EQ(lines[0].file, "tests/unit/lmxutils_test.cpp") << "repository-relative source path";
  EXPECT_NE(lines[0].function.find("CheckPositive"), std::string::npos);
}

TEST(FailureConvention, CallCheckPassesWarningsAndLogsErrorsWithStatusText) {
  lmxtest::ScopedCapture capture;
  callsAfterCheck = 0;
  EXPECT_EQ(Forward(LMX_STATUS_TIME_GAP), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(callsAfterCheck, 1) << "a warning lets the caller go on";
  EXPECT_TRUE(capture->Lines().empty());
  EXPECT_EQ(Forward(LMX_STATUS_EXEC_TIMEOUT), LMX_STATUS_EXEC_TIMEOUT);
  EXPECT_EQ(callsAfterCheck, 1);
  EXPECT_EQ(Forward(static_cast<Status>(-6)), -6);
  const auto lines = capture->Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message,
            "Error LMX_STATUS_EXEC_TIMEOUT (Operation time out) calling static_cast<Status>(produced)");
  EXPECT_EQ(lines[1].message, "Error Unknown lmxStatus code calling static_cast<Status>(produced)");
}

TEST(FailureConvention, TraceClosesOnEveryExitAndDisabledLevelsLogNothing) {
  {
    lmxtest::ScopedCapture capture;
    EXPECT_EQ(Traced(false, false), LMX_STATUS_NO_ERROR);
    EXPECT_EQ(Traced(true, false), LMX_STATUS_PARAM_UNSUPPORTED);
    EXPECT_THROW(Traced(false, true), std::runtime_error);
    const auto traces = capture->Traces();
    ASSERT_EQ(traces.size(), 6u);
    for (size_t i = 0; i < traces.size(); ++i)
      EXPECT_TRUE(traces[i].enter == (i % 2 == 0) && traces[i].level == LOG_LEVEL_TRACE && traces[i].name == "Traced")
          << i;
  }
  lmxtest::ScopedCapture quiet(LOG_LEVEL_FATAL);
  EXPECT_EQ(CheckPositive(0), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(Forward(LMX_STATUS_ALLOC_FAILED), LMX_STATUS_ALLOC_FAILED);
  EXPECT_EQ(Traced(false, false), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(quiet->Lines().empty() && quiet->Traces().empty());
}
