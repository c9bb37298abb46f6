// Text pieces of the scheduler's log lines.
#include "scheduler/corescheduler_log.h"

#include <cstdio>

namespace lmx {

using namespace Norvik::Lumetra;

std::wstring PointerText(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return std::wstring(text, text + std::char_traits<char>::length(text));
}

std::wstring StatusText(Status sts) {
  const char* text = GetStatusText(sts);
  // Unknown statuses carry the wide text behind the narrow pointer.
  if (text == reinterpret_cast<const char*>(kUnknownStatusText)) return kUnknownStatusText;
  return std::wstring(text, text + std::char_traits<char>::length(text));
}

}  // namespace lmx
