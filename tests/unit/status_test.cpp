// The status table, its lookup, and the check/trace helpers of lmxutils.h.
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

TEST(StatusText, EveryValueOfTheTable) {
  const struct {
    Status sts;
    const char* text;
  } table[] = {
      {LMX_STATUS_NO_ERROR, "LMX_STATUS_NO_ERROR"},
      {LMX_STATUS_FEATURE_UNSUPPORTED, "LMX_STATUS_FEATURE_UNSUPPORTED (Unsupported feature)"},
      {LMX_STATUS_PARAM_UNSUPPORTED, "LMX_STATUS_PARAM_UNSUPPORTED (Unsupported parameter)"},
      {LMX_STATUS_ITEM_UNAVAILABLE, "LMX_STATUS_ITEM_UNAVAILABLE (Item not found/not available)"},
      {LMX_STATUS_HANDLE_INVALID, "LMX_STATUS_HANDLE_INVALID (Invalid session, algorithm instance, or pointer)"},
      {LMX_STATUS_ALLOC_FAILED, "LMX_STATUS_ALLOC_FAILED (Memory allocation failure)"},
      {LMX_STATUS_DEVICE_FAILED, "LMX_STATUS_DEVICE_FAILED (device failed due to malfunctioning)"},
      {LMX_STATUS_DEVICE_LOST, "LMX_STATUS_DEVICE_LOST (device failed due to unplug or unavailability)"},
      {LMX_STATUS_DEVICE_BUSY, "LMX_STATUS_DEVICE_BUSY (device busy)"},
      {LMX_STATUS_EXEC_ABORTED, "LMX_STATUS_EXEC_ABORTED (Execution aborted due to errors in upstream components)"},
      {LMX_STATUS_EXEC_INPROGRESS, "LMX_STATUS_EXEC_INPROGRESS (Asynchronous operation is in execution)"},
      {LMX_STATUS_EXEC_TIMEOUT, "LMX_STATUS_EXEC_TIMEOUT (Operation time out)"},
      {LMX_STATUS_FILE_WRITE_FAILED, "LMX_STATUS_FILE_WRITE_FAILED (Failure in open file in WRITE mode)"},
      {LMX_STATUS_FILE_READ_FAILED, "LMX_STATUS_FILE_READ_FAILED (Failure in open file in READ mode)"},
      {LMX_STATUS_FILE_CLOSE_FAILED, "LMX_STATUS_FILE_CLOSE_FAILED (Failure in close a file handle)"},
      {LMX_STATUS_DATA_UNAVAILABLE, "LMX_STATUS_DATA_UNAVAILABLE (Data not available for MW model or processing)"},
      {LMX_STATUS_DATA_NOT_INITIALIZED, "LMX_STATUS_DATA_NOT_INITIALIZED (Data failed to initialize)"},
      {LMX_STATUS_INIT_FAILED, "LMX_STATUS_INIT_FAILED (Module failure during initialization)"},
      {LMX_STATUS_STREAM_CONFIG_CHANGED, "LMX_STATUS_STREAM_CONFIG_CHANGED"},
      {LMX_STATUS_POWER_UID_ALREADY_REGISTER, "LMX_STATUS_POWER_UID_ALREADY_REGISTER"},
      {LMX_STATUS_POWER_UID_NOT_REGISTERED, "LMX_STATUS_POWER_UID_NOT_REGISTERED"},
      {LMX_STATUS_POWER_ILLEGAL_STATE, "LMX_STATUS_POWER_ILLEGAL_STATE"},
      {LMX_STATUS_POWER_PROVIDER_NOT_EXISTS, "LMX_STATUS_POWER_PROVIDER_NOT_EXISTS"},
      {LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET,
       "LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET (parameter cannot be changed since configuration for capturing has "
       "been already set)"},
      {LMX_STATUS_TIME_GAP, "LMX_STATUS_TIME_GAP (Warning - time gap in time stamps)"},
      {LMX_STATUS_PARAM_INPLACE, "LMX_STATUS_PARAM_INPLACE (Warning - the same parameters already defined)"},
      {LMX_STATUS_DATA_NOT_CHANGED, "LMX_STATUS_DATA_NOT_CHANGED (Warning - Data not changed)"},
      {LMX_STATUS_PROCESS_FAILED, "LMX_STATUS_PROCESS_FAILED (Warning - Module failure during processing)"},
  };
  for (const auto& row : table) EXPECT_STREQ(GetStatusText(row.sts), row.text) << row.sts;
  EXPECT_GT(LMX_STATUS_PROCESS_FAILED, 0) << "a warning despite its name";
}

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
  EXPECT_EQ(lines[0].file, "tests/unit/status_test.cpp") << "repository-relative source path";
  EXPECT_GT(lines[0].line, 0);
  EXPECT_NE(lines[0].function.find("CheckPositive"), std::string::npos);
}

TEST(FailureConvention, DisabledLevelsLogAndTraceNothingButReturnTheSameStatus) {
  lmxtest::ScopedCapture capture(LOG_LEVEL_FATAL);
  EXPECT_EQ(CheckPositive(0), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(Forward(LMX_STATUS_ALLOC_FAILED), LMX_STATUS_ALLOC_FAILED);
  EXPECT_EQ(Traced(false, false), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(capture->Lines().empty());
  EXPECT_TRUE(capture->Traces().empty()) << "a trace below the threshold remembers nothing";
}

TEST(FailureConvention, CallCheckPassesWarningsAndLogsErrorsWithStatusText) {
  lmxtest::ScopedCapture capture;
  callsAfterCheck = 0;
  EXPECT_EQ(Forward(LMX_STATUS_TIME_GAP), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(callsAfterCheck, 1) << "a warning lets the caller go on";
  EXPECT_TRUE(capture->Lines().empty());

  EXPECT_EQ(Forward(LMX_STATUS_EXEC_TIMEOUT), LMX_STATUS_EXEC_TIMEOUT);
  EXPECT_EQ(callsAfterCheck, 1);
  ASSERT_EQ(capture->Lines().size(), 1u);
  EXPECT_EQ(capture->Lines()[0].message,
            "Error LMX_STATUS_EXEC_TIMEOUT (Operation time out) calling static_cast<Status>(produced)");

  capture->Clear();
  EXPECT_EQ(Forward(static_cast<Status>(-6)), -6);
  ASSERT_EQ(capture->Lines().size(), 1u);
  EXPECT_EQ(capture->Lines()[0].message, "Error Unknown lmxStatus code calling static_cast<Status>(produced)");
}

TEST(FailureConvention, TraceClosesOnEveryExitIncludingExceptions) {
  lmxtest::ScopedCapture capture;
  EXPECT_EQ(Traced(false, false), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(Traced(true, false), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_THROW(Traced(false, true), std::runtime_error);
  const auto traces = capture->Traces();
  ASSERT_EQ(traces.size(), 6u);
  for (size_t i = 0; i < traces.size(); ++i) {
    EXPECT_EQ(traces[i].enter, i % 2 == 0);
    EXPECT_EQ(traces[i].level, LOG_LEVEL_TRACE);
    EXPECT_EQ(traces[i].name, "Traced");
  }
}
