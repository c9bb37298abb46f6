// host_session.h: a minimal host session.
//
// The session answers "SES2" with its session service, whose GetImplStorage keeps
// one pointer-sized slot per implementation descriptor (compared byte for byte)
// and hands out its address, as a host does. A session built WithoutService
// answers nothing, like a host that offers no session service.
//
// Implementations added with AddImpl are what QueryImpl and CreateImpl offer:
// QueryImpl matches a pattern by its implementation code (0 matches every
// one), in the order added; CreateImpl runs the maker of the descriptor's code.
//
// Once SetAllocator was called, the session also answers the allocator interface,
// so that the audio converter can create its output objects through it.
//
// Example:
//   lmxhost::HostSession session;
//   Base* scheduler = nullptr;
//   CreateScheduler(&session, nullptr, nullptr, nullptr, 0, &scheduler);
#pragma once

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lmxallocator.h"
#include "lmxsession.h"

namespace lmxhost {

class HostSession final : public Norvik::Lumetra::Session {
 public:
  struct WithoutService {};

  HostSession() = default;
  explicit HostSession(WithoutService) : offersService_(false) {}
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override {
    if (iid == 0) return static_cast<Norvik::Lumetra::Session*>(this);
    if (offersService_ && iid == Norvik::Lumetra::Service::SessionService::kIid) return &service_;
    if (allocator_ && iid == LMXAllocator::kIid) return allocator_;
    return nullptr;
  }
  void Release() override {}  // owned by the host

  Norvik::Lumetra::Status QueryImpl(const Norvik::Lumetra::Service::ImplDesc* pattern, int32_t index,
                                    Norvik::Lumetra::Service::ImplDesc* desc) override {
    ++queryImplCalls;
    if (!pattern || !desc || index < 0) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    for (const Impl& impl : impls_) {
      if (pattern->code != 0 && pattern->code != impl.desc.code) continue;
      if (index-- == 0) {
        *desc = impl.desc;
        return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
      }
    }
    return Norvik::Lumetra::LMX_STATUS_ITEM_UNAVAILABLE;
  }
  Norvik::Lumetra::Status CreateImpl(const Norvik::Lumetra::Service::ImplDesc* desc, Norvik::Lumetra::InterfaceId,
                                     Norvik::Lumetra::Base** instance) override {
    if (!desc || !instance) return Norvik::Lumetra::LMX_STATUS_HANDLE_INVALID;
    *instance = nullptr;
    for (const Impl& impl : impls_)
      if (std::memcmp(&impl.desc, desc, sizeof(*desc)) == 0) *instance = impl.make();
    return *instance ? Norvik::Lumetra::LMX_STATUS_NO_ERROR : Norvik::Lumetra::LMX_STATUS_ITEM_UNAVAILABLE;
  }

  // An implementation offered by QueryImpl/CreateImpl; `make` returns a new
  // object with one reference (or null for a failed creation).
  void AddImpl(const Norvik::Lumetra::Service::ImplDesc& desc, std::function<Norvik::Lumetra::Base*()> make) {
    impls_.push_back({desc, std::move(make)});
  }
  int queryImplCalls = 0;

  // The allocator the session answers under LMXAllocator's identifier; null: none.
  void SetAllocator(LMXAllocator* allocator) { allocator_ = allocator; }

  Norvik::Lumetra::Service::SessionService* Service() { return &service_; }
  // The slot for a descriptor, created empty on first use.
  void** Slot(const Norvik::Lumetra::Service::ImplDesc& desc) { return service_.SlotFor(&desc); }
  int StorageCalls() const { return service_.calls; }

 private:
  class SessionService final : public Norvik::Lumetra::Service::SessionService {
   public:
    void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override { return iid == 0 || iid == kIid ? this : nullptr; }
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

  struct Impl {
    Norvik::Lumetra::Service::ImplDesc desc;
    std::function<Norvik::Lumetra::Base*()> make;
  };

  bool offersService_ = true;
  LMXAllocator* allocator_ = nullptr;
  SessionService service_;
  std::vector<Impl> impls_;
};

}  // namespace lmxhost
