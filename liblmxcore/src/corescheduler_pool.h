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

#include <condition_variable>
#include <cstdint>
#include <deque>
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
struct TaskQueue {
  using Item = std::pair<LMXSchedulerService::Callback*, Norvik::Lumetra::Status>;
  std::mutex mutex;
  std::condition_variable condition;
  std::deque<Item> items;  // guarded by mutex
  bool stop = false;       // guarded by mutex
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
