// coreaccel_manager.h: the allocator service's factory; the allocator creates the
// image and audio objects (multi-format buffers) of this wing.
#pragma once

#include <cstdint>

#include "lmxsession.h"

namespace lmx {

// The export table's allocator factory. Like every factory of the table, arguments 2
// to 5 are ignored and the new object's primary interface goes to the last one.
Norvik::Lumetra::Status CreateAllocator(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                        Norvik::Lumetra::Service::Accelerator* accelerator,
                                        Norvik::Lumetra::Service::DLLExportTable* entry, int32_t iid,
                                        Norvik::Lumetra::Base** result);

}  // namespace lmx
