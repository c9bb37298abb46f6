// Event log on POSIX: syslog(LOG_USER | LOG_ERR) with the source name as ident.
#include "lmx/platform/event_log.h"

#include <syslog.h>

#include <new>
#include <string>

#include "lmx/platform/text.h"

namespace lmx::platform {

namespace {
// openlog keeps the ident pointer, so the source owns the text until it is deregistered.
struct SyslogSource {
  std::string ident;
};
}  // namespace

EventSource RegisterEventSource(const std::wstring& name) {
  auto* source = new (std::nothrow) SyslogSource{WideToUtf8(name)};
  if (!source) return nullptr;
  ::openlog(source->ident.c_str(), LOG_PID, LOG_USER);
  return source;
}

bool ReportErrorEvent(EventSource source, const std::wstring& text) {
  if (!source) return false;
  ::syslog(LOG_USER | LOG_ERR, "%s", WideToUtf8(text).c_str());
  return true;
}

void DeregisterEventSource(EventSource source) {
  if (!source) return;
  ::closelog();
  delete static_cast<SyslogSource*>(source);
}

}  // namespace lmx::platform
