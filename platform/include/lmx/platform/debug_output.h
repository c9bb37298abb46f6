// debug_output.h: the debugger output channel (standard error on POSIX).
#pragma once

namespace lmx::platform {

// Hands one complete line to the debugger output in a single call, so lines from
// different threads never interleave.
void WriteDebugOutput(const char* line);

}  // namespace lmx::platform
