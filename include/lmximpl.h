// lmximpl.h: implementation templates from which the library's objects are composed.
//
//   BaseImpl<T, S...>      primary T at the object's start, then the services S in
//                          order; Release destroys at once (no counting).
//   BaseImpl2<T, S>        BaseImpl<T, S>.
//   BaseImpl3<T, S1, S2>   BaseImpl<T, S1, S2>.
//   LMXAddRefImpl<B>       adds the Reference face ("BASS") and the count (lmx::RefCount).
//
// Each has a legacy-named twin (LMXBaseImpl, LMXBaseImpl2, LMXBaseImpl3) that adds
// nothing. The secondary faces' QueryInstance and Release are the primary's
// overrides reached through compiler thunks, so a query or release through any face
// of an object has the same effect.
//
// lmx::RefCount is the one reference count of the library: the allocator and the
// scheduler (through LMXAddRefImpl), image and audio objects and sync points hold
// one. It keeps the atomic count and what the final release runs: the release
// handler, then the dependents.
//
// Requires: the concrete class implements Destroy(flags), normally as
//   void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
// and is allocated with new (so that Release can free it with operator delete).
#pragma once

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "lmxbase.h"

namespace lmx {

// The destructor slot's behaviour: run the C++ destructor, free if asked.
template <class Self>
void DestroyObject(Self* self, uint32_t flags) {
  self->Self::~Self();  // the most-derived destructor, called directly
  if (flags & Norvik::Lumetra::kDestroyFreeMemory) ::operator delete(static_cast<void*>(self));
}

// What a counted object runs on its final release: the release handler with its
// context, then the release of each dependent in the order it was added. Set-up is
// not synchronised against a concurrent final release: callers set hooks up while
// they hold a reference.
class ReleaseHooks {
 public:
  ReleaseHooks() = default;
  ReleaseHooks(const ReleaseHooks&) = delete;
  ReleaseHooks& operator=(const ReleaseHooks&) = delete;

  // A later call replaces the pair; a null handler clears it.
  void SetHandler(LMXReleaseService::ReleaseHandler handler, void* context) {
    handler_ = handler;
    context_ = handler ? context : nullptr;
  }

  // Takes over one hold on the dependent. Fails only when memory runs out.
  Norvik::Lumetra::Status AddDependent(Norvik::Lumetra::Base* dependent) {
    try {
      dependents_.push_back(dependent);
    } catch (const std::bad_alloc&) {
      return Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED;
    }
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }

  // Runs the handler, then releases the dependents in order; each runs once.
  void Run() {
    if (auto handler = std::exchange(handler_, nullptr)) handler(std::exchange(context_, nullptr));
    std::vector<Norvik::Lumetra::Base*> dependents = std::move(dependents_);
    dependents_.clear();
    for (Norvik::Lumetra::Base* dependent : dependents)
      if (dependent) dependent->Release();
  }

 private:
  LMXReleaseService::ReleaseHandler handler_ = nullptr;
  void* context_ = nullptr;
  std::vector<Norvik::Lumetra::Base*> dependents_;
};

// The reference count of an object, starting at 1. AddRef is a full-order atomic
// increment; the releaser that sees the old value 1 runs the hooks, then destroys
// the object through its destructor slot and frees it.
class RefCount {
 public:
  uint32_t AddRef() { return count_.fetch_add(1) + 1; }
  // `self` is the object's Reference face.
  void Release(Norvik::Lumetra::Reference* self) {
    if (count_.fetch_sub(1) != 1) return;
    hooks_.Run();
    void* memory = dynamic_cast<void*>(self);  // the start of the allocation
    self->Destroy(0);                          // the one override behind every face
    ::operator delete(memory);
  }
  uint32_t Count() const { return count_.load(); }

  // LMXReleaseService, for the objects that offer it.
  Norvik::Lumetra::Status SetReleaseHandler(LMXReleaseService::ReleaseHandler handler, void* context) {
    hooks_.SetHandler(handler, context);
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  Norvik::Lumetra::Status AddDependent(Norvik::Lumetra::Base* dependent) { return hooks_.AddDependent(dependent); }

 private:
  std::atomic<uint32_t> count_{1};
  ReleaseHooks hooks_;
};

}  // namespace lmx

namespace Norvik::Lumetra {

template <class T, class... S>
class BaseImpl : public T, public S... {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == 0 || iid == T::kIid || iid == T::kIid2) return static_cast<T*>(this);
    void* face = nullptr;  // the first service, in order, whose identifier matches
    ((face = face ? face : (iid == S::kIid ? static_cast<void*>(static_cast<S*>(this)) : nullptr)), ...);
    return face;
  }
  // Uncounted: the single Release ends the object.
  void Release() override {
    void* memory = static_cast<T*>(this);
    static_cast<T*>(this)->Destroy(0);
    ::operator delete(memory);
  }

 protected:
  BaseImpl() = default;
  ~BaseImpl() = default;
};

template <class T, class S>
using BaseImpl2 = BaseImpl<T, S>;
template <class T, class S1, class S2>
using BaseImpl3 = BaseImpl<T, S1, S2>;

template <class T, class... S>
class LMXBaseImpl : public BaseImpl<T, S...> {};
template <class T, class S>
using LMXBaseImpl2 = LMXBaseImpl<T, S>;
template <class T, class S1, class S2>
using LMXBaseImpl3 = LMXBaseImpl<T, S1, S2>;

// Adds reference counting (lmx::RefCount) behind the Reference face.
template <class B>
class LMXAddRefImpl : public B, public Reference {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == Reference::kIid) return static_cast<Reference*>(this);
    return B::QueryInstance(iid);
  }
  uint32_t AddRef() override { return refs_.AddRef(); }
  void Release() override { refs_.Release(this); }

 protected:
  LMXAddRefImpl() = default;
  ~LMXAddRefImpl() = default;

  lmx::RefCount refs_;
};

}  // namespace Norvik::Lumetra
