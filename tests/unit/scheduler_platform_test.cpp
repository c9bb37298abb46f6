// Events, the queue lock and the concurrent pointer map.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "scheduler/adaptive_mutex.h"
#include "scheduler/concurrent_map.h"
#include "lmx/platform/event.h"

using namespace lmx::platform;
using namespace std::chrono_literals;

TEST(PlatformEvent, WaitSingleAndMultipleAnswers) {
  EventHandle a = CreateManualResetEvent(), b = CreateManualResetEvent();
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

  // Wait-all wakes when the last object is signalled by another thread.
  EventHandle events[3] = {CreateManualResetEvent(), a, CreateManualResetEvent()};
  std::thread setter([&] {
    std::this_thread::sleep_for(20ms);
    SetEvent(events[0]);
    std::this_thread::sleep_for(20ms);
    SetEvent(events[2]);
  });
  EXPECT_EQ(WaitForEvents(3, events, true, 2000), kWaitObject0);
  setter.join();
  for (EventHandle e : {events[0], a, b, events[2], EventHandle{}}) CloseEvent(e);
}

using Map = lmx::ConcurrentPointerMap<int>;

// A writer's accessor holds its entry: a reader waits for the finished update;
// inserting an existing key keeps it; erasing through an accessor empties it.
TEST(ConcurrentPointerMap, WriterHoldsTheEntryUntilItsAccessorEnds) {
  Map map;
  int key = 0, other = 0;
  std::atomic<bool> readerDone{false};
  std::thread reader;
  {
    Map::Accessor a;
    EXPECT_TRUE(map.Insert(a, &key));
    reader = std::thread([&] {
      Map::ConstAccessor r;
      EXPECT_TRUE(map.Find(r, &key));
      EXPECT_EQ(r.value(), 42) << "the reader sees the finished update";
      readerDone = true;
    });
    std::this_thread::sleep_for(30ms);
    EXPECT_FALSE(readerDone);
    a.value() = 42;
  }
  reader.join();
  Map::ConstAccessor r;
  EXPECT_FALSE(map.Find(r, &other));
  Map::Accessor a;
  EXPECT_FALSE(map.Insert(a, &key)) << "an existing entry is kept";
  EXPECT_EQ(a.value(), 42);
  map.Erase(a);
  EXPECT_TRUE(a.empty());
  EXPECT_FALSE(map.Erase(&key));
  EXPECT_EQ(map.Size(), 0u);
}

// Holders that sleep inside the section push waiters past their spin into
// sleeping on the lock word: each must be woken, and sections never overlap.
TEST(AdaptiveMutex, SleepingWaitersAreWokenAndSectionsNeverOverlap) {
  lmx::AdaptiveMutex mutex;
  int inside = 0, sections = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) {
        std::lock_guard lock(mutex);
        EXPECT_EQ(++inside, 1);
        if (i % 25 == 0) std::this_thread::sleep_for(1ms);
        ++sections;
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sections, 300);
}
