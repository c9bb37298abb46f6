// library.h: liblmxcore as the Python module hosts it.
//
// The module is loaded once per process, on first use, and reached only through its
// export table, as any host does; it stays loaded until the process ends, because
// Python may release library objects during interpreter shutdown.
//
// Example:
//   LMXAllocator* allocator = nullptr;
//   Library::Get().Create(LMXAllocator::kIid, &session, reinterpret_cast<void**>(&allocator));
#pragma once

#include <filesystem>
#include <utility>

#include "lmxallocator.h"
#include "lmxsession.h"
#include "module_host.h"
#include "test_session.h"

namespace lmxpy {

using Norvik::Lumetra::Status;

// Holds one reference to a library object and releases it on scope exit.
template <class T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* object) : object_(object) {}
  ~Ref() { Reset(); }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    if (this != &other) {
      Reset();
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }
  T* Get() const { return object_; }
  T* operator->() const { return object_; }
  void Reset() {
    if (object_) std::exchange(object_, nullptr)->Release();
  }

 private:
  T* object_ = nullptr;
};

// A host session: answers itself, the session service ("SES2") and, once set, the
// allocator interface, through which the audio converter creates its results.
class HostSession final : public Norvik::Lumetra::Session {
 public:
  void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override;
  void Release() override {}
  // The binding offers no implementations for rebuilding serialised objects.
  Status QueryImpl(const Norvik::Lumetra::Service::ImplDesc*, int32_t, Norvik::Lumetra::Service::ImplDesc*) override {
    return Norvik::Lumetra::LMX_STATUS_ITEM_UNAVAILABLE;
  }
  Status CreateImpl(const Norvik::Lumetra::Service::ImplDesc*, Norvik::Lumetra::InterfaceId,
                    Norvik::Lumetra::Base**) override {
    return Norvik::Lumetra::LMX_STATUS_ITEM_UNAVAILABLE;
  }
  void SetAllocator(LMXAllocator* allocator) { allocator_ = allocator; }

 private:
  lmxtest::TestSession sessionService_;
  LMXAllocator* allocator_ = nullptr;
};

class Library {
 public:
  // The process's library; raises LmxError (ITEM_UNAVAILABLE) when it cannot be loaded.
  static Library& Get();

  // Runs the factory of the highest-merit entry offering iid with `session` and
  // stores the object's iid face in *face (one reference).
  Status Create(Norvik::Lumetra::InterfaceId iid, Norvik::Lumetra::Session* session, void** face);

  // The allocator shared by the module's defaults (Image.from_numpy without one,
  // the audio converter's results) and the session that answers it.
  LMXAllocator* DefaultAllocator() const { return allocator_.Get(); }
  HostSession* DefaultSession() { return &session_; }
  const std::filesystem::path& Path() const { return path_; }

 private:
  Library() = default;
  bool Open();

  std::filesystem::path path_;
  lmxhost::Module module_;
  HostSession session_;
  Ref<LMXAllocator> allocator_;
};

}  // namespace lmxpy
