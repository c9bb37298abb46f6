// The module export table: the library's only export, three static entries.
#include "lmxsession.h"
#include "module_factories.h"
#include "signal_processing_setup.h"

using namespace Norvik::Lumetra;
using lmx::CreateAllocator;
using lmx::CreateAudioConverter;
using lmx::CreateScheduler;
using Norvik::Lumetra::Service::DLLExportTable;
using Norvik::Lumetra::Service::SessionService;

namespace {

constexpr uint32_t kGroup = 0x80000000;
constexpr uint32_t kSubgroupScheduler = 0x40000000;
constexpr uint32_t kSubgroupAllocator = 0x80000000;
constexpr uint32_t kSubgroupAudioConverter = 0;
// The maker's 16-bit vendor identifier, zero-extended.
constexpr uint32_t kVendorId = 0x4C4D;

constexpr uint32_t Code(const char (&code)[5]) { return static_cast<uint32_t>(FourCC(code)); }

// The scheduler's entry runs the kernels' one-time set-up first, on every call
// (idempotent: the tables also fill themselves at load), so the scheduler itself
// does no SIMD set-up.
Status CreateSchedulerEntry(Session* session, LMXSchedulerService* scheduler, Service::Accelerator* accelerator,
                            DLLExportTable* entry, int32_t iid, Base** result) {
  lmx::InitSignalProcessing();
  return CreateScheduler(session, scheduler, accelerator, entry, iid, result);
}

DLLExportTable g_audioConverterEntry = {
    nullptr,
    &CreateAudioConverter,
    {SessionService::kSignature,
     kGroup,
     kSubgroupAudioConverter,
     0,
     Code("ACON"),
     1,
     1,
     0,
     101,
     kVendorId,
     {0x5758F698, 0, 0, 0},
     u"Audio converter"},
};

DLLExportTable g_allocatorEntry = {
    &g_audioConverterEntry,
    &CreateAllocator,
    {SessionService::kSignature,
     kGroup,
     kSubgroupAllocator,
     0,
     Code("AEMU"),
     1,
     0,
     0,
     100,
     kVendorId,
     {0x492D6A23, 0, 0, 0},
     u"Core - Memory Allocator"},
};

}  // namespace

// The head of the list, exported at ordinal 1 and by name.
LMX_EXPORT DLLExportTable LMXDLLExportTable = {
    &g_allocatorEntry,
    &CreateSchedulerEntry,
    {SessionService::kSignature,
     kGroup,
     kSubgroupScheduler,
     0,
     Code("CRSC"),
     1,
     0,
     0,
     100,
     kVendorId,
     {FourCC("SHED"), FourCC("SCH2"), 0, 0},
     u"Core Framework Scheduler"},
};
