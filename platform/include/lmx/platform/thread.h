// thread.h: the library's own threads (the single dedicated worker, the
// conversion band threads) and the processor count.
//
// Example:
//   ThreadHandle thread = StartThread(&Worker, context);
//   ...
//   WaitAndForgetThread(thread, 1000);  // at most one second, then let go
#pragma once

#include <cstdint>

namespace lmx::platform {

using ThreadHandle = void*;
using ThreadEntry = uint32_t (*)(void* argument);

// Starts a thread running entry(argument) with default attributes; null if the
// thread could not be created.
ThreadHandle StartThread(ThreadEntry entry, void* argument);

// Waits at most timeoutMs (kInfinite-style -1 waits forever) for the thread to
// end, then releases the handle: a thread still running goes on, detached, and
// nobody waits for it any more. Returns whether the thread ended in time. A null
// handle returns true at once.
bool WaitAndForgetThread(ThreadHandle thread, int32_t timeoutMs);

// Waits for a thread that has been told to stop and is leaving, then releases
// the handle. For threads stopped from a static destructor at unload: on
// Windows those destructors run under the loader lock, which a thread needs in
// order to end, so the wait is bounded (long enough for the thread to leave
// this module's code; it ends once the lock is released). On POSIX a plain
// join.
void JoinLeavingThread(ThreadHandle thread);

// Names the calling thread for debuggers and process listings (at most 15
// characters are kept on Linux). Best effort: ignored where unsupported.
void NameCurrentThread(const char* name);

// Marks the calling thread as throughput work that never preempts a running
// thread when it is woken: woken while every processor is busy, it waits for a
// time slice instead of displacing its waker. Best effort: ignored where
// unsupported.
void NeverPreemptOnWake();

// The number of logical processors as the standard library reports it (0 when
// unknown).
uint32_t LogicalProcessorCount();

}  // namespace lmx::platform
