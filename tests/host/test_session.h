// test_session.h: a minimal host session for tests.
//
// The session answers "SES2" with its session service, whose GetImplStorage keeps
// one pointer-sized slot per implementation descriptor (compared byte for byte)
// and hands out its address, as a host does. A session built WithoutService
// answers nothing, like a host that offers no session service.
//
// Example:
//   lmxtest::TestSession session;
//   Base* scheduler = nullptr;
//   CreateScheduler(&session, nullptr, nullptr, nullptr, 0, &scheduler);
#pragma once

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "lmxsession.h"

namespace lmxtest {

class TestSession final : public Norvik::Lumetra::Session {
 public:
  struct WithoutService {};

  TestSession() = default;
  explicit TestSession(WithoutService) : offersService_(false) {}
  TestSession(const TestSession&) = delete;
  TestSession& operator=(const TestSession&) = delete;

  void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override {
    if (iid == 0) return static_cast<Norvik::Lumetra::Session*>(this);
    if (offersService_ && iid == Norvik::Lumetra::Service::SessionService::kIid) return &service_;
    return nullptr;
  }
  void Release() override {}  // owned by the test

  Norvik::Lumetra::Service::SessionService* Service() { return &service_; }
  // The slot for a descriptor, created empty on first use.
  void** Slot(const Norvik::Lumetra::Service::ImplDesc& desc) { return service_.SlotFor(&desc); }
  int StorageCalls() const { return service_.calls; }

 private:
  class SessionService final : public Norvik::Lumetra::Service::SessionService {
   public:
    void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override {
      return iid == 0 || iid == kIid ? this : nullptr;
    }
    void Release() override {}
    Norvik::Lumetra::Status GetImplStorage(const ImplDesc* desc, int32_t, int32_t, void** storage) override {
      ++calls;
      if (!desc || !storage) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
      *storage = SlotFor(desc);
      return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
    }
    void** SlotFor(const ImplDesc* desc) {
      std::lock_guard lock(mutex_);
      std::string key(reinterpret_cast<const char*>(desc), sizeof(ImplDesc));
      auto& slot = slots_[key];
      if (!slot) slot = std::make_unique<void*>(nullptr);
      return slot.get();
    }
    int calls = 0;

   private:
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<void*>> slots_;
  };

  bool offersService_ = true;
  SessionService service_;
};

}  // namespace lmxtest
