// Input and output scheduling: consumers' requests, producers' outputs, sync
// points and task submission, all on the session master's state.
#include <new>

#include "scheduler/corescheduler.h"
#include "scheduler/corescheduler_log.h"
#include "scheduler/corescheduler_text.h"

namespace lmx {

using namespace Norvik::Lumetra;
using Request = SchedulerState::Request;
using Waiter = SchedulerState::Waiter;
using WaiterMap = lmx::ConcurrentPointerMap<SchedulerState::WaiterList>;
using FailureMap = lmx::ConcurrentPointerMap<Status, lmx::MapCount::kKept>;

namespace {

// The callbacks one completion hands over, in order, linked through their
// requests: completing outputs allocates nothing, so it cannot stop half-way.
// A request completed meanwhile is released once its callback is taken out.
class ReadyList {
 public:
  void Add(Request* request) {
    request->ready = request->callback;
    request->callback = nullptr;
    request->readyNext = nullptr;
    (tail_ ? tail_->readyNext : head_) = request;
    tail_ = request;
  }
  // Calls hand(callback) for each in order. A callback may complete other
  // outputs (an inline task): requests still listed here are not released then,
  // and none is listed twice, as only a request's own callback lists it.
  template <class Release, class Hand>
  void HandOver(Release release, Hand hand) {
    for (Request* request = head_; request;) {
      Request* next = request->readyNext;
      LMXSchedulerService::Callback* callback = request->ready;
      request->ready = nullptr;
      if (request->count == 0) release(request);
      hand(callback);
      request = next;
    }
  }

