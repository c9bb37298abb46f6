// scheduler_test_support.h: tasks that record their runs, and a scheduler
// created through the factory for a test session.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "scheduler/corescheduler.h"
#include "host_session.h"
#include "module_factories.h"
#include "test_support.h"

using lmx::CreateScheduler;
using lmx::Scheduler;
using lmxhost::HostSession;

namespace lmxtest {

using namespace std::chrono_literals;

// A callback that counts its runs and remembers the last status and thread.
class RecordingTask final : public LMXSchedulerService::Callback {
 public:
  explicit RecordingTask(const wchar_t* name = nullptr, std::function<void(Norvik::Lumetra::Status)> body = {})
      : name_(name), body_(std::move(body)) {}

  void* QueryInstance(Norvik::Lumetra::InterfaceId) override { return nullptr; }
  void Release() override {}
  Norvik::Lumetra::Status Run(Norvik::Lumetra::Status sts) override {
    if (body_) body_(sts);
    std::lock_guard lock(mutex_);
    ++runs_, last_ = sts, thread_ = std::this_thread::get_id();
    changed_.notify_all();
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  const wchar_t* QueryName() override { return name_; }

  int Runs() { return Locked(runs_); }
  Norvik::Lumetra::Status Last() { return Locked(last_); }
  std::thread::id Thread() { return Locked(thread_); }
  // Waits (bounded) until the task has run at least `runs` times.
  bool WaitForRuns(int runs, std::chrono::milliseconds limit = 2000ms) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return runs_ >= runs; });
  }

 private:
  template <class T>
  T Locked(const T& field) {
    std::lock_guard lock(mutex_);
    return field;
  }

  const wchar_t* name_;
  std::function<void(Norvik::Lumetra::Status)> body_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int runs_ = 0;
  Norvik::Lumetra::Status last_ = Norvik::Lumetra::Status{12345};
  std::thread::id thread_;
};

// A scheduler made by the module factory; released at the end of the scope.
class SchedulerRef {
 public:
  explicit SchedulerRef(Norvik::Lumetra::Session* session) {
    CreateScheduler(session, nullptr, nullptr, nullptr, 0, &object_);  // the tests check get()
  }
  ~SchedulerRef() { reset(); }
  SchedulerRef(const SchedulerRef&) = delete;
  SchedulerRef& operator=(const SchedulerRef&) = delete;

  void reset() {
    if (object_) object_->Release();
    object_ = nullptr;
  }
  Scheduler* get() const { return static_cast<Scheduler*>(static_cast<LMXScheduler*>(object_)); }
  Scheduler* operator->() const { return get(); }
  LMXSchedulerService* service() const {
    return static_cast<LMXSchedulerService*>(object_->QueryInstance(LMXSchedulerService::kIid));
  }

 private:
  Norvik::Lumetra::Base* object_ = nullptr;
};

// The descriptor under which a session keeps its master scheduler.
inline Norvik::Lumetra::Service::ImplDesc SchedulerDescriptor() {
  Norvik::Lumetra::Service::ImplDesc desc{};
  desc.group = 0x80000000u, desc.subgroup = 0x40000000u;
  return desc;
}

inline LMXSyncPointService* SignalFace(LMXSyncPoint* sp) {
  return static_cast<LMXSyncPointService*>(sp->QueryInstance(LMXSyncPointService::kIid));
}

}  // namespace lmxtest
