// corescheduler_text.h: task names written into fixed narrow buffers for traces.
#pragma once

#include <cstddef>

namespace lmx {

// Writes prefix, then the wide name narrowed (characters outside ASCII become
// '?'), then suffix into buffer, truncating at size - 1 characters. Returns buffer.
char* FormatTaskText(char* buffer, size_t size, const char* prefix, const wchar_t* name, const char* suffix);

}  // namespace lmx
