// lmximpl.h: implementation templates from which the library's objects are composed.
//
//   BaseImpl<T>            one interface; Release destroys at once (no counting).
//   BaseImpl2<T, S>        primary T at the object's start, service S second.
//   BaseImpl3<T, S1, S2>   as BaseImpl2 with a third sub-object.
//   LMXAddRefImpl<B>       adds the Reference face ("BASS") and an atomic count.
//
// Each has a legacy-named twin (LMXBaseImpl, LMXBaseImpl2, LMXBaseImpl3) that adds
// nothing. The secondary faces' QueryInstance and Release are the primary's
// overrides reached through compiler thunks, so a query or release through any face
// of an object has the same effect.
//
// Requires: the concrete class implements Destroy(flags), normally as
//   void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
// and is allocated with new (so that Release can free it with operator delete).
#pragma once

#include <atomic>
#include <cstdint>
#include <new>

#include "lmxbase.h"

namespace lmx {

// The destructor slot's behaviour: run the C++ destructor, free if asked.
template <class Self>
void DestroyObject(Self* self, uint32_t flags) {
  self->Self::~Self();  // the most-derived destructor, called directly
  if (flags & Norvik::Lumetra::kDestroyFreeMemory) ::operator delete(static_cast<void*>(self));
}

}  // namespace lmx

namespace Norvik::Lumetra {

template <class T>
class BaseImpl : public T {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == 0 || iid == T::kIid || iid == T::kIid2) return static_cast<T*>(this);
    return nullptr;
  }
  // Uncounted: the single Release ends the object.
  void Release() override {
    void* memory = static_cast<T*>(this);
    this->Destroy(0);
    ::operator delete(memory);
  }

 protected:
  BaseImpl() = default;
  ~BaseImpl() = default;
};

template <class T, class S>
class BaseImpl2 : public T, public S {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == 0 || iid == T::kIid || iid == T::kIid2) return static_cast<T*>(this);
    if (iid == S::kIid) return static_cast<S*>(this);
    return nullptr;
  }
  void Release() override {
    void* memory = static_cast<T*>(this);
    static_cast<T*>(this)->Destroy(0);
    ::operator delete(memory);
  }

 protected:
  BaseImpl2() = default;
  ~BaseImpl2() = default;
};

template <class T, class S1, class S2>
class BaseImpl3 : public T, public S1, public S2 {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == 0 || iid == T::kIid || iid == T::kIid2) return static_cast<T*>(this);
    if (iid == S1::kIid) return static_cast<S1*>(this);
    if (iid == S2::kIid) return static_cast<S2*>(this);
    return nullptr;
  }
  void Release() override {
    void* memory = static_cast<T*>(this);
    static_cast<T*>(this)->Destroy(0);
    ::operator delete(memory);
  }

 protected:
  BaseImpl3() = default;
  ~BaseImpl3() = default;
};

template <class T>
class LMXBaseImpl : public BaseImpl<T> {};
template <class T, class S>
class LMXBaseImpl2 : public BaseImpl2<T, S> {};
template <class T, class S1, class S2>
class LMXBaseImpl3 : public BaseImpl3<T, S1, S2> {};

// Adds reference counting. The count starts at 1; AddRef is a full-order atomic
// increment; the releaser that sees the old value 1 destroys the object.
template <class B>
class LMXAddRefImpl : public B, public Reference {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == Reference::kIid) return static_cast<Reference*>(this);
    return B::QueryInstance(iid);
  }
  uint32_t AddRef() override { return refCount_.fetch_add(1) + 1; }
  void Release() override {
    if (refCount_.fetch_sub(1) != 1) return;
    void* memory = static_cast<B*>(this);
    static_cast<Reference*>(this)->Destroy(0);  // the one override behind every face
    ::operator delete(memory);
  }

 protected:
  LMXAddRefImpl() = default;
  ~LMXAddRefImpl() = default;

  std::atomic<uint32_t> refCount_{1};
};

}  // namespace Norvik::Lumetra
