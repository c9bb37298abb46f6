// corescheduler_pool.h: the worker pools that run a session's asynchronous tasks.
//
//   PThreadScheduler  one dedicated worker; tasks run one after another in order.
//                     Destruction waits at most one second and drops the backlog.
//   STDThreadPool     one worker per logical processor; tasks start in order and
//                     run in parallel. Destruction runs every queued task first.
//
// The registry value "NumberThreads" under HKLM "Software\Norvik\LMSDK" selects:
// exactly 1 gives the dedicated worker, anything else (absent included) the pool.
// Neither takes references on tasks.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "scheduler/adaptive_mutex.h"
#include "lmx/platform/thread.h"
#include "lmxscheduler.h"
#include "lmxsession.h"
#include "scheduler/sleeper_stack.h"

namespace lmx {

class TaskScheduler {
 public:
  virtual ~TaskScheduler() = default;
  // Queues the pair; may be called from any thread, workers included. Returns
  // LMX_STATUS_ALLOC_FAILED, queuing nothing, when a full queue cannot grow.
  virtual Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) = 0;
  // Whether at least one worker runs: a pool without one would accept tasks
  // that never run.
  virtual bool Started() const = 0;
};

// The queue, its lock, its idle workers and the stop flag, shared by a pool and
// its workers so that a worker that outlives the pool's destructor never touches
// freed memory.
//
// The FIFO is a ring that doubles when full and never shrinks, so queuing a task
// allocates nothing once the ring has grown to the backlog's peak. A push wakes a
// worker only when one is asleep. The lock and the fields it guards share one
// cache line, which its holder alone touches, so handing the lock over moves one
// line between processors.
struct TaskQueue {
  using Item = std::pair<LMXSchedulerService::Callback*, Norvik::Lumetra::Status>;
  using Sleeper = SleeperStack::Sleeper;

  explicit TaskQueue(size_t workers);
  // Appends the item; returns the sleeping worker to wake once the lock is
  // released, or null. Requires: the lock is held. May throw std::bad_alloc.
  Sleeper* Push(const Item& item) LMX_REQUIRES(mutex);
  // Removes the front item. Requires: the lock is held and the queue is not empty.
  Item Pop() LMX_REQUIRES(mutex);
  bool Empty() const LMX_REQUIRES(mutex) { return head == tail; }

  alignas(64) AdaptiveMutex mutex;
  std::vector<Item> ring LMX_GUARDED_BY(mutex);  // capacity is a power of two
  size_t head LMX_GUARDED_BY(mutex) = 0;         // next to pop; positions grow without bound
  size_t tail LMX_GUARDED_BY(mutex) = 0;         // next free
  SleeperStack idle LMX_GUARDED_BY(mutex);       // workers waiting for work; worker i sleeps as i
  // Written under mutex; the single worker reads it after each task without it.
  std::atomic<bool> stop{false};
};

class PThreadScheduler final : public TaskScheduler {
 public:
  PThreadScheduler();
  ~PThreadScheduler() override;
  Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) override;
  bool Started() const override { return thread != nullptr; }

 private:
  std::shared_ptr<TaskQueue> queue;
  platform::ThreadHandle thread = nullptr;
};

class STDThreadPool final : public TaskScheduler {
 public:
  explicit STDThreadPool(int32_t threadCount);
  ~STDThreadPool() override;
  Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) override;
  bool Started() const override { return !threads.empty(); }
  int32_t ThreadCount() const { return threadCount; }

 private:
  int32_t threadCount;
  std::vector<std::thread> threads;
  std::shared_ptr<TaskQueue> queue;
};

// Reads "NumberThreads" and creates the pool it selects; null if out of memory
// or if not one worker could be started. Never throws. The session is not used.
TaskScheduler* CreateTaskScheduler(Norvik::Lumetra::Session* session);
// The pool for a given "NumberThreads" value (0 when absent); null as above.
TaskScheduler* CreateTaskSchedulerFor(uint32_t numberThreads);
// Logical processors, computed once per process.
int32_t HardwareThreadCount();

}  // namespace lmx
