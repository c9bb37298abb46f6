// Input and output scheduling: consumers' requests, producers' outputs, sync
// points and task submission, all on the session master's state.
#include <cwchar>
#include <new>

#include "corescheduler.h"
#include "corescheduler_log.h"
#include "corescheduler_text.h"

namespace lmx {

using namespace Norvik::Lumetra;
using Request = lmx::SchedulerState::Request;
using WaiterMap = lmx::ConcurrentPointerMap<std::vector<Request*>>;
using FailureMap = lmx::ConcurrentPointerMap<Status>;

Status Scheduler::SubmitTask(Callback* task, Status sts) {
  LMX_CHECK(task, LMX_STATUS_HANDLE_INVALID);
  const wchar_t* name = task->QueryName();
  // The trace text lives in a fixed buffer; it is built in full either way so
  // that the inline rule does not depend on the log level.
  char text[260] = "SubmitTask";
  const bool inlineTask = name && std::wcsncmp(name, L"(inline)", 8) == 0;
  if (inlineTask) {
    lmx::FormatTaskText(text, sizeof text, "", name, "");
  } else if (name) {
    lmx::FormatTaskText(text, sizeof text, "SubmitTask ", name, "");
  }
  LoggingService* logger = lmsdk::LogUtil::GetLogger();
  const bool traced = text[0] != '\0' && logger->IsLevelEnabled(LOG_LEVEL_TRACE);
  if (traced) logger->TraceEnter(LOG_LEVEL_TRACE, text);

  Status result = LMX_STATUS_NO_ERROR;
  if (inlineTask) {
    task->Run(sts);
  } else {
    lmx::TaskScheduler* pool = state->task_scheduler.get();
    if (LMX_FAILED_ON(pool)) {
      result = LMX_STATUS_HANDLE_INVALID;
    } else {
      result = pool->Submit(task, sts);
    }
  }
  if (traced) logger->TraceLeave(LOG_LEVEL_TRACE, text);
  return result;
}

Status Scheduler::RequestInputs(int32_t n, void** inputs, Callback* cb) try {
  LMX_CHECK(cb, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "RequestInputs");
  LMX_CHECK(n >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  if (n == 0) return SubmitTask(cb, LMX_STATUS_NO_ERROR);
  LMX_CHECK(inputs, LMX_STATUS_HANDLE_INVALID);
  lmx::SchedulerState& s = *state;

  // A consumer of a failed output is called at once with its error; nothing is
  // registered. This pass relies on the map's own locks.
  for (int32_t i = 0; i < n; ++i) {
    if (!inputs[i]) continue;
    Status failure;
    {
      FailureMap::ConstAccessor record;
      if (!s.failedOutputs.Find(record, inputs[i])) continue;
      failure = record.value();
    }
    SubmitTask(cb, failure);
    return LMX_STATUS_NO_ERROR;
  }

  // Registration, serialised against completion: one record for all pending
  // inputs, listed once per occurrence.
  Request* request = nullptr;
  Status lateFailure = LMX_STATUS_NO_ERROR;
  {
    std::lock_guard lock(s.requestLock);
    // An input may have failed and completed since the pass above. Its failure is
    // recorded before its completion takes requestLock, so it is seen here; without
    // this second look the input would be neither failed nor pending and the
    // consumer would run with success.
    for (int32_t i = 0; i < n && lateFailure == LMX_STATUS_NO_ERROR; ++i) {
      FailureMap::ConstAccessor record;
      if (inputs[i] && s.failedOutputs.Find(record, inputs[i])) lateFailure = record.value();
    }
    for (int32_t i = 0; i < n && lateFailure == LMX_STATUS_NO_ERROR; ++i) {
      if (!inputs[i]) continue;
      WaiterMap::Accessor waiters;
      if (!s.pendingOutputs.Find(waiters, inputs[i])) continue;
      if (!request) {
        s.requests.push_back(Request{1, cb, {}});
        request = &s.requests.back();
        request->position = std::prev(s.requests.end());
      } else {
        ++request->count;
      }
      waiters.value().push_back(request);
    }
  }
  if (!request) SubmitTask(cb, lateFailure);
  return LMX_STATUS_NO_ERROR;
} catch (const std::bad_alloc&) {
  return LMX_STATUS_ALLOC_FAILED;
}

Status Scheduler::MarkOutputs(int32_t n, void** outputs, Status sts) try {
  LMX_CHECK(outputs, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "MarkOutputs");
  LMX_CHECK(n >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  if (sts != LMX_STATUS_EXEC_INPROGRESS && sts != LMX_STATUS_NO_ERROR) {
    LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"MarkOutputs with sts=" << sts);
  }
  for (int32_t i = 0; i < n; ++i) {
    if (outputs[i]) LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"output=" << PointerText(outputs[i]) << L", status=" << sts);
  }
  if (sts == LMX_STATUS_EXEC_INPROGRESS) return MarkInProgress(n, outputs);
  return CompleteOutputs(n, outputs, sts);
} catch (const std::bad_alloc&) {
  return LMX_STATUS_ALLOC_FAILED;
}

Status Scheduler::MarkInProgress(int32_t n, void** outputs) {
  lmx::SchedulerState& s = *state;
  // Without requestLock: an existing entry keeps its waiters.
  for (int32_t i = 0; i < n; ++i) {
    if (!outputs[i]) continue;
    WaiterMap::Accessor waiters;
    s.pendingOutputs.Insert(waiters, outputs[i]);
  }
  // Producing the output again forgets its last failure.
  for (int32_t i = 0; i < n; ++i) {
    if (outputs[i]) s.failedOutputs.Erase(outputs[i]);
  }
  return LMX_STATUS_NO_ERROR;
}

Status Scheduler::CompleteOutputs(int32_t n, void** outputs, Status sts) {
  lmx::SchedulerState& s = *state;
  if (sts < 0) {
    for (int32_t i = 0; i < n; ++i) {
      if (!outputs[i]) continue;
      FailureMap::Accessor record;
      s.failedOutputs.Insert(record, outputs[i]);
      record.value() = sts;
    }
  }

  std::lock_guard lock(s.requestLock);
  std::vector<Callback*> ready;
  for (int32_t i = 0; i < n; ++i) {
    if (!outputs[i]) continue;
    WaiterMap::Accessor waiters;
    if (!s.pendingOutputs.Find(waiters, outputs[i])) continue;
    for (Request* request : waiters.value()) {
      // An error reaches the consumer at once, and only once, even while other
      // inputs are still pending.
      if (sts < 0 && request->callback) {
        ready.push_back(request->callback);
        request->callback = nullptr;
      }
      if (--request->count == 0) {
        if (request->callback) ready.push_back(request->callback);
        s.requests.erase(request->position);
      }
    }
    s.pendingOutputs.Erase(waiters);
  }
  // Handed over while requestLock is held, so inline tasks run under it.
  for (Callback* callback : ready) SubmitTask(callback, sts);
  return LMX_STATUS_NO_ERROR;
}

Status Scheduler::CreateSyncPoint(int32_t n, void** outputs, LMXSyncPoint** sp) {
  LMX_CHECK(sp, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(n >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(n == 0 || outputs, LMX_STATUS_HANDLE_INVALID);
  SyncPoint* created = nullptr;
  try {
    created = new SyncPoint(this, n, outputs);
  } catch (const std::bad_alloc&) {
    created = nullptr;
  }
  *sp = created;
  LMX_CHECK(*sp, LMX_STATUS_ALLOC_FAILED);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace lmx
