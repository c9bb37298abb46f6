// The scheduler service: factory, master and followers, options, worker pools,
// and the slots other modules call.
#include <gtest/gtest.h>

#include <deque>

#include "scheduler_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using namespace lmxtest;

TEST(SchedulerService, SessionsWithoutServiceGetPrivateMasters) {
  ScopedCapture capture;
  SchedulerRef orphan(nullptr);
  EXPECT_NE(orphan.get(), nullptr);
  HostSession bare{HostSession::WithoutService{}};
  SchedulerRef first(&bare), second(&bare);
  EXPECT_TRUE(first->IsMaster() && second->IsMaster()) << "nobody can find a private master";
  RecordingTask task(L"(inline) works");
  EXPECT_EQ(second.service()->RequestInputs(0, nullptr, &task), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(task.Runs(), 1);
  EXPECT_EQ(CreateScheduler(&bare, nullptr, nullptr, nullptr, 0, nullptr), LMX_STATUS_HANDLE_INVALID);
}

TEST(SchedulerService, SchedulersOfOneSessionShareTheMaster) {
  HostSession session;
  SchedulerRef first(&session), second(&session);
  EXPECT_TRUE(first->IsMaster() && second->Master() == first.get() && second->State() == first->State());
  EXPECT_EQ(*session.Slot(SchedulerDescriptor()), static_cast<void*>(static_cast<LMXScheduler*>(first.get())));
  EXPECT_EQ(first->QueryInstance(0x12345678), nullptr);
  EXPECT_EQ(first->State()->users, 2u);

  int output;
  void* outputs[] = {&output};
  RecordingTask consumer(L"Consumer");
  first.service()->MarkOutputs(1, outputs, LMX_STATUS_EXEC_INPROGRESS);
  second.service()->RequestInputs(1, outputs, &consumer);
  EXPECT_EQ(consumer.Runs(), 0) << "the follower sees the master's pending output";
  first.service()->MarkOutputs(1, outputs, LMX_STATUS_TIME_GAP);
  ASSERT_TRUE(consumer.WaitForRuns(1)) << "run on the master's pool";

  RecordingTask submitted(L"Submitted");
  EXPECT_EQ(second->SubmitTask(&submitted, LMX_STATUS_DEVICE_BUSY), LMX_STATUS_NO_ERROR);
  ASSERT_TRUE(submitted.WaitForRuns(1));
  EXPECT_EQ(std::pair(consumer.Last(), submitted.Last()), std::pair(LMX_STATUS_TIME_GAP, LMX_STATUS_DEVICE_BUSY));
}

TEST(SchedulerService, DestructionOrderAndANewMaster) {
  HostSession session;
  void** slot = session.Slot(SchedulerDescriptor());
  auto master = std::make_unique<SchedulerRef>(&session);
  auto follower = std::make_unique<SchedulerRef>(&session);
  auto oldState = (*master)->State();
  follower.reset();
  EXPECT_EQ(oldState->users, 1u);
  RecordingTask task(L"After");
  (*master)->SubmitTask(&task, LMX_STATUS_NO_ERROR);
  ASSERT_TRUE(task.WaitForRuns(1)) << "the master keeps working";
  master.reset();
  EXPECT_EQ(*slot, nullptr) << "the last scheduler frees the slot";
  EXPECT_EQ(oldState->task_scheduler, nullptr);

  SchedulerRef fresh(&session);
  EXPECT_TRUE(fresh->IsMaster() && fresh->State() != oldState && fresh->State()->task_scheduler)
      << "a new master with a pool of its own";

  // The master going first leaves its follower working and frees the slot.
  auto follower2 = std::make_unique<SchedulerRef>(&session);
  fresh.reset();
  EXPECT_EQ(*slot, nullptr);
  RecordingTask late(L"(inline) late");
  (*follower2)->SubmitTask(&late, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(late.Runs(), 1);
  SchedulerRef another(&session);
  EXPECT_TRUE(another->IsMaster());
  follower2.reset();
  EXPECT_EQ(*slot, static_cast<void*>(static_cast<LMXScheduler*>(another.get())))
      << "an old follower leaves the new master's slot alone";
}

TEST(SchedulerPools, SingleWorkerRunsInOrderAndNamesTasks) {
  ScopedCapture capture;
  RecordingTask first(L"Decode");
  bool inOrder = false;
  RecordingTask second(nullptr, [&](Status) { inOrder = first.Runs() == 1; });
  {
    lmx::PThreadScheduler pool;
    pool.Submit(&first, LMX_STATUS_NO_ERROR);
    pool.Submit(&second, LMX_STATUS_TIME_GAP);
    ASSERT_TRUE(second.WaitForRuns(1));
  }
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(first.Thread(), second.Thread());
  EXPECT_TRUE(capture->Traced("Decode (Async execution)"));
  EXPECT_TRUE(capture->Traced("Unknown Async task"));
  for (const auto& trace : capture->Traces())
    EXPECT_TRUE(trace.name != "Decode (Async execution)" || trace.level == LOG_LEVEL_TRACE);
}

TEST(SchedulerPools, SingleWorkerStopsWaitingAfterOneSecondAndDropsTheBacklog) {
  static std::atomic<bool> releaseLongTask{false};  // static: the abandoned worker outlives the test
  static RecordingTask longTask(nullptr, [](Status) {
    while (!releaseLongTask) std::this_thread::sleep_for(1ms);
  });
  static RecordingTask behind;
  auto* pool = new lmx::PThreadScheduler;
  pool->Submit(&longTask, LMX_STATUS_NO_ERROR);
  pool->Submit(&behind, LMX_STATUS_NO_ERROR);
  const auto start = std::chrono::steady_clock::now();
  delete pool;
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, 900ms);
  EXPECT_LT(waited, 5s) << "about a second; the margin is for a loaded machine";
  releaseLongTask = true;
  ASSERT_TRUE(longTask.WaitForRuns(1));
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(behind.Runs(), 0) << "items queued behind are discarded";
}

TEST(SchedulerPools, ThreadPoolRunsEveryQueuedTaskBeforeItEnds) {
  std::deque<RecordingTask> tasks;  // queued behind each other on two workers
  for (int i = 0; i < 10; ++i) tasks.emplace_back(nullptr, [](Status) { std::this_thread::sleep_for(2ms); });
  {
    lmx::STDThreadPool pool(2);
    for (auto& task : tasks) pool.Submit(&task, LMX_STATUS_NO_ERROR);
  }
  for (auto& task : tasks) EXPECT_EQ(task.Runs(), 1);
}
