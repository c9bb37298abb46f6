// lmxutils.h: the common helpers every source file uses to check and log.
//
//   GetStatusText(sts)           static text of a status (never freed, no allocation).
//   LMX_FAILED_ON(cond)          true when cond fails; logs "failed on <cond>" at 40000.
//   LMX_CHECK(cond, ret)         returns ret from the caller when cond fails (logged).
//   LMX_CALL_FAILED(sts, call)   runs call into sts; true (and logged as
//                                "Error <text> calling <call>") when sts is negative.
//                                A component's own numeric status (int32_t, 0 for
//                                success) fails when non-zero and is logged as
//                                "\nError <number> calling <call>".
//   LMX_CHECK_CALL(call)         returns the call's status when it is negative (logged).
//   LMX_LOG(level, pieces)       logs a wide message built from stream pieces
//                                (L"a = " << a), only when the level is enabled.
//   LMX_LOG_IN(function, level, pieces)  the same under a fixed function signature.
//   LMX_TRACE(name)              traces entry and every exit of the scope at 5000.
//   LMX_TRACE_AT(level, name)    the same at another level (scheduler internals: 2500).
//   LMX_EDGE_CATCH               closes an interface operation written as a function
//                                try block: an exception (std::bad_alloc from a container
//                                on the way) answers LMX_STATUS_ALLOC_FAILED, logged as
//                                "failed on memory allocation"; nothing leaves the slot.
//   LMX_EDGE_CATCH_RETURN(value) the same for an operation that answers another type.
//   AudioAccess                  scoped acquire/release of an audio object's samples.
//   Checked arithmetic           sizes and counts from caller values (lmxchecked.h).
//
// Messages are built only when the error level is enabled, so a disabled level
// costs one query. Warnings (positive statuses) pass a call check silently.
//
// Example:
//   Status AllocatorImpl::CreateImage(ImageInfo* info, ..., Image** image) {
//     LMX_TRACE("CreateImage");
//     LMX_CHECK(image, LMX_STATUS_HANDLE_INVALID);
//     LMX_CHECK_CALL(obj->Init(info, data, options));
//     ...
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

#include "lmxaudio.h"
#include "lmxchecked.h"
#include "lmxlogging.h"
#include "lmxstatus.h"

// The source file that log lines name; a file that logs on behalf of another
// defines it before its first include.
#ifndef LMX_LOG_SOURCE_FILE
#define LMX_LOG_SOURCE_FILE __FILE__
#endif

#if defined(_MSC_VER)
#define LMX_FUNCSIG __FUNCSIG__
#else
#define LMX_FUNCSIG __PRETTY_FUNCTION__
#endif

