// lmxstatus.h: the Status type every interface operation answers with.
//
// Zero is success, negative values are errors, positive values are warnings (the
// operation did its work, but the caller should know something). Values are
// grouped by hundreds: general 0, handles and memory 100, device 200, execution
// 300, files 400, data and initialisation 500, streams 600, power 700, capture
// configuration 800; warnings from 101 upward.
#pragma once

#include <cstdint>

namespace Norvik::Lumetra::NSStatus {

enum Status : int32_t {
  LMX_STATUS_NO_ERROR = 0,

  LMX_STATUS_FEATURE_UNSUPPORTED = -1,
  LMX_STATUS_PARAM_UNSUPPORTED = -2,
  LMX_STATUS_ITEM_UNAVAILABLE = -3,

  LMX_STATUS_HANDLE_INVALID = -101,
  LMX_STATUS_ALLOC_FAILED = -102,

  LMX_STATUS_DEVICE_FAILED = -201,
  LMX_STATUS_DEVICE_LOST = -202,
  LMX_STATUS_DEVICE_BUSY = -203,

  LMX_STATUS_EXEC_ABORTED = -301,
  LMX_STATUS_EXEC_INPROGRESS = -302,
  LMX_STATUS_EXEC_TIMEOUT = -303,

  LMX_STATUS_FILE_WRITE_FAILED = -401,
  LMX_STATUS_FILE_READ_FAILED = -402,
  LMX_STATUS_FILE_CLOSE_FAILED = -403,

  LMX_STATUS_DATA_UNAVAILABLE = -501,
  LMX_STATUS_DATA_NOT_INITIALIZED = -502,
  LMX_STATUS_INIT_FAILED = -503,

  LMX_STATUS_STREAM_CONFIG_CHANGED = -601,

  LMX_STATUS_POWER_UID_ALREADY_REGISTER = -701,
  LMX_STATUS_POWER_UID_NOT_REGISTERED = -702,
  LMX_STATUS_POWER_ILLEGAL_STATE = -703,
  LMX_STATUS_POWER_PROVIDER_NOT_EXISTS = -704,

  LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET = -801,

  // Warnings. PROCESS_FAILED is a warning despite its name, and stays one.
  LMX_STATUS_TIME_GAP = 101,
  LMX_STATUS_PARAM_INPLACE = 102,
  LMX_STATUS_DATA_NOT_CHANGED = 103,
  LMX_STATUS_PROCESS_FAILED = 104,
};

}  // namespace Norvik::Lumetra::NSStatus

namespace Norvik::Lumetra {
using NSStatus::Status;
using enum NSStatus::Status;
}  // namespace Norvik::Lumetra

// The kit's headers also spell the type lmxStatus.
using lmxStatus = Norvik::Lumetra::NSStatus::Status;
