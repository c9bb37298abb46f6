// corescheduler.h: the scheduler object, its sync points and the master's state.
//
// Every scheduler created in one session finds the first one (the master) through
// the session's slot for the scheduler descriptor and shares its dependency state
// and worker pool. The shared state is held by shared ownership, so that sync
// points and followers never reach freed memory whatever the order of releases;
// the master must still be the session's last scheduler for the slot to stay
// meaningful (see ~Scheduler).
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

#include "scheduler/concurrent_map.h"
#include "scheduler/corescheduler_pool.h"
#include "scheduler/node_pool.h"
#include "lmx/platform/recursive_lock.h"
#include "lmx/platform/event.h"
#include "lmximpl.h"
#include "lmxscheduler.h"
#include "lmxsession.h"

namespace lmx {

// The dependency bookkeeping of a session, owned by its master scheduler.
struct SchedulerState {
  using Callback = LMXSchedulerService::Callback;

  // One outstanding RequestInputs call with pending inputs; a member of `requests`.
  struct Request {
    uint32_t count = 0;            // inputs still pending
    Callback* callback = nullptr;  // null once handed over
    Request* prev = nullptr;
    Request* next = nullptr;
    // While a completion holds the callback to hand it over: the callback and
    // the next request whose callback that completion hands over.
    Callback* ready = nullptr;
    Request* readyNext = nullptr;
  };

  // The outstanding requests in registration order (doubly linked through the
  // records, which come from `requestPool`).
  class RequestList {
   public:
    void PushBack(Request* request);
    void Erase(Request* request);
    size_t size() const { return count_; }

   private:
    Request* head_ = nullptr;
    Request* tail_ = nullptr;
    size_t count_ = 0;
  };

  // One entry of a pending output's waiter list: a request waiting for it.
  struct Waiter {
    Request* request;
    Waiter* next;
  };
  // A pending output's waiters in the order they registered: a ring reached
  // through its last entry, so that a map slot holds one pointer beside its key.
  struct WaiterList {
    Waiter* tail = nullptr;

    void Append(Waiter* waiter) {
      waiter->next = tail ? tail->next : waiter;
      if (tail) tail->next = waiter;
      tail = waiter;
    }
    // Calls visit(waiter) for each waiter in order; visit may recycle it.
    template <class Visit>
    void ForEach(Visit visit) const {
      if (!tail) return;
      for (Waiter* waiter = tail->next;;) {
        Waiter* next = waiter->next;
        const bool last = waiter == tail;
        visit(waiter);
        if (last) return;
        waiter = next;
      }
    }
  };

  SchedulerState() = default;
  SchedulerState(const SchedulerState&) = delete;
  SchedulerState& operator=(const SchedulerState&) = delete;

