// Debugger output on Windows: OutputDebugStringA, one call per line.
#include "lmx/platform/debug_output.h"

#include <windows.h>

namespace lmx::platform {

void WriteDebugOutput(const char* line) {
  if (line) ::OutputDebugStringA(line);
}

}  // namespace lmx::platform
