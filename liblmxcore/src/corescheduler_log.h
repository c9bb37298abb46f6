// corescheduler_log.h: the scheduler's parameter and result lines.
//
// LMX_SCHED_LOG(level, pieces) builds a wide message from stream pieces, only when
// the level is enabled, and logs it with this source file, line and function.
// Pointers are written with the "%p" conversion (PointerText) and statuses with
// their text (StatusText).
#pragma once

#include <sstream>
#include <string>

#include "lmxutils.h"

namespace lmx {

// A pointer as "%p" writes it.
std::wstring PointerText(const void* pointer);
// The text of a status as a wide string (unknown values included).
std::wstring StatusText(Norvik::Lumetra::Status sts);

}  // namespace lmx

#define LMX_SCHED_LOG(level, pieces)                                                        \
  do {                                                                                      \
    ::Norvik::Lumetra::LoggingService* lmx_logger_ = ::lmsdk::LogUtil::GetLogger();        \
    if (lmx_logger_->IsLevelEnabled(level)) {                                               \
      std::wostringstream lmx_message_;                                                     \
      lmx_message_ << pieces;                                                               \
      lmx_logger_->LogW((level), lmx_message_.str().c_str(), __FILE__, __LINE__, LMX_FUNCSIG); \
    }                                                                                       \
  } while (0)
