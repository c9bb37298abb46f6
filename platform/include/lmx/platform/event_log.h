// event_log.h: the operating system's event log (syslog on POSIX).
#pragma once

#include <string>

namespace lmx::platform {

using EventSource = void*;

// Registers an event source of the given name on the local machine; null on failure.
EventSource RegisterEventSource(const std::wstring& name);
// Writes one error-type entry with the text; returns whether it was written.
bool ReportErrorEvent(EventSource source, const std::wstring& text);
void DeregisterEventSource(EventSource source);

}  // namespace lmx::platform
