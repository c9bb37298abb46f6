// The session's worker pools: the dedicated single worker and the thread pool.
#include "scheduler/corescheduler_pool.h"

#include <algorithm>
#include <new>

#include "scheduler/corescheduler_text.h"
#include "lmx/platform/registry.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {
constexpr size_t kInitialCapacity = 1024;
}  // namespace

TaskQueue::TaskQueue(size_t workers) : ring(kInitialCapacity), idle(workers) {}

TaskQueue::Sleeper* TaskQueue::Push(const Item& item) {
  if (tail - head == ring.size()) {
    // Full: move the items, in order, to the front of a ring twice the size.
    std::vector<Item> wider(ring.size() * 2);
    for (size_t i = head; i != tail; ++i) wider[i - head] = ring[i & (ring.size() - 1)];
    tail -= head;
    head = 0;
    ring.swap(wider);
  }
  ring[tail++ & (ring.size() - 1)] = item;
  return idle.Pop();
}

TaskQueue::Item TaskQueue::Pop() { return ring[head++ & (ring.size() - 1)]; }

namespace {

// Runs one task inside a level-5000 trace that names it; the text is built in the
// caller's fixed buffer, and only when the level is on.
void RunNamedTask(LMXSchedulerService::Callback* task, Status sts, char* text, size_t size) {
  LoggingService* logger = lmsdk::LogUtil::GetLogger();
  if (!logger->IsLevelEnabled(LOG_LEVEL_TRACE)) {
    task->Run(sts);
    return;
  }
  const wchar_t* name = task->QueryName();
  if (name) {
    FormatTaskText(text, size, "", name, " (Async execution)");
  } else {
    FormatTaskText(text, size, "Unknown Async task", nullptr, "");
  }
  const bool traced = text[0] != '\0';
  if (traced) logger->TraceEnter(LOG_LEVEL_TRACE, text);
  task->Run(sts);
  if (traced) logger->TraceLeave(LOG_LEVEL_TRACE, text);
}

// Queues a task. A full queue that cannot grow keeps its items and refuses this
// one, so that the submitter can run it rather than lose it.
Status Push(TaskQueue& queue, LMXSchedulerService::Callback* task, Status sts) {
  TaskQueue::Sleeper* sleeper = nullptr;
  bool grown = true;
  try {
    LockGuard lock(queue.mutex);
    sleeper = queue.Push({task, sts});
  } catch (const std::bad_alloc&) {
    grown = false;
  }
  LMX_CHECK(grown, LMX_STATUS_ALLOC_FAILED);
  SleeperStack::Wake(sleeper);
  return LMX_STATUS_NO_ERROR;
}

// The dedicated worker. It owns one reference to the queue, so it may outlive
// the pool; the stop flag is tested only after an item has been taken, so the
// destructor's null sentinel is what wakes an idle worker.
uint32_t SingleWorker(void* argument) {
  std::unique_ptr<std::shared_ptr<TaskQueue>> owned(static_cast<std::shared_ptr<TaskQueue>*>(argument));
  TaskQueue& queue = **owned;
  for (;;) {
    TaskQueue::Item item;
    {
      LockGuard lock(queue.mutex);
      while (queue.Empty()) queue.idle.Wait(0, queue.mutex);
      item = queue.Pop();
    }
    if (item.first) {
      char text[260];
      RunNamedTask(item.first, item.second, text, sizeof text);
    }
    if (queue.stop.load(std::memory_order_acquire)) return 0;
  }
}

// A pool worker: leaves only when stopping and the queue is empty, so every
// queued task runs.
void PoolWorker(std::shared_ptr<TaskQueue> shared, size_t index) {
  TaskQueue& queue = *shared;
  for (;;) {
    TaskQueue::Item item;
    {
      LockGuard lock(queue.mutex);
      while (queue.Empty() && !queue.stop) queue.idle.Wait(index, queue.mutex);
      if (queue.Empty()) return;
      item = queue.Pop();
    }
    char text[512];
    RunNamedTask(item.first, item.second, text, sizeof text);
  }
}

}  // namespace

PThreadScheduler::PThreadScheduler() : queue(std::make_shared<TaskQueue>(1)) {
  // A thread that cannot be created leaves a null handle; submitted tasks then
  // never run, as with a pool of no threads.
  auto* workerQueue = new (std::nothrow) std::shared_ptr<TaskQueue>(queue);
  if (!workerQueue) return;
  thread = platform::StartThread(&SingleWorker, workerQueue);
  if (!thread) delete workerQueue;
}

PThreadScheduler::~PThreadScheduler() {
  {
    LockGuard lock(queue->mutex);
    queue->stop = true;
  }
  Submit(nullptr, LMX_STATUS_NO_ERROR);
  // A task still running after a second finishes on its own; whatever is queued
  // behind it is dropped with the worker's reference to the queue.
  platform::WaitAndForgetThread(thread, 1000);
  thread = nullptr;
}

Status PThreadScheduler::Submit(LMXSchedulerService::Callback* task, Status sts) { return Push(*queue, task, sts); }

STDThreadPool::STDThreadPool(int32_t count)
    : threadCount(count), queue(std::make_shared<TaskQueue>(static_cast<size_t>(std::max(count, 0)))) {
  // Room for every worker first, so that adding a started thread never throws
  // (a joinable thread unwound out of the vector would end the process).
  try {
    threads.reserve(static_cast<size_t>(std::max(threadCount, 0)));
  } catch (...) {
    return;  // no worker: Started() tells the factory
  }
  for (int32_t i = 0; i < threadCount; ++i) {
    try {
      threads.emplace_back(&PoolWorker, queue, static_cast<size_t>(i));
    } catch (...) {
      break;  // a worker that cannot be created leaves fewer workers
    }
  }
}

STDThreadPool::~STDThreadPool() {
  TaskQueue::Sleeper* sleepers;
  {
    LockGuard lock(queue->mutex);
    queue->stop = true;
    sleepers = queue->idle.PopAll();
  }
  SleeperStack::WakeAll(sleepers);
  for (std::thread& worker : threads) {
    // A pool destroyed by one of its own tasks cannot join that worker; it lets
    // it finish on its own (it holds the queue) instead of failing.
    if (worker.get_id() == std::this_thread::get_id()) {
      worker.detach();
    } else if (worker.joinable()) {
      worker.join();
    }
  }
}

Status STDThreadPool::Submit(LMXSchedulerService::Callback* task, Status sts) { return Push(*queue, task, sts); }

int32_t HardwareThreadCount() {
  static const int32_t count = static_cast<int32_t>(platform::LogicalProcessorCount());
  return count;
}

TaskScheduler* CreateTaskSchedulerFor(uint32_t numberThreads) {
  std::unique_ptr<TaskScheduler> pool;
  try {
    if (numberThreads == 1) {
      pool = std::make_unique<PThreadScheduler>();
    } else {
      pool = std::make_unique<STDThreadPool>(HardwareThreadCount());
    }
  } catch (...) {
    return nullptr;
  }
  if (LMX_FAILED_ON(pool->Started())) return nullptr;
  return pool.release();
}

TaskScheduler* CreateTaskScheduler(Session*) {
  // The value only selects the single-worker mode; it is never a thread count.
  uint32_t numberThreads = 0;
  try {
    const auto key = platform::RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK");
    numberThreads = key.ReadDword(L"NumberThreads").value_or(0);
  } catch (...) {
    return nullptr;  // out of memory reading the registry
  }
  return CreateTaskSchedulerFor(numberThreads);
}

}  // namespace lmx
