// The dedicated worker thread on Windows: CreateThread and a bounded wait.
#include "lmx/platform/thread.h"

#include <windows.h>

#include <iterator>
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

void JoinLeavingThread(ThreadHandle thread) {
  // Under the loader lock the thread cannot end; 50 ms is ample for it to
  // return out of this module into the system's thread exit, where it waits.
  WaitAndForgetThread(thread, 50);
}

void NameCurrentThread(const char* name) {
  if (!name) return;
  // SetThreadDescription exists from Windows 10 1607; looked up so that older
  // systems (and older runtimes) simply keep unnamed threads.
  using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  static const auto set = reinterpret_cast<SetDescription>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
  if (!set) return;
  wchar_t wide[64] = {};
  for (size_t i = 0; i + 1 < std::size(wide) && name[i]; ++i) wide[i] = static_cast<wchar_t>(name[i]);
  set(::GetCurrentThread(), wide);
}

// Windows has no policy without wake-up preemption; a lower priority would let
// any busy thread starve the band threads, so the default stays.
void NeverPreemptOnWake() {}

uint32_t LogicalProcessorCount() { return std::thread::hardware_concurrency(); }

}  // namespace lmx::platform
