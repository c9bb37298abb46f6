// Task names for traces, built without allocating.
#include "scheduler/corescheduler_text.h"

namespace lmx {

char* FormatTaskText(char* buffer, size_t size, const char* prefix, const wchar_t* name, const char* suffix) {
  if (size == 0) return buffer;
  size_t used = 0;
  auto put = [&](char c) {
    if (used + 1 < size) buffer[used++] = c;
  };
  for (const char* p = prefix; p && *p; ++p) put(*p);
  for (const wchar_t* p = name; p && *p; ++p) put(*p > 0 && *p < 0x80 ? static_cast<char>(*p) : '?');
  for (const char* p = suffix; p && *p; ++p) put(*p);
  buffer[used] = '\0';
  return buffer;
}

}  // namespace lmx
