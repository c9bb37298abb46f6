// thread.h: the single dedicated worker thread and the processor count.
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

// The number of logical processors as the standard library reports it (0 when
// unknown).
uint32_t LogicalProcessorCount();

}  // namespace lmx::platform