  // Serialises registration of requests against completion of outputs; recursive
  // because inline callbacks run under it and may register or complete in turn.
  RecursiveLock requestLock;
  // Records and waiter entries are recycled, so registering and completing
  // allocate nothing once the pools have grown.
  NodePool<Request> requestPool LMX_GUARDED_BY(requestLock);
  NodePool<Waiter> waiterPool LMX_GUARDED_BY(requestLock);
  RequestList requests LMX_GUARDED_BY(requestLock);
  // Pending outputs and the requests waiting for each (non-owning, in order).
  // Waiter lists are read and changed only under requestLock.
  ConcurrentPointerMap<WaiterList> pendingOutputs;
  // The error each failed output was last completed with.
  ConcurrentPointerMap<Norvik::Lumetra::Status, MapCount::kKept> failedOutputs;
  // Number of scheduler objects of the session that use this state.
  std::atomic<uint32_t> users{0};
  // Whether the session's slot points at this state's master.
  bool registered LMX_GUARDED_BY(requestLock) = false;
  std::unique_ptr<TaskScheduler> task_scheduler;
};

class Scheduler final
    : public Norvik::Lumetra::LMXAddRefImpl<Norvik::Lumetra::LMXBaseImpl2<LMXScheduler, LMXSchedulerService>> {
 public:
  class SyncPoint;
  using Status = Norvik::Lumetra::Status;
  using Callback = LMXSchedulerService::Callback;
  using SessionService = Norvik::Lumetra::Service::SessionService;

  explicit Scheduler(SessionService* sessionService);

  // Attaches to the session's master, or becomes it.
  Status Init(Norvik::Lumetra::Session* session);
  // The session's slot for the master's pointer; null without a session service.
  void** LocateMasterStorage();

  // LMXScheduler
  Status SetOption(int32_t value) override;
  int32_t QueryOption() override;
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  Status SubmitTask(Callback* task, Status sts) override;

  // LMXSchedulerService
  Status RequestInputs(int32_t n, void** inputs, Callback* cb) override;
  Status MarkOutputs(int32_t n, void** outputs, Status sts) override;
  Status CreateSyncPoint(int32_t n, void** outputs, LMXSyncPoint** sp) override;

  Scheduler* Master() const { return master; }
  bool IsMaster() const { return master == this; }
  // The state in use: the master's once Init has run.
  const std::shared_ptr<lmx::SchedulerState>& State() const { return state_; }

 private:
  template <class Self>
  friend void lmx::DestroyObject(Self* self, uint32_t flags);
  ~Scheduler();

  Status MarkInProgress(int32_t n, void** outputs);
  Status CompleteOutputs(int32_t n, void** outputs, Status sts);
  // Submits a consumer's callback that the scheduler calls on its own (inputs
  // done or failed); one the queue has no room for runs on this thread rather
  // than never.
  void HandOver(Callback* callback, Status sts);
  // One waiter record per non-null input, chained through next, from the pool
  // (all or none); and their return. Require: requestLock is held.
  SchedulerState::Waiter* TakeWaiters(int32_t n, void** inputs);
  void ReleaseWaiters(SchedulerState::Waiter* chain);

  SessionService* session;  // the host's, not counted
  Scheduler* master = nullptr;
  int32_t option = 0;
  std::shared_ptr<lmx::SchedulerState> state_;
};

// A sync point: a manual-reset event and the status it was signalled with, plus
// the outputs of the operation whose failure records it clears when it ends.
class Scheduler::SyncPoint final
    : public Norvik::Lumetra::LMXBaseImpl3<LMXSyncPoint, LMXSyncPointService, Norvik::Lumetra::Reference> {
 public:
  // Takes the non-null entries of outputs[0..n). May throw std::bad_alloc.
  SyncPoint(Scheduler* owner, int32_t n, void** outputs);

  // LMXSyncPoint
  Status Synchronize(int32_t timeout) override;
  Status SynchronizeExINT(int32_t n1, LMXSyncPoint** sps, int32_t n2, void** events, int32_t* idx,
                          int32_t timeout) override;
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
  Status QueryOutputStatus(void* output) override;
  // LMXSyncPointService
  Status SignalSyncPoint(Status sts) override;
  // Reference and counted release
  uint32_t AddRef() override;
  void Release() override;

  // The implementation behind a sync point face; null for a foreign object.
  static SyncPoint* From(LMXSyncPoint* face);
  Status CurrentStatus() const { return status.load(); }

 private:
  template <class Self>
  friend void lmx::DestroyObject(Self* self, uint32_t flags);
  ~SyncPoint();

  Scheduler* scheduler;  // owner, not counted
  std::shared_ptr<lmx::SchedulerState> masterState_;
  lmx::platform::EventHandle event;
  std::atomic<Status> status{Norvik::Lumetra::LMX_STATUS_EXEC_INPROGRESS};
  std::list<void*> outputs;
  RefCount refCount;
};

// The export table's scheduler factory. Like every factory of the table, arguments 2
// to 5 are ignored and the new object's primary interface goes to the last one.
Norvik::Lumetra::Status CreateScheduler(Norvik::Lumetra::Session* session, LMXSchedulerService* scheduler,
                                        Norvik::Lumetra::Service::Accelerator* accelerator,
                                        Norvik::Lumetra::Service::DLLExportTable* entry, int32_t iid,
                                        Norvik::Lumetra::Base** result);

}  // namespace lmx
