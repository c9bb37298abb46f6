// Debugger output on POSIX: one write() of the whole line to standard error.
#include "lmx/platform/debug_output.h"

#include <unistd.h>

#include <cstring>

namespace lmx::platform {

void WriteDebugOutput(const char* line) {
  if (!line) return;
  const size_t length = std::strlen(line);
  // One call keeps concurrent lines whole; a short write is not retried, as the
  // debugger output of other platforms gives no such guarantee either.
  [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, line, length);
}

}  // namespace lmx::platform
