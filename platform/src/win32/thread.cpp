// The dedicated worker thread on Windows: CreateThread and a bounded wait.
#include "lmx/platform/thread.h"

#include <windows.h>

#include <new>
#include <thread>

namespace lmx::platform {

namespace {

struct ThreadStart {
  ThreadEntry entry;
  void* argument;
};

DWORD WINAPI RunThread(LPVOID raw) {
  const ThreadStart start = *static_cast<ThreadStart*>(raw);
  delete static_cast<ThreadStart*>(raw);
  return start.entry(start.argument);
}

}  // namespace

ThreadHandle StartThread(ThreadEntry entry, void* argument) {
  if (!entry) return nullptr;
  auto* start = new (std::nothrow) ThreadStart{entry, argument};
  if (!start) return nullptr;
  // Default security and stack size, no creation flags, no thread id requested.
  HANDLE thread = ::CreateThread(nullptr, 0, &RunThread, start, 0, nullptr);
  if (!thread) delete start;
  return thread;
}

bool WaitAndForgetThread(ThreadHandle thread, int32_t timeoutMs) {
  if (!thread) return true;
  const bool ended = ::WaitForSingleObject(static_cast<HANDLE>(thread), static_cast<DWORD>(timeoutMs)) == WAIT_OBJECT_0;
  // Closing the handle does not stop a thread that is still running.
  ::CloseHandle(static_cast<HANDLE>(thread));
  return ended;
}

uint32_t LogicalProcessorCount() { return std::thread::hardware_concurrency(); }

}  // namespace lmx::platform
