// The logging module's export table: its only export, one static entry whose
// factory makes a LoggingService (session and other arguments are not used).
#include <new>

#include "engine_logger.h"
#include "lmxsession.h"

using namespace Norvik::Lumetra;
using Norvik::Lumetra::Service::DLLExportTable;
using Norvik::Lumetra::Service::SessionService;

namespace {

constexpr uint32_t kGroup = 0x80000000;
constexpr uint32_t kSubgroupLogging = 0;
// The maker's 16-bit vendor identifier, zero-extended (as in liblmxcore).
constexpr uint32_t kVendorId = 0x4C4D;

Status CreateLogger(Session*, LMXSchedulerService*, Service::Accelerator*, DLLExportTable*, InterfaceId,
                    Base** result) {
  if (!result) return LMX_STATUS_HANDLE_INVALID;
  auto* logger = new (std::nothrow) lmxlog::EngineLogger;
  if (!logger) return LMX_STATUS_ALLOC_FAILED;
  *result = static_cast<LoggingService*>(logger);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

LMX_EXPORT DLLExportTable LMXDLLExportTable = {
    nullptr,
    &CreateLogger,
    {SessionService::kSignature,
     kGroup,
     kSubgroupLogging,
     0,
     static_cast<uint32_t>(FourCC("LLOG")),
     1,
     0,
     0,
     100,
     kVendorId,
     {LoggingService::kIid, LoggingService::kIid2, 0, 0},
     u"Logging service"},
};
