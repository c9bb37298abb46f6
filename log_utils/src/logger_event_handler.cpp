// LoggerEventHandler: error entries in the event log, under the executable's name.
#include <string>

#include "lmx/platform/module.h"
#include "lmx/platform/text.h"
#include "lmx_loggers.h"

namespace lmsdk {

LoggerEventHandler::LoggerEventHandler() {
  const std::filesystem::path executable = lmx::platform::ExecutablePath();
  source_ = lmx::platform::RegisterEventSource(executable.stem().wstring());
}

LoggerEventHandler::~LoggerEventHandler() {
  if (source_) lmx::platform::DeregisterEventSource(source_);
}

bool LoggerEventHandler::Report(const char* text) {
  if (!source_ || !text) return false;
  std::wstring wide = lmx::platform::Utf8ToWide(text);
  if (wide.size() > kMaxReportChars) wide.resize(kMaxReportChars);
  return lmx::platform::ReportErrorEvent(source_, wide);
}

}  // namespace lmsdk
