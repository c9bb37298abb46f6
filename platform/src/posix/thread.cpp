// The dedicated worker thread on POSIX: pthread_create, and a timed join for the
// bounded wait after which the thread is detached.
#include "lmx/platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <thread>

namespace lmx::platform {

namespace {

struct ThreadStart {
  ThreadEntry entry;
  void* argument;
};

void* RunThread(void* raw) {
  const ThreadStart start = *static_cast<ThreadStart*>(raw);
  delete static_cast<ThreadStart*>(raw);
  start.entry(start.argument);
  return nullptr;
}

struct PosixThread {
  pthread_t id;
};

}  // namespace

ThreadHandle StartThread(ThreadEntry entry, void* argument) {
  if (!entry) return nullptr;
  auto* start = new (std::nothrow) ThreadStart{entry, argument};
  auto* thread = new (std::nothrow) PosixThread{};
  if (!start || !thread || ::pthread_create(&thread->id, nullptr, &RunThread, start) != 0) {
    delete start;
    delete thread;
    return nullptr;
  }
  return thread;
}

bool WaitAndForgetThread(ThreadHandle handle, int32_t timeoutMs) {
  auto* thread = static_cast<PosixThread*>(handle);
  if (!thread) return true;
  int result;
  if (timeoutMs < 0) {
    result = ::pthread_join(thread->id, nullptr);
  } else {
    timespec deadline{};
    ::clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += timeoutMs / 1000;
    deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
      deadline.tv_sec += 1;
      deadline.tv_nsec -= 1000000000L;
    }
    do {
      result = ::pthread_timedjoin_np(thread->id, nullptr, &deadline);
    } while (result == EINTR);
  }
  const bool ended = result == 0;
  if (!ended) ::pthread_detach(thread->id);
  delete thread;
  return ended;
}

void JoinLeavingThread(ThreadHandle thread) { WaitAndForgetThread(thread, -1); }

void NameCurrentThread(const char* name) {
  if (!name) return;
  char truncated[16] = {};
  std::strncpy(truncated, name, sizeof truncated - 1);
  ::pthread_setname_np(::pthread_self(), truncated);
}

void NeverPreemptOnWake() {
  // Linux's batch policy: same share of the processor, no wake-up preemption.
  const sched_param param{};
  ::pthread_setschedparam(::pthread_self(), SCHED_BATCH, &param);
}

uint32_t LogicalProcessorCount() { return std::thread::hardware_concurrency(); }

}  // namespace lmx::platform
