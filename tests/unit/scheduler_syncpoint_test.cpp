// Sync points: single and multiple waits, signalling, per-output status, ending.
#include <gtest/gtest.h>

#include <vector>

#include "scheduler_test_support.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using namespace lmxtest;

namespace {

// A sync point of another module: it does not answer the library's own identifier.
class ForeignSyncPoint final : public LMXSyncPoint {
 public:
  void* QueryInstance(InterfaceId iid) override { return iid == 0 || iid == kIid ? this : nullptr; }
  void Release() override {}
  Status Synchronize(int32_t) override { return LMX_STATUS_NO_ERROR; }
  Status SynchronizeExINT(int32_t, LMXSyncPoint**, int32_t, void**, int32_t*, int32_t) override {
    return LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t) override {}
  Status QueryOutputStatus(void*) override { return LMX_STATUS_NO_ERROR; }
};

class SyncPointTest : public ::testing::Test {
 protected:
  LMXSyncPoint* Make() {
    LMXSyncPoint* sp = nullptr;
    EXPECT_EQ(scheduler.service()->CreateSyncPoint(0, nullptr, &sp), LMX_STATUS_NO_ERROR);
    created.push_back(sp);
    return sp;
  }
  void Signal(LMXSyncPoint* sp, Status sts) { SignalFace(sp)->SignalSyncPoint(sts); }
  void TearDown() override {
    for (LMXSyncPoint* sp : created) {
      if (sp->Synchronize(0) == LMX_STATUS_EXEC_INPROGRESS) Signal(sp, LMX_STATUS_NO_ERROR);
      sp->Release();
    }
  }

  HostSession session;
  SchedulerRef scheduler{&session};
  std::vector<LMXSyncPoint*> created;
};

}  // namespace

