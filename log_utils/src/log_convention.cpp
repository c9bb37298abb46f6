// The failure-logging convention of lmxutils.h: messages built in a wide string stream.
#include <sstream>
#include <string>

#include "lmxutils.h"

namespace lmx::detail {

using namespace Norvik::Lumetra;

void LogFailedOn(const char* condition, const char* file, int line, const char* function) {
  std::wostringstream message;
  message << L"failed on " << condition;
  lmsdk::LogUtil::GetLogger()->LogW(LOG_LEVEL_ERROR, message.str().c_str(), file, line, function);
}

Status FailedOnException(const char* file, int line, const char* function) noexcept {
  static constexpr char kCondition[] = "memory allocation";
  try {
    if (ErrorEnabled()) LogFailedOn(kCondition, file, line, function);
  } catch (...) {
    // Out of memory for the message itself: the narrow text needs no copy here.
    try {
      lmsdk::LogUtil::GetLogger()->Log(LOG_LEVEL_ERROR, "failed on memory allocation", file, line, function);
    } catch (...) {
    }
  }
  return LMX_STATUS_ALLOC_FAILED;
}

void LogCallFailed(Status sts, const char* call, const char* file, int line, const char* function) {
  std::wostringstream message;
  message << L"Error ";
  const char* text = GetStatusText(sts);
  // Unknown statuses carry the wide text behind the narrow pointer.
  if (text == reinterpret_cast<const char*>(kUnknownStatusText)) {
    message << reinterpret_cast<const wchar_t*>(text);
  } else {
    message << text;
  }
  message << L" calling " << call;
  lmsdk::LogUtil::GetLogger()->LogW(LOG_LEVEL_ERROR, message.str().c_str(), file, line, function);
}

void LogCallFailed(int32_t code, const char* call, const char* file, int line, const char* function) {
  const std::string message = "\nError " + std::to_string(code) + " calling " + call;
  lmsdk::LogUtil::GetLogger()->Log(LOG_LEVEL_ERROR, message.c_str(), file, line, function);
}

}  // namespace lmx::detail
