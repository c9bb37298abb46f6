// Event log on Windows: RegisterEventSourceW / ReportEventW / DeregisterEventSource.
#include "lmx/platform/event_log.h"

#include <windows.h>

// windows.h maps RegisterEventSource to its A/W variant by macro, which would rename ours.
#undef RegisterEventSource

namespace lmx::platform {

EventSource RegisterEventSource(const std::wstring& name) { return ::RegisterEventSourceW(nullptr, name.c_str()); }

bool ReportErrorEvent(EventSource source, const std::wstring& text) {
  if (!source) return false;
  const wchar_t* strings[] = {text.c_str()};
  // One string, type error, category 0, event identifier 0, no user, no raw data.
  return ::ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr) != FALSE;
}

void DeregisterEventSource(EventSource source) {
  if (source) ::DeregisterEventSource(source);
}

}  // namespace lmx::platform
