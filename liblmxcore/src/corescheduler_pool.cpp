// The session's worker pools: the dedicated single worker and the thread pool.
#include "corescheduler_pool.h"

#include <new>

#include "corescheduler_text.h"
#include "cpu_relax.h"
#include "lmx/platform/registry.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {
constexpr size_t kInitialCapacity = 1024;
// Lock attempts before blocking on a busy queue.
constexpr int kLockSpins = 64;
}  // namespace

TaskQueue::TaskQueue() : ring(kInitialCapacity) {}

std::unique_lock<std::mutex> TaskQueue::Lock() {
  for (int attempt = 0; attempt < kLockSpins; ++attempt) {
    if (mutex.try_lock()) return std::unique_lock<std::mutex>(mutex, std::adopt_lock);
    CpuRelax();
  }
  return std::unique_lock<std::mutex>(mutex);
}

bool TaskQueue::Push(const Item& item) {
  if (tail - head == ring.size()) {
    // Full: move the items, in order, to the front of a ring twice the size.
    std::vector<Item> wider(ring.size() * 2);
    for (size_t i = head; i != tail; ++i) wider[i - head] = ring[i & (ring.size() - 1)];
    tail -= head;
    head = 0;
    ring.swap(wider);
  }
  ring[tail++ & (ring.size() - 1)] = item;
  if (sleepers <= signalled) return false;
  ++signalled;
  return true;
}

TaskQueue::Item TaskQueue::Pop() { return ring[head++ & (ring.size() - 1)]; }

void TaskQueue::Sleep(std::unique_lock<std::mutex>& lock) {
  ++sleepers;
  condition.wait(lock);
  --sleepers;
  // Spurious wake-ups may take a signal meant for another sleeper; that sleeper
  // then stays asleep while this worker, awake, drains the queue.
  if (signalled > 0) --signalled;
}

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

void Push(TaskQueue& queue, LMXSchedulerService::Callback* task, Status sts) {
  bool wake;
  {
    std::unique_lock lock = queue.Lock();
    wake = queue.Push({task, sts});
  }
  if (wake) queue.condition.notify_one();
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
      std::unique_lock lock = queue.Lock();
      while (queue.Empty()) queue.Sleep(lock);
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
void PoolWorker(std::shared_ptr<TaskQueue> shared) {
  TaskQueue& queue = *shared;
  for (;;) {
    TaskQueue::Item item;
    {
      std::unique_lock lock = queue.Lock();
      while (queue.Empty() && !queue.stop) queue.Sleep(lock);
      if (queue.Empty()) return;
      item = queue.Pop();
    }
    char text[512];
    RunNamedTask(item.first, item.second, text, sizeof text);
  }
}

}  // namespace

PThreadScheduler::PThreadScheduler() : queue(std::make_shared<TaskQueue>()) {
  // A thread that cannot be created leaves a null handle; submitted tasks then
  // never run, as with a pool of no threads.
  auto* workerQueue = new (std::nothrow) std::shared_ptr<TaskQueue>(queue);
  if (!workerQueue) return;
  thread = platform::StartThread(&SingleWorker, workerQueue);
  if (!thread) delete workerQueue;
}

PThreadScheduler::~PThreadScheduler() {
  {
    std::lock_guard lock(queue->mutex);
    queue->stop = true;
  }
  Submit(nullptr, LMX_STATUS_NO_ERROR);
  // A task still running after a second finishes on its own; whatever is queued
  // behind it is dropped with the worker's reference to the queue.
  platform::WaitAndForgetThread(thread, 1000);
  thread = nullptr;
}

Status PThreadScheduler::Submit(LMXSchedulerService::Callback* task, Status sts) {
  Push(*queue, task, sts);
  return LMX_STATUS_NO_ERROR;
}

STDThreadPool::STDThreadPool(int32_t count) : threadCount(count), queue(std::make_shared<TaskQueue>()) {
  for (int32_t i = 0; i < threadCount; ++i) {
    try {
      threads.emplace_back(&PoolWorker, queue);
    } catch (const std::system_error&) {
      break;  // creation failures are not reported; fewer workers run
    }
  }
}

STDThreadPool::~STDThreadPool() {
  {
    std::unique_lock lock = queue->Lock();
    queue->stop = true;
  }
  queue->condition.notify_all();
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

Status STDThreadPool::Submit(LMXSchedulerService::Callback* task, Status sts) {
  Push(*queue, task, sts);
  return LMX_STATUS_NO_ERROR;
}

int32_t HardwareThreadCount() {
  static const int32_t count = static_cast<int32_t>(platform::LogicalProcessorCount());
  return count;
}

TaskScheduler* CreateTaskSchedulerFor(uint32_t numberThreads) {
  try {
    if (numberThreads == 1) return new PThreadScheduler();
    return new STDThreadPool(HardwareThreadCount());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

TaskScheduler* CreateTaskScheduler(Session*) {
  // The value only selects the single-worker mode; it is never a thread count.
  const auto key = platform::RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK");
  return CreateTaskSchedulerFor(key.ReadDword(L"NumberThreads").value_or(0));
}

}  // namespace lmx
