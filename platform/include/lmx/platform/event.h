// event.h: manual-reset events and waits on them, with the Windows answers.
//
// An event starts non-signalled; SetEvent signals it for good (manual reset: no
// wait ever resets it). Waits answer like the Windows wait functions:
//   0 .. count-1            the (lowest) index of a signalled object
//   kWaitAbandoned0 + i     an abandoned mutex among the handles (Windows only)
//   kWaitTimeout (258)      the time-out passed
//   kWaitFailed (all bits)  bad arguments: no handles, more than 64, a null or
//                           invalid handle
// Time-outs are milliseconds; kInfinite (-1) waits forever, 0 only polls.
//
// POSIX: an event is an eventfd that SetEvent writes to and nobody reads, so it
// stays readable. Any handle passed to a wait is a file descriptor carried as
// (void*)(intptr_t)fd that counts as signalled while it is readable. Descriptor 0
// is never handed out, so a null handle is always invalid.
#pragma once

#include <cstdint>

namespace lmx::platform {

using EventHandle = void*;

inline constexpr uint32_t kWaitObject0 = 0;
inline constexpr uint32_t kWaitAbandoned0 = 128;
inline constexpr uint32_t kWaitTimeout = 258;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFFu;
inline constexpr uint32_t kMaximumWaitObjects = 64;
inline constexpr int32_t kInfinite = -1;

// A new non-signalled manual-reset event; null if it cannot be created.
EventHandle CreateManualResetEvent();
// Signals the event; false for a null or invalid handle.
bool SetEvent(EventHandle event);
// Closes the event; a null handle is ignored.
void CloseEvent(EventHandle event);

// Waits for one handle: kWaitObject0, kWaitTimeout or kWaitFailed. Not alertable.
uint32_t WaitForEvent(EventHandle event, int32_t timeoutMs);
// Waits for all (waitAll) or any of count handles. Not alertable.
uint32_t WaitForEvents(uint32_t count, const EventHandle* handles, bool waitAll, int32_t timeoutMs);

}  // namespace lmx::platform