TEST_F(SyncPointTest, SynchronizePollsWaitsAndTimesOut) {
  ScopedCapture capture;
  LMXSyncPoint* sp = Make();
  EXPECT_EQ(sp->Synchronize(0), LMX_STATUS_EXEC_INPROGRESS) << "a poll of a pending sync point";
  EXPECT_EQ(sp->Synchronize(20), LMX_STATUS_EXEC_TIMEOUT);
  EXPECT_TRUE(
      capture->Contains("Function Scheduler::SyncPoint::Synchronize returned LMX_STATUS_EXEC_TIMEOUT = "
                        "LMX_STATUS_EXEC_TIMEOUT (Operation time out)"));

  std::thread producer([&] {
    std::this_thread::sleep_for(20ms);
    Signal(sp, LMX_STATUS_EXEC_ABORTED);
  });
  EXPECT_EQ(sp->Synchronize(-1), LMX_STATUS_EXEC_ABORTED) << "the signalled status, negative included";
  producer.join();
  Signal(sp, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(sp->Synchronize(0), LMX_STATUS_NO_ERROR) << "a second signal overwrites the status";
  EXPECT_TRUE(capture->Contains("sts = -301"));
}

TEST_F(SyncPointTest, WaitManyCountsNullsAgainstTheLimit) {
  ScopedCapture capture;
  LMXSyncPoint* a = Make();
  Signal(a, LMX_STATUS_NO_ERROR);
  std::vector<LMXSyncPoint*> sps(40, nullptr);
  std::vector<void*> events(25, nullptr);
  sps[3] = a;
  EXPECT_EQ(a->SynchronizeExINT(40, sps.data(), 25, events.data(), nullptr, 0), LMX_STATUS_PARAM_UNSUPPORTED);
  EXPECT_TRUE(
      capture->Contains("Function Scheduler::SyncPoint::SynchronizeExINT returned "
                        "LMX_STATUS_PARAM_UNSUPPORTED = LMX_STATUS_PARAM_UNSUPPORTED"));
  EXPECT_EQ(a->SynchronizeExINT(40, sps.data(), 24, events.data(), nullptr, 0), LMX_STATUS_NO_ERROR);  // 64 proceed

  std::vector<LMXSyncPoint*> none(3, nullptr);
  EXPECT_EQ(a->SynchronizeExINT(3, none.data(), 0, nullptr, nullptr, -1), LMX_STATUS_PARAM_UNSUPPORTED)
      << "nothing to wait for fails at once";
}

TEST_F(SyncPointTest, WaitAnyMapsTheIndexBackThroughNulls) {
  LMXSyncPoint *a = Make(), *b = Make();
  ForeignSyncPoint foreign;  // skipped like a null entry
  LMXSyncPoint* sps[] = {&foreign, a, b};
  int32_t idx = -7;
  EXPECT_EQ(a->SynchronizeExINT(3, sps, 0, nullptr, &idx, 10), LMX_STATUS_EXEC_TIMEOUT);
  EXPECT_EQ(idx, -7);
  Signal(b, LMX_STATUS_DEVICE_BUSY);
  EXPECT_EQ(a->SynchronizeExINT(3, sps, 0, nullptr, &idx, -1), LMX_STATUS_DEVICE_BUSY);
  EXPECT_EQ(idx, 2);

  // A raw event ends the wait: its position counts the sync-point array too.
  lmx::platform::EventHandle raw = lmx::platform::CreateManualResetEvent();
  void* events[] = {nullptr, raw};
  LMXSyncPoint* pending[] = {nullptr, a, nullptr};
  lmx::platform::SetEvent(raw);
  EXPECT_EQ(a->SynchronizeExINT(3, pending, 2, events, &idx, 100), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(idx, 4);
  lmx::platform::CloseEvent(raw);
}

TEST_F(SyncPointTest, WaitAllReportsTheFirstErrorAndIgnoresWarnings) {
  ScopedCapture capture;
  LMXSyncPoint *a = Make(), *b = Make(), *c = Make();
  LMXSyncPoint* sps[] = {a, nullptr, b, c};
  Signal(a, LMX_STATUS_TIME_GAP);
  Signal(b, LMX_STATUS_PARAM_INPLACE);
  EXPECT_EQ(a->SynchronizeExINT(4, sps, 0, nullptr, nullptr, 10), LMX_STATUS_EXEC_TIMEOUT) << "c still pending";
  EXPECT_FALSE(capture->Contains("LMX_STATUS_EXEC_TIMEOUT")) << "only Synchronize logs a time-out";
  capture->Clear();
  Signal(c, LMX_STATUS_NO_ERROR);
  EXPECT_EQ(a->SynchronizeExINT(4, sps, 0, nullptr, nullptr, -1), LMX_STATUS_NO_ERROR) << "warnings only";
  Signal(c, LMX_STATUS_EXEC_ABORTED);
  Signal(b, LMX_STATUS_DEVICE_LOST);
  EXPECT_EQ(a->SynchronizeExINT(4, sps, 0, nullptr, nullptr, -1), LMX_STATUS_DEVICE_LOST) << "first in index order";
  EXPECT_TRUE(capture->Contains("SynchronizeExINT returned sts = LMX_STATUS_DEVICE_LOST"));
}

TEST_F(SyncPointTest, OutputStatusAndFailureRecordsEndWithTheSyncPoint) {
  int output;
  void* outputs[] = {&output};
  LMXSchedulerService* service = scheduler.service();
  LMXSyncPoint* sp = nullptr;
  ASSERT_EQ(service->CreateSyncPoint(1, outputs, &sp), LMX_STATUS_NO_ERROR);
  service->MarkOutputs(1, outputs, LMX_STATUS_EXEC_INPROGRESS);
  service->MarkOutputs(1, outputs, LMX_STATUS_DEVICE_FAILED);
  Signal(sp, LMX_STATUS_TIME_GAP);
  EXPECT_EQ(sp->QueryOutputStatus(&output), LMX_STATUS_DEVICE_FAILED);
  int other;
  EXPECT_EQ(sp->QueryOutputStatus(&other), LMX_STATUS_TIME_GAP);

  RecordingTask early(L"(inline) early");
  service->RequestInputs(1, outputs, &early);
  EXPECT_EQ(early.Last(), LMX_STATUS_DEVICE_FAILED);
  sp->Release();
  RecordingTask later(L"(inline) later");
  service->RequestInputs(1, outputs, &later);
  EXPECT_EQ(later.Last(), LMX_STATUS_NO_ERROR) << "the record went with the sync point";
}

TEST_F(SyncPointTest, ReferenceCountAndUnsignalledDestruction) {
  ScopedCapture capture;
  LMXSyncPoint* sp = nullptr;
  ASSERT_EQ(scheduler.service()->CreateSyncPoint(0, nullptr, &sp), LMX_STATUS_NO_ERROR);
  auto* reference = static_cast<Reference*>(sp->QueryInstance(Reference::kIid));
  EXPECT_EQ(reference->AddRef(), 2u);
  reference->Release();
  EXPECT_FALSE(capture->Contains("Attempt to delete SP"));
  sp->Release();
  ASSERT_TRUE(capture->Contains("Attempt to delete SP before it was signaled!!!\n"));
  for (const auto& line : capture->Lines())
    EXPECT_TRUE(line.message.find("Attempt") != 0 || line.level == LOG_LEVEL_FATAL);
}
