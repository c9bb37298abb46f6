// lmxscheduler.h: the scheduler's interfaces, its sync points and the callback
// interface that modules implement.
//
//   LMXScheduler          "SHED" / 0x760D0B00   task submission, an option value
//   LMXSchedulerService   "SCH2"                input/output dependencies, sync points
//   LMXSyncPoint          "SHSP" / "BPN2"       wait for an operation, read its status
//   LMXSyncPointService   "SYN1"                the producer signals the sync point
//   LMXSchedulerService::Callback               work handed to the scheduler
//
// Slot numbers count from 0 and are part of the binary contract.
//
// Example (one stage):
//   service->MarkOutputs(1, &out, LMX_STATUS_EXEC_INPROGRESS);
//   service->CreateSyncPoint(1, &out, &sp);
//   ... consumers: service->RequestInputs(1, &out, callback);
//   service->MarkOutputs(1, &out, sts);      // runs or queues the waiting callbacks
//   static_cast<LMXSyncPointService*>(sp->QueryInstance(LMXSyncPointService::kIid))->SignalSyncPoint(sts);
//   sp->Synchronize(-1);                     // elsewhere: returns sts
#pragma once

#include <cstdint>

#include "lmxbase.h"

// Wait interface of a sync point.
// Slots: 0 QueryInstance, 1 Release, 2 Synchronize, 3 SynchronizeExINT, 4 Destroy,
// 5 QueryOutputStatus.
class LMXSyncPoint : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("SHSP");
  // Answered by the library's own sync points only: reaches the implementation.
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = Norvik::Lumetra::FourCC("BPN2");

  // Waits up to timeout milliseconds (-1 forever, 0 polls) and returns the status
  // the sync point was signalled with; LMX_STATUS_EXEC_INPROGRESS while pending,
  // LMX_STATUS_EXEC_TIMEOUT when the wait timed out.
  virtual Norvik::Lumetra::Status Synchronize(int32_t timeout) = 0;
  // Waits on the n1 sync points of sps and the n2 raw event handles of events
  // (at most 64 in all; null entries are skipped). idx null waits for all and
  // returns the first error among the sync points; idx non-null waits for any,
  // stores the object's position in the concatenated arrays and returns its status.
  virtual Norvik::Lumetra::Status SynchronizeExINT(int32_t n1, LMXSyncPoint** sps, int32_t n2, void** events,
                                                   int32_t* idx, int32_t timeout) = 0;
  virtual void Destroy(uint32_t flags) = 0;
  // The status that applies to one output of the operation: its recorded error if
  // it failed, else the sync point's status.
  virtual Norvik::Lumetra::Status QueryOutputStatus(void* output) = 0;

 protected:
  ~LMXSyncPoint() = default;
};

// Producer interface of a sync point.
// Slots: 0 QueryInstance, 1 Release, 2 SignalSyncPoint.
class LMXSyncPointService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("SYN1");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // Records sts, then wakes every waiter; a later signal overwrites the status.
  // Returns LMX_STATUS_NO_ERROR.
  virtual Norvik::Lumetra::Status SignalSyncPoint(Norvik::Lumetra::Status sts) = 0;

 protected:
  ~LMXSyncPointService() = default;
};

// Dependency and sync-point interface of the scheduler.
// Slots: 0 QueryInstance, 1 Release, 2 RequestInputs, 3 MarkOutputs, 4 CreateSyncPoint.
class LMXSchedulerService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("SCH2");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // Work handed to the scheduler, implemented by modules. The scheduler calls only
  // Run and QueryName, takes no reference, and calls Run exactly once per handing
  // over; the module keeps the callback alive until Run has returned.
  // Slots: 0 QueryInstance, 1 Release (never called by the scheduler), 2 Run,
  // 3 QueryName.
  class Callback : public Norvik::Lumetra::Base {
   public:
    // Performs the work; sts is the status of the inputs (0, a warning, or the
    // error of a failed input). The result is ignored.
    virtual Norvik::Lumetra::Status Run(Norvik::Lumetra::Status sts) = 0;
    // The task's name for traces, or null. A name starting with "(inline)" makes
    // the task run on the submitting thread.
    virtual const wchar_t* QueryName() = 0;

   protected:
    ~Callback() = default;
  };

  // Calls cb once every non-null input is done: at once when none is pending, with
  // an input's error as soon as one fails, else with the status its last pending
  // input completed with.
  virtual Norvik::Lumetra::Status RequestInputs(int32_t n, void** inputs, Callback* cb) = 0;
  // sts LMX_STATUS_EXEC_INPROGRESS declares the outputs pending (and forgets their
  // failures); any other sts completes them and hands waiting callbacks over.
  virtual Norvik::Lumetra::Status MarkOutputs(int32_t n, void** outputs, Norvik::Lumetra::Status sts) = 0;
  // A new sync point (count 1, owned by the caller) that carries the outputs.
  virtual Norvik::Lumetra::Status CreateSyncPoint(int32_t n, void** outputs, LMXSyncPoint** sp) = 0;

 protected:
  ~LMXSchedulerService() = default;
};

// Task submission interface of the scheduler.
// Slots: 0 QueryInstance, 1 Release, 2 SetOption, 3 QueryOption, 4 Destroy, 5 SubmitTask.
class LMXScheduler : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("SHED");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = 0x760D0B00;

  // Stores a value that QueryOption returns; it has no other effect.
  virtual Norvik::Lumetra::Status SetOption(int32_t value) = 0;
  virtual int32_t QueryOption() = 0;
  virtual void Destroy(uint32_t flags) = 0;
  // Runs task with sts: on this thread when its name starts with "(inline)", else
  // on the session's worker pool.
  virtual Norvik::Lumetra::Status SubmitTask(LMXSchedulerService::Callback* task, Norvik::Lumetra::Status sts) = 0;

 protected:
  ~LMXScheduler() = default;
};
