// Requests and outputs: when callbacks run, with which status, and how often.
#include <gtest/gtest.h>

#include <vector>

#include "scheduler_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using namespace lmxtest;

namespace {

class RequestsTest : public ::testing::Test {
 protected:
  void Mark(std::vector<void*> outputs, Status sts) {
    ASSERT_EQ(service->MarkOutputs(static_cast<int32_t>(outputs.size()), outputs.data(), sts), LMX_STATUS_NO_ERROR);
  }
  void Request(std::vector<void*> inputs, LMXSchedulerService::Callback* cb) {
    ASSERT_EQ(service->RequestInputs(static_cast<int32_t>(inputs.size()), inputs.data(), cb), LMX_STATUS_NO_ERROR);
  }
  size_t OutstandingRequests() {
    std::lock_guard lock(scheduler->State()->requestLock);
    return scheduler->State()->requests.size();
  }

  HostSession session;
  SchedulerRef scheduler{&session};
  LMXSchedulerService* service = scheduler.service();
  int a = 0, b = 0;
};

}  // namespace

TEST_F(RequestsTest, LastCompletionDeliversItsStatusOnce) {
  // Nothing pending (no inputs, nulls, an output never declared): run at once.
  RecordingTask none(L"(inline) none"), nulls(L"(inline) nulls"), undeclared(L"(inline) undeclared");
  ASSERT_EQ(service->RequestInputs(0, nullptr, &none), LMX_STATUS_NO_ERROR);
  Request({nullptr, nullptr}, &nulls);
  Request({&a}, &undeclared);
  for (RecordingTask* task : {&none, &nulls, &undeclared})
    EXPECT_EQ(std::pair(task->Runs(), task->Last()), std::pair(1, LMX_STATUS_NO_ERROR));

  RecordingTask consumer(L"(inline) consumer");
  Mark({&a, &b}, LMX_STATUS_EXEC_INPROGRESS);
  Request({&a, nullptr, &b}, &consumer);
  Mark({&a}, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(consumer.Runs(), 0);
  Mark({&b}, LMX_STATUS_TIME_GAP);
  EXPECT_EQ(std::pair(consumer.Runs(), consumer.Last()), std::pair(1, LMX_STATUS_TIME_GAP));
  // An input listed twice counts twice; completing again runs nothing.
  RecordingTask twice(L"(inline) twice");
  Mark({&a}, LMX_STATUS_EXEC_INPROGRESS);
  Request({&a, &a}, &twice);
  Mark({&a, &b}, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(std::pair(consumer.Runs(), twice.Runs()), std::pair(1, 1));
  EXPECT_EQ(OutstandingRequests(), 0u);
}

TEST_F(RequestsTest, EarlyFailureIsDeliveredExactlyOnce) {
  RecordingTask consumer(L"(inline) consumer");
  Mark({&a, &b}, LMX_STATUS_EXEC_INPROGRESS);
  Request({&a, &b}, &consumer);
  Mark({&a}, LMX_STATUS_EXEC_ABORTED);
  EXPECT_EQ(std::pair(consumer.Runs(), consumer.Last()), std::pair(1, LMX_STATUS_EXEC_ABORTED))
      << "the error arrives while b is still pending";
  EXPECT_EQ(OutstandingRequests(), 1u);
  Mark({&b}, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(consumer.Runs(), 1);
  EXPECT_EQ(OutstandingRequests(), 0u) << "the record goes with the last input";

  // Both inputs failing in one completion still delivers once.
  RecordingTask both(L"(inline) both");
  Mark({&a, &b}, LMX_STATUS_EXEC_INPROGRESS);
  Request({&a, &b}, &both);
  Mark({&a, &b}, LMX_STATUS_DEVICE_LOST);
  EXPECT_EQ(std::pair(both.Runs(), both.Last()), std::pair(1, LMX_STATUS_DEVICE_LOST));
}

TEST_F(RequestsTest, FailureIsRememberedUntilTheOutputIsProducedAgain) {
  Mark({&a}, LMX_STATUS_EXEC_INPROGRESS);
  Mark({&a}, LMX_STATUS_DEVICE_FAILED);
  RecordingTask failed(L"(inline) failed");
  Request({&b, &a}, &failed);
  EXPECT_EQ(failed.Last(), LMX_STATUS_DEVICE_FAILED);
  Mark({&a}, LMX_STATUS_NO_ERROR);
  RecordingTask stillFailed(L"(inline) still");
  Request({&a}, &stillFailed);
  EXPECT_EQ(stillFailed.Last(), LMX_STATUS_DEVICE_FAILED) << "a success does not clear the record";

  Mark({&a}, LMX_STATUS_EXEC_INPROGRESS);
  RecordingTask pending(L"(inline) pending");
  Request({&a}, &pending);
  EXPECT_EQ(pending.Runs(), 0) << "produced again: pending, failure forgotten";
  Mark({&a}, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(pending.Last(), LMX_STATUS_NO_ERROR);
}

TEST_F(RequestsTest, InlineRunsOnTheCompletingThreadOthersOnTheWorkers) {
  RecordingTask inlineTask(L"(inline) here"), pooled(L"Decode");
  Mark({&a}, LMX_STATUS_EXEC_INPROGRESS);
  Request({&a}, &inlineTask);
  Request({&a}, &pooled);
  std::thread([&] { Mark({&a}, LMX_STATUS_NO_ERROR); }).join();  // completed on another thread
  EXPECT_EQ(inlineTask.Runs(), 1) << "before MarkOutputs returned";
  EXPECT_NE(inlineTask.Thread(), std::this_thread::get_id());
  ASSERT_TRUE(pooled.WaitForRuns(1));
  EXPECT_NE(pooled.Thread(), std::this_thread::get_id());
  EXPECT_NE(pooled.Thread(), inlineTask.Thread());
  scheduler.reset();  // joins the workers before the tasks go
}

TEST_F(RequestsTest, BadArgumentsAreRefusedAndLogged) {
  ScopedCapture capture;
  RecordingTask cb;
  void* outputs[] = {&a};
  LMXSyncPoint* sp = reinterpret_cast<LMXSyncPoint*>(&b);
  EXPECT_EQ(service->RequestInputs(1, outputs, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(service->MarkOutputs(1, nullptr, LMX_STATUS_NO_ERROR), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(service->CreateSyncPoint(1, outputs, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(service->RequestInputs(1, nullptr, &cb), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(service->CreateSyncPoint(1, nullptr, &sp), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(scheduler.get()->SubmitTask(nullptr, LMX_STATUS_NO_ERROR), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(sp, reinterpret_cast<LMXSyncPoint*>(&b)) << "out parameter untouched on failure";
  EXPECT_EQ(cb.Runs(), 0);
  for (const auto& line : capture->Lines())
    EXPECT_TRUE(line.message.rfind("failed on", 0) != 0 ||
                line.file.starts_with("liblmxcore/src/scheduler/corescheduler"));
}
