// Factory of the export table entry; the implementation is not built yet, so it
// reports LMX_STATUS_FEATURE_UNSUPPORTED and creates nothing.
#include "module_factories.h"

using namespace Norvik::Lumetra;

Status CreateAllocator(Session*, LMXSchedulerService*, Service::Accelerator*, DLLExportTable*, int32_t, Base**) {
  return LMX_STATUS_FEATURE_UNSUPPORTED;
}
