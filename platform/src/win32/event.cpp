// Events on Windows: manual-reset event objects and the native wait functions.
#include "lmx/platform/event.h"

#include <windows.h>

namespace lmx::platform {

namespace {
// Full event access (EVENT_ALL_ACCESS).
constexpr DWORD kEventAllAccess = 0x1F0003;
}  // namespace

EventHandle CreateManualResetEvent() {
  return ::CreateEventExW(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, kEventAllAccess);
}

bool SetEvent(EventHandle event) { return event && ::SetEvent(static_cast<HANDLE>(event)) != FALSE; }

void CloseEvent(EventHandle event) {
  if (event) ::CloseHandle(static_cast<HANDLE>(event));
}

uint32_t WaitForEvent(EventHandle event, int32_t timeoutMs) {
  // -1 converts to INFINITE; the answer (including WAIT_ABANDONED) passes through.
  return ::WaitForSingleObjectEx(static_cast<HANDLE>(event), static_cast<DWORD>(timeoutMs), FALSE);
}

uint32_t WaitForEvents(uint32_t count, const EventHandle* handles, bool waitAll, int32_t timeoutMs) {
  // The system itself refuses 0 and more than MAXIMUM_WAIT_OBJECTS with WAIT_FAILED;
  // a missing array is refused the same way rather than handed to it.
  if (!handles) return kWaitFailed;
  return ::WaitForMultipleObjectsEx(static_cast<DWORD>(count), reinterpret_cast<const HANDLE*>(handles),
                                    waitAll ? TRUE : FALSE, static_cast<DWORD>(timeoutMs), FALSE);
}

}  // namespace lmx::platform
