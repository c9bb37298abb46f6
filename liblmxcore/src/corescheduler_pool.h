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
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "lmx/platform/thread.h"
#include "lmxscheduler.h"
#include "lmxsession.h"

namespace lmx {

class TaskScheduler {
 public:
  virtual ~TaskScheduler() = default;
  // Queues the pair; may be called from any thread, workers included.
  virtual Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) = 0;
};

// The queue, its lock and the stop flag, shared by a pool and its workers so that
// a worker that outlives the pool's destructor never touches freed memory.
//
// The FIFO is a ring that doubles when full and never shrinks, so queuing a task
// allocates nothing once the ring has grown to the backlog's peak. Workers count
// themselves asleep, and a push signals the condition only when a sleeper has not
// already been signalled. The lock, the condition and the guarded fields sit on
// separate cache lines.
struct TaskQueue {
  using Item = std::pair<LMXSchedulerService::Callback*, Norvik::Lumetra::Status>;

  TaskQueue();
  // Locks the mutex, briefly retrying before blocking: the sections it guards
  // are a few instructions long.
  std::unique_lock<std::mutex> Lock();
  // Appends the item; returns whether a sleeping worker must be woken (after
  // the lock is released). Requires: the lock is held. May throw std::bad_alloc.
  bool Push(const Item& item);
  // Removes the front item. Requires: the lock is held and the queue is not empty.
  Item Pop();
  // Waits on the condition, counted as a sleeper. Requires: the lock is held.
  void Sleep(std::unique_lock<std::mutex>& lock);
  bool Empty() const { return head == tail; }

  alignas(64) std::mutex mutex;
  alignas(64) std::condition_variable condition;
  // Guarded by mutex.
  alignas(64) std::vector<Item> ring;  // capacity is a power of two
  size_t head = 0;                     // next to pop; positions grow without bound
  size_t tail = 0;                     // next free
  uint32_t sleepers = 0;               // workers waiting on the condition
  uint32_t signalled = 0;              // sleepers signalled but not yet awake
  // Written under mutex; the single worker reads it after each task without it.
  std::atomic<bool> stop{false};
};

class PThreadScheduler final : public TaskScheduler {
 public:
  PThreadScheduler();
  ~PThreadScheduler() override;
  Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) override;

 private:
  std::shared_ptr<TaskQueue> queue;
  platform::ThreadHandle thread = nullptr;
};

class STDThreadPool final : public TaskScheduler {
 public:
  explicit STDThreadPool(int32_t threadCount);
  ~STDThreadPool() override;
  Norvik::Lumetra::Status Submit(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) override;
  int32_t ThreadCount() const { return threadCount; }

 private:
  int32_t threadCount;
  std::vector<std::thread> threads;
  std::shared_ptr<TaskQueue> queue;
};

// Reads "NumberThreads" and creates the pool it selects; null if out of memory.
// The session is not used.
TaskScheduler* CreateTaskScheduler(Norvik::Lumetra::Session* session);
// The pool for a given "NumberThreads" value (0 when absent).
TaskScheduler* CreateTaskSchedulerFor(uint32_t numberThreads);
// Logical processors, computed once per process.
int32_t HardwareThreadCount();

}  // namespace lmx
