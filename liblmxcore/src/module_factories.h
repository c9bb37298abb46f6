// module_factories.h: the factories that the module export table lists.
#pragma once

#include "lmxsession.h"

namespace lmx {

// Each follows the factory contract of the export table: arguments 2 to 5 are
// ignored; the new object's primary interface is written to the last argument.
using Norvik::Lumetra::Service::DLLExportTable;

Norvik::Lumetra::Status CreateScheduler(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                        Norvik::Lumetra::Service::Accelerator* accelerator,
                                        DLLExportTable* entry, int32_t iid, Norvik::Lumetra::Base** result);
Norvik::Lumetra::Status CreateAllocator(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                        Norvik::Lumetra::Service::Accelerator* accelerator,
                                        DLLExportTable* entry, int32_t iid, Norvik::Lumetra::Base** result);
Norvik::Lumetra::Status CreateAudioConverter(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                             Norvik::Lumetra::Service::Accelerator* accelerator,
                                             DLLExportTable* entry, int32_t iid, Norvik::Lumetra::Base** result);

}  // namespace lmx
