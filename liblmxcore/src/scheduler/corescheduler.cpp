// The scheduler service: the factory, the session's master and its followers.
#include "scheduler/corescheduler.h"

#include <new>

#include "scheduler/corescheduler_log.h"

namespace lmx {

using namespace Norvik::Lumetra;
using Norvik::Lumetra::Service::DLLExportTable;

namespace {
// The scheduler's own descriptor values, which key its slot in the session.
constexpr uint32_t kSchedulerGroup = 0x80000000u;
constexpr uint32_t kSchedulerSubgroup = 0x40000000u;
}  // namespace

Status CreateScheduler(Session* session, LMXSchedulerService*, Service::Accelerator*, DLLExportTable*, int32_t,
                       Base** result) try {
  LMX_CHECK(result, LMX_STATUS_HANDLE_INVALID);
  // A null session is a session without a service: the scheduler becomes a
  // private master.
  auto* ss2 =
      session ? static_cast<Service::SessionService*>(session->QueryInstance(Service::SessionService::kIid)) : nullptr;
  Scheduler* scheduler = nullptr;
  try {
    scheduler = new Scheduler(ss2);
  } catch (const std::bad_alloc&) {
    scheduler = nullptr;
  }
  // The message has always named the session service, though the test is on the
  // new object.
  if (lmx::detail::FailedOn(scheduler != nullptr, "ss2", __FILE__, __LINE__, LMX_FUNCSIG)) {
    return LMX_STATUS_ALLOC_FAILED;
  }
  // Handed out before Init, and kept even if Init fails: the caller releases it.
  *result = static_cast<LMXScheduler*>(scheduler);
  return scheduler->Init(session);
}
LMX_EDGE_CATCH

Scheduler::Scheduler(SessionService* sessionService)
    : session(sessionService), state_(std::make_shared<lmx::SchedulerState>()) {}

Status Scheduler::Init(Session* hostSession) {
  void** slot = LocateMasterStorage();
  if (slot && *slot) {
    // A follower: everything goes to the master's state. No reference is taken.
    master = static_cast<Scheduler*>(static_cast<LMXScheduler*>(*slot));
    state_ = master->state_;
    ++state_->users;
    return LMX_STATUS_NO_ERROR;
  }
  if (slot) {
    *slot = static_cast<LMXScheduler*>(this);
    LockGuard lock(state_->requestLock);
    state_->registered = true;
  }
  master = this;
  state_->users = 1;
  state_->task_scheduler.reset(lmx::CreateTaskScheduler(hostSession));
  LMX_CHECK(state_->task_scheduler, LMX_STATUS_ALLOC_FAILED);
  return LMX_STATUS_NO_ERROR;
}

void** Scheduler::LocateMasterStorage() {
  LMX_CHECK(session, nullptr);
  Service::ImplDesc desc{};
  desc.group = kSchedulerGroup;
  desc.subgroup = kSchedulerSubgroup;
  void* storage = nullptr;
  session->GetImplStorage(&desc, 0, 0, &storage);
  return static_cast<void**>(storage);
}

Scheduler::~Scheduler() {
  LMX_SCHED_LOG(LOG_LEVEL_DEBUG, L"this = " << PointerText(static_cast<LMXScheduler*>(this)));
  void** slot = LocateMasterStorage();
  uint32_t before;
  bool clearSlot;
  {
    LockGuard lock(state_->requestLock);
    before = state_->users.fetch_sub(1);
    // The last user frees the slot, so the next scheduler of the session becomes
    // a new master. A master that goes before its followers frees it too: they
    // keep the shared state, but the slot must not point at a destroyed object.
    clearSlot = state_->registered && (before == 1 || IsMaster());
    if (clearSlot) state_->registered = false;
  }
  if (clearSlot && slot) *slot = nullptr;
  if (before == 1) state_->task_scheduler.reset();
  // The waiting lists and records go with the last owner of the state (the
  // followers' and sync points' references keep it alive until then).
}

Status Scheduler::SetOption(int32_t value) {
  option = value;
  return LMX_STATUS_NO_ERROR;
}

int32_t Scheduler::QueryOption() { return option; }

}  // namespace lmx
