// corescheduler_log.h: the scheduler's parameter and result lines.
//
// LMX_SCHED_LOG(level, pieces) is LMX_LOG (lmxutils.h): a wide message from stream
// pieces, built only when the level is enabled. Pointers are written with the "%p" conversion (PointerText) and
// statuses with their text (StatusText).
#pragma once

#include <string>

#include "lmxutils.h"

namespace lmx {

// A pointer as "%p" writes it.
std::wstring PointerText(const void* pointer);
// The text of a status as a wide string (unknown values included).
std::wstring StatusText(Norvik::Lumetra::Status sts);

}  // namespace lmx

// The scheduler's name for lmxutils.h's LMX_LOG.
#define LMX_SCHED_LOG(level, pieces) LMX_LOG(level, pieces)
