// Sync points: waiting on one or many, signalling, and per-output status.
#include <new>

#include "scheduler/corescheduler.h"
#include "scheduler/corescheduler_log.h"

namespace lmx {

using namespace Norvik::Lumetra;

Scheduler::SyncPoint::SyncPoint(Scheduler* owner, int32_t n, void** list)
    : scheduler(owner), masterState_(owner->State()), event(platform::CreateManualResetEvent()) {
  // A failed event creation is not an error here: the waits report it.
  try {
    for (int32_t i = 0; i < n; ++i)
      if (list[i]) outputs.push_back(list[i]);
  } catch (...) {
    platform::CloseEvent(event);
    throw;
  }
}

Scheduler::SyncPoint::~SyncPoint() {
  if (status.load() == LMX_STATUS_EXEC_INPROGRESS) {
    LMX_SCHED_LOG(LOG_LEVEL_FATAL, L"Attempt to delete SP before it was signaled!!!\n");
  }
  if (event) {
    platform::CloseEvent(event);
    event = nullptr;
  }
  // The failure records of this operation's outputs live as long as it does.
  for (void* output : outputs) masterState_->failedOutputs.Erase(output);
}

Scheduler::SyncPoint* Scheduler::SyncPoint::From(LMXSyncPoint* face) {
  if (!face) return nullptr;
  // Only the library's own sync points answer "BPN2", with their primary face.
  return static_cast<SyncPoint*>(static_cast<LMXSyncPoint*>(face->QueryInstance(LMXSyncPoint::kIid2)));
}

uint32_t Scheduler::SyncPoint::AddRef() { return refCount.AddRef(); }

void Scheduler::SyncPoint::Release() { refCount.Release(this); }

Status Scheduler::SyncPoint::Synchronize(int32_t timeout) try {
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "Synchronize");
  LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"syncpoint = " << PointerText(this));
  LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"timeout = " << timeout);
  if (!event) return LMX_STATUS_HANDLE_INVALID;
  if (timeout != 0 && platform::WaitForEvent(event, timeout) == platform::kWaitTimeout) {
    LMX_SCHED_LOG(LOG_LEVEL_ERROR, L"Function " << L"Scheduler::SyncPoint::Synchronize"
                                                << L" returned LMX_STATUS_EXEC_TIMEOUT = "
                                                << StatusText(LMX_STATUS_EXEC_TIMEOUT));
    return LMX_STATUS_EXEC_TIMEOUT;
  }
  // Any other answer, a failed wait included, reads the status: pending reads as
  // LMX_STATUS_EXEC_INPROGRESS, so a poll (timeout 0) looks like an error.
  return status.load();
}
LMX_EDGE_CATCH