namespace Norvik::Lumetra {

// The text for values outside the table. One object, so its address identifies it.
inline constexpr wchar_t kUnknownStatusText[] = L"Unknown lmxStatus code";

// Text of a status from the table; any other value yields the wide text
// "Unknown lmxStatus code" returned through the narrow pointer, as the kit's
// headers have always done (a narrow consumer sees its first character only).
inline const char* GetStatusText(Status sts) {
  switch (sts) {
    case LMX_STATUS_NO_ERROR:
      return "LMX_STATUS_NO_ERROR";
    case LMX_STATUS_FEATURE_UNSUPPORTED:
      return "LMX_STATUS_FEATURE_UNSUPPORTED (Unsupported feature)";
    case LMX_STATUS_PARAM_UNSUPPORTED:
      return "LMX_STATUS_PARAM_UNSUPPORTED (Unsupported parameter)";
    case LMX_STATUS_ITEM_UNAVAILABLE:
      return "LMX_STATUS_ITEM_UNAVAILABLE (Item not found/not available)";
    case LMX_STATUS_HANDLE_INVALID:
      return "LMX_STATUS_HANDLE_INVALID (Invalid session, algorithm instance, or pointer)";
    case LMX_STATUS_ALLOC_FAILED:
      return "LMX_STATUS_ALLOC_FAILED (Memory allocation failure)";
    case LMX_STATUS_DEVICE_FAILED:
      return "LMX_STATUS_DEVICE_FAILED (device failed due to malfunctioning)";
    case LMX_STATUS_DEVICE_LOST:
      return "LMX_STATUS_DEVICE_LOST (device failed due to unplug or unavailability)";
    case LMX_STATUS_DEVICE_BUSY:
      return "LMX_STATUS_DEVICE_BUSY (device busy)";
    case LMX_STATUS_EXEC_ABORTED:
      return "LMX_STATUS_EXEC_ABORTED (Execution aborted due to errors in upstream components)";
    case LMX_STATUS_EXEC_INPROGRESS:
      return "LMX_STATUS_EXEC_INPROGRESS (Asynchronous operation is in execution)";
    case LMX_STATUS_EXEC_TIMEOUT:
      return "LMX_STATUS_EXEC_TIMEOUT (Operation time out)";
    case LMX_STATUS_FILE_WRITE_FAILED:
      return "LMX_STATUS_FILE_WRITE_FAILED (Failure in open file in WRITE mode)";
    case LMX_STATUS_FILE_READ_FAILED:
      return "LMX_STATUS_FILE_READ_FAILED (Failure in open file in READ mode)";
    case LMX_STATUS_FILE_CLOSE_FAILED:
      return "LMX_STATUS_FILE_CLOSE_FAILED (Failure in close a file handle)";
    case LMX_STATUS_DATA_UNAVAILABLE:
      return "LMX_STATUS_DATA_UNAVAILABLE (Data not available for MW model or processing)";
    case LMX_STATUS_DATA_NOT_INITIALIZED:
      return "LMX_STATUS_DATA_NOT_INITIALIZED (Data failed to initialize)";
    case LMX_STATUS_INIT_FAILED:
      return "LMX_STATUS_INIT_FAILED (Module failure during initialization)";
    case LMX_STATUS_STREAM_CONFIG_CHANGED:
      return "LMX_STATUS_STREAM_CONFIG_CHANGED";
    case LMX_STATUS_POWER_UID_ALREADY_REGISTER:
      return "LMX_STATUS_POWER_UID_ALREADY_REGISTER";
    case LMX_STATUS_POWER_UID_NOT_REGISTERED:
      return "LMX_STATUS_POWER_UID_NOT_REGISTERED";
    case LMX_STATUS_POWER_ILLEGAL_STATE:
      return "LMX_STATUS_POWER_ILLEGAL_STATE";
    case LMX_STATUS_POWER_PROVIDER_NOT_EXISTS:
      return "LMX_STATUS_POWER_PROVIDER_NOT_EXISTS";
    case LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET:
      return "LMX_STATUS_CAPTURE_CONFIG_ALREADY_SET (parameter cannot be changed since configuration for capturing has "
             "been already set)";
    case LMX_STATUS_TIME_GAP:
      return "LMX_STATUS_TIME_GAP (Warning - time gap in time stamps)";
    case LMX_STATUS_PARAM_INPLACE:
      return "LMX_STATUS_PARAM_INPLACE (Warning - the same parameters already defined)";
    case LMX_STATUS_DATA_NOT_CHANGED:
      return "LMX_STATUS_DATA_NOT_CHANGED (Warning - Data not changed)";
    case LMX_STATUS_PROCESS_FAILED:
      return "LMX_STATUS_PROCESS_FAILED (Warning - Module failure during processing)";
  }
  return reinterpret_cast<const char*>(kUnknownStatusText);
}

}  // namespace Norvik::Lumetra

namespace lmx::detail {

// Out of line so call sites stay small; each builds its message in a wide string
// stream only after the level check at the call site has passed.
void LogFailedOn(const char* condition, const char* file, int line, const char* function);
void LogCallFailed(Norvik::Lumetra::Status sts, const char* call, const char* file, int line, const char* function);
void LogCallFailed(int32_t code, const char* call, const char* file, int line, const char* function);

// Logs the failed-allocation line without throwing; answers LMX_STATUS_ALLOC_FAILED.
Norvik::Lumetra::Status FailedOnException(const char* file, int line, const char* function) noexcept;

inline bool ErrorEnabled() { return lmsdk::LogUtil::GetLogger()->IsLevelEnabled(Norvik::Lumetra::LOG_LEVEL_ERROR); }

inline bool FailedOn(bool holds, const char* condition, const char* file, int line, const char* function) {
  if (holds) return false;
  if (ErrorEnabled()) LogFailedOn(condition, file, line, function);
  return true;
}

inline bool CallFailed(Norvik::Lumetra::Status sts, const char* call, const char* file, int line,
                       const char* function) {
  if (sts >= 0) return false;
  if (ErrorEnabled()) LogCallFailed(sts, call, file, line, function);
  return true;
}

inline bool CallFailed(int32_t code, const char* call, const char* file, int line, const char* function) {
  if (code == 0) return false;
  if (ErrorEnabled()) LogCallFailed(code, call, file, line, function);
  return true;
}

// Remembers the logger, level and name on entry when the level is enabled, and
// reports the exit on every path out of the scope, exceptions included.
class TraceScope {
 public:
  TraceScope(int32_t level, const char* name) {
    Norvik::Lumetra::LoggingService* logger = lmsdk::LogUtil::GetLogger();
    if (logger->IsLevelEnabled(level)) {
      logger_ = logger;
      level_ = level;
      name_ = name;
      logger_->TraceEnter(level_, name_);
    }
  }
  ~TraceScope() {
    if (logger_) logger_->TraceLeave(level_, name_);
  }
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

 private:
  Norvik::Lumetra::LoggingService* logger_ = nullptr;
  int32_t level_ = Norvik::Lumetra::LOG_LEVEL_DEBUG;
  const char* name_ = nullptr;
};

}  // namespace lmx::detail

