// LoggerDebugView: one line per message to the debugger output.
#include <cstdio>
#include <cstring>
#include <string>

#include "lmx/platform/debug_output.h"
#include "lmx/platform/text.h"
#include "lmx_loggers.h"

namespace lmsdk {

using namespace Norvik::Lumetra;

namespace {

// The last component of a source path; source paths may use either separator.
const char* BareFileName(const char* path) {
  if (!path) return "";
  const char* bare = path;
  for (const char* p = path; *p; ++p) {
    if (*p == '\\' || *p == '/') bare = p + 1;
  }
  return bare;
}

}  // namespace

Status LoggerDebugView::SetName(const wchar_t* name) {
  name_ = name ? lmx::platform::WideToUtf8(name) : std::string();
  return LMX_STATUS_NO_ERROR;
}

Status LoggerDebugView::Configure(int32_t, const wchar_t*, int32_t) { return LMX_STATUS_NO_ERROR; }

Status LoggerDebugView::SetLevel(int32_t level) {
  threshold_.store(level, std::memory_order_relaxed);
  return LMX_STATUS_NO_ERROR;
}

void LoggerDebugView::FormatLine(char* buffer, int32_t level, const char* message, const char* file,
                                 int32_t line) const {
  buffer[kLineBufferSize - 1] = '\0';
  const int written = std::snprintf(buffer, kLineBufferSize, "%s: %s: %s: %d: %s\n", name_.c_str(), LogLevelName(level),
                                    BareFileName(file), line, message ? message : "");
  // A cut line keeps its line feed so the next one starts on a line of its own.
  if (written >= static_cast<int>(kLineBufferSize)) buffer[kLineBufferSize - 2] = '\n';
}

void LoggerDebugView::Log(int32_t level, const char* message, const char* file, int32_t line, const char*) {
  if (!IsLevelEnabled(level)) return;
  char buffer[kLineBufferSize];
  FormatLine(buffer, level, message, file, line);
  lmx::platform::WriteDebugOutput(buffer);
}

void LoggerDebugView::LogW(int32_t level, const wchar_t* message, const char* file, int32_t line, const char*) {
  if (!IsLevelEnabled(level)) return;
  const std::string narrow = message ? lmx::platform::WideToUtf8(message) : std::string();
  char buffer[kLineBufferSize];
  FormatLine(buffer, level, narrow.c_str(), file, line);
  lmx::platform::WriteDebugOutput(buffer);
}

}  // namespace lmsdk