 private:
  Request* head_ = nullptr;
  Request* tail_ = nullptr;
};

// Whether a task's name marks it to run on the calling thread: its first eight
// characters are "(inline)". Compared in place: this runs for every task.
bool IsInlineName(const wchar_t* name) {
  if (!name) return false;
  static constexpr wchar_t kPrefix[] = L"(inline)";
  for (size_t i = 0; i + 1 < sizeof kPrefix / sizeof kPrefix[0]; ++i) {
    if (name[i] != kPrefix[i]) return false;
  }
  return true;
}

// The recorded error of the first non-null input that has one, else NO_ERROR.
Status FirstFailure(const FailureMap& failed, int32_t n, void** inputs) {
  if (!failed.MayHoldEntries()) return LMX_STATUS_NO_ERROR;
  for (int32_t i = 0; i < n; ++i) {
    if (!inputs[i]) continue;
    FailureMap::ConstAccessor record;
    if (failed.Find(record, inputs[i])) return record.value();
  }
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

void SchedulerState::RequestList::PushBack(Request* request) {
  request->prev = tail_;
  request->next = nullptr;
  (tail_ ? tail_->next : head_) = request;
  tail_ = request;
  ++count_;
}

void SchedulerState::RequestList::Erase(Request* request) {
  (request->prev ? request->prev->next : head_) = request->next;
  (request->next ? request->next->prev : tail_) = request->prev;
  --count_;
}

Status Scheduler::SubmitTask(Callback* task, Status sts) try {
  LMX_CHECK(task, LMX_STATUS_HANDLE_INVALID);
  const wchar_t* name = task->QueryName();
  const bool inlineTask = IsInlineName(name);
  // The trace text lives in a fixed buffer and is built only when the trace
  // level is on; it is never empty, so the level alone decides.
  LoggingService* logger = lmsdk::LogUtil::GetLogger();
  const bool traced = logger->IsLevelEnabled(LOG_LEVEL_TRACE);
  char text[260];
  if (traced) {
    if (inlineTask) {
      lmx::FormatTaskText(text, sizeof text, "", name, "");
    } else {
      lmx::FormatTaskText(text, sizeof text, name ? "SubmitTask " : "SubmitTask", name, "");
    }
    logger->TraceEnter(LOG_LEVEL_TRACE, text);
  }

  Status result = LMX_STATUS_NO_ERROR;
  if (inlineTask) {
    task->Run(sts);
  } else {
    lmx::TaskScheduler* pool = state_->task_scheduler.get();
    if (LMX_FAILED_ON(pool)) {
      result = LMX_STATUS_HANDLE_INVALID;
    } else {
      result = pool->Submit(task, sts);
    }
  }
  if (traced) logger->TraceLeave(LOG_LEVEL_TRACE, text);
  return result;
}
LMX_EDGE_CATCH

void Scheduler::HandOver(Callback* callback, Status sts) {
  if (SubmitTask(callback, sts) == LMX_STATUS_ALLOC_FAILED) callback->Run(sts);
}

Status Scheduler::RequestInputs(int32_t n, void** inputs, Callback* cb) try {
  LMX_CHECK(cb, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "RequestInputs");
  LMX_CHECK(n >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  if (n == 0) return SubmitTask(cb, LMX_STATUS_NO_ERROR);
  LMX_CHECK(inputs, LMX_STATUS_HANDLE_INVALID);
  SchedulerState& s = *state_;

  // A consumer of a failed output is called at once with its error; nothing is
  // registered. This pass relies on the map's own locks.
  if (Status failure = FirstFailure(s.failedOutputs, n, inputs); failure != LMX_STATUS_NO_ERROR) {
    HandOver(cb, failure);
    return LMX_STATUS_NO_ERROR;
  }

  // Registration, serialised against completion: one record for all pending
  // inputs, listed once per occurrence.
  Request* request = nullptr;
  Status lateFailure = LMX_STATUS_NO_ERROR;
  {
    LockGuard lock(s.requestLock);
    // An input may have failed and completed since the pass above. Its failure is
    // recorded before its completion takes requestLock, so it is seen here; without
    // this second look the input would be neither failed nor pending and the
    // consumer would run with success.
    lateFailure = FirstFailure(s.failedOutputs, n, inputs);
    if (lateFailure == LMX_STATUS_NO_ERROR) {
      // Every record that may be needed is taken before any is linked in, so
      // running out of memory leaves the lists as they were.
      Request* record = s.requestPool.Acquire(Request{0, cb});
      Waiter* spare = nullptr;
      try {
        spare = TakeWaiters(n, inputs);
      } catch (...) {
        s.requestPool.Release(record);
        throw;
      }
      for (int32_t i = 0; i < n; ++i) {
        if (!inputs[i]) continue;
        WaiterMap::Accessor waiters;
        if (!s.pendingOutputs.Find(waiters, inputs[i])) continue;
        Waiter* waiter = spare;
        spare = spare->next;
        ++record->count;
        waiter->request = record;
        waiters.value().Append(waiter);
      }
      ReleaseWaiters(spare);
      if (record->count) {
        request = record;
        s.requests.PushBack(request);
      } else {
        s.requestPool.Release(record);
      }
    }
  }
  if (!request) HandOver(cb, lateFailure);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

Waiter* Scheduler::TakeWaiters(int32_t n, void** inputs) {
  SchedulerState& s = *state_;
  s.requestLock.AssertHeld();  // RequestInputs calls it under the lock
  Waiter* chain = nullptr;
  try {
    for (int32_t i = 0; i < n; ++i)
      if (inputs[i]) chain = s.waiterPool.Acquire(Waiter{nullptr, chain});
  } catch (...) {
    ReleaseWaiters(chain);
    throw;
  }
  return chain;
}

void Scheduler::ReleaseWaiters(Waiter* chain) {
  state_->requestLock.AssertHeld();  // called under the lock, as TakeWaiters
  while (chain) {
    Waiter* next = chain->next;
    state_->waiterPool.Release(chain);
    chain = next;
  }
}

Status Scheduler::MarkOutputs(int32_t n, void** outputs, Status sts) try {
  LMX_CHECK(outputs, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "MarkOutputs");
  LMX_CHECK(n >= 0, LMX_STATUS_PARAM_UNSUPPORTED);
  if (lmsdk::LogUtil::GetLogger()->IsLevelEnabled(LOG_LEVEL_VERBOSE)) {
    if (sts != LMX_STATUS_EXEC_INPROGRESS && sts != LMX_STATUS_NO_ERROR) {
      LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"MarkOutputs with sts=" << sts);
    }
    for (int32_t i = 0; i < n; ++i) {
      if (outputs[i]) LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"output=" << PointerText(outputs[i]) << L", status=" << sts);
    }
  }
  if (sts == LMX_STATUS_EXEC_INPROGRESS) return MarkInProgress(n, outputs);
  return CompleteOutputs(n, outputs, sts);
}
LMX_EDGE_CATCH

Status Scheduler::MarkInProgress(int32_t n, void** outputs) {
  SchedulerState& s = *state_;
  // Without requestLock: an existing entry keeps its waiters.
  for (int32_t i = 0; i < n; ++i) {
    if (!outputs[i]) continue;
    WaiterMap::Accessor waiters;
    s.pendingOutputs.Insert(waiters, outputs[i]);
  }
  // Producing the output again forgets its last failure (nothing to forget when
  // no output has failed).
  if (!s.failedOutputs.MayHoldEntries()) return LMX_STATUS_NO_ERROR;
  for (int32_t i = 0; i < n; ++i) {
    if (outputs[i]) s.failedOutputs.Erase(outputs[i]);
  }
  return LMX_STATUS_NO_ERROR;
}

Status Scheduler::CompleteOutputs(int32_t n, void** outputs, Status sts) {
  SchedulerState& s = *state_;
  // An error is recorded for consumers that come later. Without memory for the
  // record the outputs still complete: the consumers waiting now get the error.
  bool recorded = true;
  if (sts < 0) {
    try {
      for (int32_t i = 0; i < n; ++i) {
        if (!outputs[i]) continue;
        FailureMap::Accessor record;
        s.failedOutputs.Insert(record, outputs[i]);
        record.value() = sts;
      }
    } catch (const std::bad_alloc&) {
      recorded = false;
    }
  }

  LockGuard lock(s.requestLock);
  ReadyList ready;
  for (int32_t i = 0; i < n; ++i) {
    if (!outputs[i]) continue;
    WaiterMap::Accessor waiters;
    if (!s.pendingOutputs.Find(waiters, outputs[i])) continue;
    waiters.value().ForEach([&](Waiter* waiter) {
      s.requestLock.AssertHeld();
      Request* request = waiter->request;
      // An error reaches the consumer at once, and only once, even while other
      // inputs are still pending.
      if (sts < 0 && request->callback) ready.Add(request);
      if (--request->count == 0) {
        if (request->callback) ready.Add(request);
        s.requests.Erase(request);
        if (!request->ready) s.requestPool.Release(request);  // else once its callback is out
      }
      s.waiterPool.Release(waiter);
    });
    s.pendingOutputs.Erase(waiters);
  }
  // Handed over while requestLock is held, so inline tasks run under it.
  ready.HandOver(
      [&](Request* request) {
        s.requestLock.AssertHeld();
        s.requestPool.Release(request);
      },
      [&](Callback* callback) { HandOver(callback, sts); });
  LMX_CHECK(recorded, LMX_STATUS_ALLOC_FAILED);
  return LMX_STATUS_NO_ERROR;
}

Status Scheduler::CreateSyncPoint(int32_t n, void** outputs, LMXSyncPoint** sp) try {
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
LMX_EDGE_CATCH

}  // namespace lmx