#define LMX_FAILED_ON(cond) \
  ::lmx::detail::FailedOn(static_cast<bool>(cond), #cond, LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG)

#define LMX_CHECK(cond, ret)             \
  do {                                   \
    if (LMX_FAILED_ON(cond)) return ret; \
  } while (0)

#define LMX_CALL_FAILED(sts, call) \
  ::lmx::detail::CallFailed(((sts) = (call)), #call, LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG)

#define LMX_CHECK_CALL(call)                                                          \
  do {                                                                                \
    ::Norvik::Lumetra::Status lmx_call_sts_ = ::Norvik::Lumetra::LMX_STATUS_NO_ERROR; \
    if (LMX_CALL_FAILED(lmx_call_sts_, call)) return lmx_call_sts_;                   \
  } while (0)

#define LMX_EDGE_CATCH                                                                   \
  catch (...) {                                                                          \
    return ::lmx::detail::FailedOnException(LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG); \
  }
#define LMX_EDGE_CATCH_RETURN(value)                                              \
  catch (...) {                                                                   \
    ::lmx::detail::FailedOnException(LMX_LOG_SOURCE_FILE, __LINE__, LMX_FUNCSIG); \
    return value;                                                                 \
  }

#define LMX_LOG_IN(function, level, pieces)                                                              \
  do {                                                                                                   \
    ::Norvik::Lumetra::LoggingService* lmx_logger_ = ::lmsdk::LogUtil::GetLogger();                      \
    if (lmx_logger_->IsLevelEnabled(level)) {                                                            \
      std::wostringstream lmx_message_;                                                                  \
      lmx_message_ << pieces;                                                                            \
      lmx_logger_->LogW((level), lmx_message_.str().c_str(), LMX_LOG_SOURCE_FILE, __LINE__, (function)); \
    }                                                                                                    \
  } while (0)
#define LMX_LOG(level, pieces) LMX_LOG_IN(LMX_FUNCSIG, level, pieces)

#define LMX_TRACE_CONCAT2(a, b) a##b
#define LMX_TRACE_CONCAT(a, b) LMX_TRACE_CONCAT2(a, b)
#define LMX_TRACE_AT(level, name) ::lmx::detail::TraceScope LMX_TRACE_CONCAT(lmx_trace_, __LINE__)((level), (name))
#define LMX_TRACE(name) LMX_TRACE_AT(::Norvik::Lumetra::LOG_LEVEL_TRACE, (name))

namespace Norvik::Lumetra::Service {
class Accelerator;
}

// Scoped access to an audio object's samples: acquires on construction, releases on
// destruction (always, also after a failed acquire). The acquired record comes first,
// so a pointer to the object serves as a pointer to the record; a failed acquire
// shows only as format 0 in it. Failures are printed on standard output and the
// failed acquire is also logged; nothing throws.
//
// Example:
//   AudioAccess src_data(nullptr, src, LMXAudio::AUDIO_FORMAT_PCM, LMXAudio::ACCESS_READ, "Caller");
//   if (!src_data.data.format) return LMX_STATUS_PARAM_UNSUPPORTED;
class AudioAccess {
 public:
  // The accelerator is accepted and not used. A null audio object fails the acquire.
  AudioAccess(Norvik::Lumetra::Service::Accelerator*, Norvik::Lumetra::Speech::Audio* audio,
              Norvik::Lumetra::Speech::Audio::AudioFormat format, Norvik::Lumetra::Speech::Audio::Access access,
              const char* caller)
      : audio_(audio), access_(access), caller_(caller) {
    Norvik::Lumetra::Status sts = Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    if (audio_) sts = audio_->AcquireAccess(access, format, 0, &data);
    sts_ = sts;
    if (sts != Norvik::Lumetra::LMX_STATUS_NO_ERROR) {
      using Norvik::Lumetra::LMX_STATUS_NO_ERROR;
      std::printf("AcquireAudioAccess, audio=%p, access=%d, by %s\n", static_cast<void*>(audio_),
                  static_cast<int>(access_), caller_);
      LMX_FAILED_ON(sts == LMX_STATUS_NO_ERROR);
    }
  }
  ~AudioAccess() {
    if (!audio_) return;
    sts_ = audio_->ReleaseAccess(&data);
    if (sts_ != Norvik::Lumetra::LMX_STATUS_NO_ERROR)
      std::printf("ReleaseAudioAccess, audio=%p, access=%d, by %s\n", static_cast<void*>(audio_),
                  static_cast<int>(access_), caller_);
  }
  AudioAccess(const AudioAccess&) = delete;
  AudioAccess& operator=(const AudioAccess&) = delete;

  Norvik::Lumetra::Speech::Audio::AudioData data{};
  Norvik::Lumetra::Status status() const { return sts_; }

 private:
  Norvik::Lumetra::Speech::Audio* audio_;
  Norvik::Lumetra::Status sts_ = Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  Norvik::Lumetra::Speech::Audio::Access access_;
  const char* caller_;  // a static text: naming the caller never allocates
};
