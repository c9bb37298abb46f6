// Events, the dedicated thread and the concurrent pointer map.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "concurrent_map.h"
#include "lmx/platform/event.h"
#include "lmx/platform/thread.h"

using namespace lmx::platform;
using namespace std::chrono_literals;

TEST(PlatformEvent, WaitSingleAndMultipleAnswers) {
  EventHandle a = CreateManualResetEvent();
  EventHandle b = CreateManualResetEvent();
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(WaitForEvent(a, 0), kWaitTimeout);
  EXPECT_EQ(WaitForEvent(a, 10), kWaitTimeout);
  EventHandle both[] = {a, b};
  EXPECT_EQ(WaitForEvents(2, both, false, 0), kWaitTimeout);

  ASSERT_TRUE(SetEvent(b));
  EXPECT_EQ(WaitForEvents(2, both, false, 0), 1u) << "index of the signalled object";
  EXPECT_EQ(WaitForEvents(2, both, true, 10), kWaitTimeout) << "wait-all needs every object";
  ASSERT_TRUE(SetEvent(a));
  EXPECT_EQ(WaitForEvents(2, both, false, -1), 0u) << "the lowest signalled index wins";
  EXPECT_EQ(WaitForEvents(2, both, true, -1), kWaitObject0);
  EXPECT_EQ(WaitForEvent(a, -1), kWaitObject0) << "manual reset: waits never consume the signal";

  // Refusals: no objects, more than 64, a null handle.
  std::vector<EventHandle> many(65, a);
  EXPECT_EQ(WaitForEvents(0, both, true, 0), kWaitFailed);
  EXPECT_EQ(WaitForEvents(65, many.data(), true, 0), kWaitFailed);
  EXPECT_EQ(WaitForEvents(64, many.data(), true, 0), kWaitObject0);
  EventHandle withNull[] = {a, nullptr};
  EXPECT_EQ(WaitForEvents(2, withNull, false, 0), kWaitFailed);
  EXPECT_FALSE(SetEvent(nullptr));
  CloseEvent(a);
  CloseEvent(b);
  CloseEvent(nullptr);
}

TEST(PlatformEvent, WaitAllWakesWhenTheLastObjectIsSignalledElsewhere) {
  EventHandle events[3] = {CreateManualResetEvent(), CreateManualResetEvent(), CreateManualResetEvent()};
  SetEvent(events[1]);
  std::thread setter([&] {
    std::this_thread::sleep_for(20ms);
    SetEvent(events[0]);
    std::this_thread::sleep_for(20ms);
    SetEvent(events[2]);
  });
  EXPECT_EQ(WaitForEvents(3, events, true, 2000), kWaitObject0);
  setter.join();
  for (EventHandle e : events) CloseEvent(e);
}

namespace {
std::atomic<int> threadRuns{0};
std::atomic<bool> releaseThread{false};
uint32_t CountRun(void*) {
  ++threadRuns;
  return 0;
}
uint32_t WaitForRelease(void*) {
  while (!releaseThread) std::this_thread::sleep_for(1ms);
  ++threadRuns;
  return 0;
}
}  // namespace

TEST(PlatformThread, BoundedWaitThenLetGo) {
  EXPECT_GE(LogicalProcessorCount(), 1u);
  ThreadHandle quick = StartThread(&CountRun, nullptr);
  ASSERT_NE(quick, nullptr);
  EXPECT_TRUE(WaitAndForgetThread(quick, -1));
  EXPECT_EQ(threadRuns, 1);

  ThreadHandle slow = StartThread(&WaitForRelease, nullptr);
  ASSERT_NE(slow, nullptr);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(WaitAndForgetThread(slow, 50));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 45ms);
  releaseThread = true;  // the detached thread ends by itself
  while (threadRuns < 2) std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(WaitAndForgetThread(nullptr, 0));
}

TEST(ConcurrentPointerMap, AccessorsFindInsertErase) {
  lmx::ConcurrentPointerMap<int> map;
  int keys[3] = {};
  {
    lmx::ConcurrentPointerMap<int>::Accessor a;
    EXPECT_TRUE(map.Insert(a, &keys[0]));
    a.value() = 7;
  }
  {
    lmx::ConcurrentPointerMap<int>::Accessor a;
    EXPECT_FALSE(map.Insert(a, &keys[0])) << "an existing entry is kept";
    EXPECT_EQ(a.value(), 7);
  }
  lmx::ConcurrentPointerMap<int>::ConstAccessor r;
  EXPECT_FALSE(map.Find(r, &keys[1]));
  EXPECT_TRUE(r.empty());
  ASSERT_TRUE(map.Find(r, &keys[0]));
  EXPECT_EQ(r.value(), 7);
  r.release();
  {
    lmx::ConcurrentPointerMap<int>::Accessor a;
    ASSERT_TRUE(map.Find(a, &keys[0]));
    map.Erase(a);
    EXPECT_TRUE(a.empty());
  }
  EXPECT_FALSE(map.Erase(&keys[0]));
  EXPECT_EQ(map.Size(), 0u);
}

TEST(ConcurrentPointerMap, WriterHoldsTheEntryUntilItsAccessorEnds) {
  lmx::ConcurrentPointerMap<int> map;
  int key = 0;
  std::atomic<bool> readerDone{false};
  std::thread reader;
  {
    lmx::ConcurrentPointerMap<int>::Accessor a;
    map.Insert(a, &key);
    reader = std::thread([&] {
      lmx::ConcurrentPointerMap<int>::ConstAccessor r;
      EXPECT_TRUE(map.Find(r, &key));
      EXPECT_EQ(r.value(), 42) << "the reader sees the finished update";
      readerDone = true;
    });
    std::this_thread::sleep_for(30ms);
    EXPECT_FALSE(readerDone);
    a.value() = 42;
  }
  reader.join();
  EXPECT_TRUE(readerDone);
}

TEST(ConcurrentPointerMap, ConcurrentInsertFindErase) {
  lmx::ConcurrentPointerMap<int> map;
  static char keys[256];
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 200; ++round) {
        for (int k = t; k < 256; k += 2) {  // threads overlap on half the keys
          lmx::ConcurrentPointerMap<int>::Accessor a;
          map.Insert(a, &keys[k]);
          ++a.value();
        }
        for (int k = 0; k < 256; k += 3) {
          lmx::ConcurrentPointerMap<int>::ConstAccessor r;
          if (map.Find(r, &keys[k])) {
            EXPECT_GT(r.value(), 0);
          }
        }
        if (round % 50 == 49)
          for (int k = t; k < 256; k += 4) map.Erase(&keys[k]);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_LE(map.Size(), 256u);
  map.Clear();
  EXPECT_EQ(map.Size(), 0u);
}