Status Scheduler::SyncPoint::SynchronizeExINT(int32_t n1, LMXSyncPoint** sps, int32_t n2, void** events, int32_t* idx,
                                              int32_t timeout) try {
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "SynchronizeExINT");
  // Missing arrays read as arrays of nulls; a foreign object among the sync
  // points (one that does not answer "BPN2") is skipped like a null entry.
  auto syncPointAt = [&](int32_t i) { return sps ? From(sps[i]) : nullptr; };
  auto eventAt = [&](int32_t j) { return events ? events[j] : nullptr; };

  // The counts are checked before either array is read. The operating system's
  // limit on objects in one wait counts the null entries too; a negative count
  // describes no array at all and is refused the same way.
  const bool countsFit =
      !LMX_FAILED_ON(n1 >= 0 && n2 >= 0) && CheckedAdd(n1, n2).value_or(INT64_MAX) <= platform::kMaximumWaitObjects;
  for (int32_t i = 0; countsFit && i < n1; ++i) {
    if (sps && sps[i]) LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"sps[i] = " << PointerText(sps[i]));
  }
  LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"timeout = " << timeout);
  if (!countsFit) {
    LMX_SCHED_LOG(LOG_LEVEL_ERROR, L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT"
                                                << L" returned LMX_STATUS_PARAM_UNSUPPORTED = "
                                                << StatusText(LMX_STATUS_PARAM_UNSUPPORTED));
    return LMX_STATUS_PARAM_UNSUPPORTED;
  }

  platform::EventHandle handles[platform::kMaximumWaitObjects];
  uint32_t count = 0;
  for (int32_t i = 0; i < n1; ++i)
    if (SyncPoint* sp = syncPointAt(i)) handles[count++] = sp->event;
  for (int32_t j = 0; j < n2; ++j)
    if (void* handle = eventAt(j)) handles[count++] = handle;

  const uint32_t answer = platform::WaitForEvents(count, handles, idx == nullptr, timeout);
  if (answer == platform::kWaitTimeout) return LMX_STATUS_EXEC_TIMEOUT;
  if (answer == platform::kWaitFailed) {
    // Also the answer to an empty wait (every entry null).
    LMX_SCHED_LOG(LOG_LEVEL_ERROR, L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT"
                                                << L" returned LMX_STATUS_PARAM_UNSUPPORTED = "
                                                << StatusText(LMX_STATUS_PARAM_UNSUPPORTED));
    return LMX_STATUS_PARAM_UNSUPPORTED;
  }

  if (!idx) {
    // Everything is signalled: the first error in index order, warnings ignored.
    for (int32_t i = 0; i < n1; ++i) {
      SyncPoint* sp = syncPointAt(i);
      if (!sp) continue;
      const Status sts = sp->CurrentStatus();
      if (sts < 0) {
        LMX_SCHED_LOG(LOG_LEVEL_ERROR, L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT" << L" returned sts = "
                                                    << StatusText(sts));
        return sts;
      }
    }
    LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT"
                                                  << L" returned LMX_STATUS_NO_ERROR = "
                                                  << StatusText(LMX_STATUS_NO_ERROR));
    return LMX_STATUS_NO_ERROR;
  }

  // Wait-any: an abandoned mutex among the raw handles counts as signalled.
  uint32_t signalled = answer;
  if (signalled >= platform::kWaitAbandoned0 && signalled < platform::kWaitAbandoned0 + count)
    signalled -= platform::kWaitAbandoned0;
  // Map the compacted position back to the caller's arrays, nulls included.
  uint32_t seen = 0;
  for (int32_t i = 0; i < n1; ++i) {
    SyncPoint* sp = syncPointAt(i);
    if (!sp) continue;
    if (seen++ != signalled) continue;
    *idx = i;
    const Status sts = sp->CurrentStatus();
    LMX_SCHED_LOG(sts < 0 ? LOG_LEVEL_ERROR : LOG_LEVEL_VERBOSE,
                  L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT"
                               << L" returned sps[i]->QueryInstance<SyncPoint>()->status = " << StatusText(sts));
    return sts;
  }
  for (int32_t j = 0; j < n2; ++j) {
    if (!eventAt(j)) continue;
    if (seen++ != signalled) continue;
    *idx = n1 + j;
    break;
  }
  if (seen <= signalled) {
    LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"*idx = " << *idx);
  }
  LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"Function " << L"Scheduler::SyncPoint::SynchronizeExINT"
                                                << L" returned LMX_STATUS_NO_ERROR = "
                                                << StatusText(LMX_STATUS_NO_ERROR));
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

Status Scheduler::SyncPoint::SignalSyncPoint(Status sts) try {
  LMX_TRACE_AT(LOG_LEVEL_VERBOSE, "SignalSyncPoint");
  LMX_SCHED_LOG(LOG_LEVEL_VERBOSE, L"syncpoint = " << PointerText(static_cast<LMXSyncPoint*>(this)));
  LMX_SCHED_LOG(sts < 0 ? LOG_LEVEL_ERROR : LOG_LEVEL_VERBOSE, L"sts = " << sts);
  // The status first, so a waiter that wakes always reads the final one.
  status.store(sts);
  platform::SetEvent(event);
  return LMX_STATUS_NO_ERROR;
}
LMX_EDGE_CATCH

Status Scheduler::SyncPoint::QueryOutputStatus(void* output) try {
  if (!event) return LMX_STATUS_HANDLE_INVALID;
  {
    decltype(masterState_->failedOutputs)::ConstAccessor record;
    if (masterState_->failedOutputs.Find(record, output)) return record.value();
  }
  return status.load();
}
LMX_EDGE_CATCH

}  // namespace lmx
