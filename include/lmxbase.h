// lmxbase.h: the root interfaces of the object model.
//
// Every object is reached through abstract interfaces derived from Base. An object
// may implement several interfaces, each a sub-object with its own vtable; a caller
// moves between them with QueryInstance(identifier).
//
// Binary contract: other modules call these objects through vtable slots by
// position, possibly built by another compiler. Each interface therefore declares
// exactly its listed operations in order, and its destructor slot is the explicit
// operation Destroy(flags) (bit 0: free the memory too). No interface declares a
// C++ virtual destructor: GCC and Clang lay that out as two slots.
//
// QueryInstance contract: returns the sub-object implementing the identifier, or
// null for an identifier the object does not implement. It never adds a reference;
// the pointer is valid as long as the caller's own hold on the object.
#pragma once

#include <cstdint>

#include "lmxstatus.h"

namespace Norvik::Lumetra {

using InterfaceId = int32_t;

// Packs four characters with the first in the lowest byte, so the value stored
// little-endian spells the code in memory order ("SHED" -> 0x44454853).
constexpr InterfaceId FourCC(const char (&code)[5]) {
  return static_cast<InterfaceId>(static_cast<uint32_t>(static_cast<uint8_t>(code[0])) |
                                  static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 8 |
                                  static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 16 |
                                  static_cast<uint32_t>(static_cast<uint8_t>(code[3])) << 24);
}

// Flag bit of Destroy(): also free the object's memory.
inline constexpr uint32_t kDestroyFreeMemory = 1;

// Slots: 0 QueryInstance, 1 Release.
class Base {
 public:
  static constexpr InterfaceId kIid = 0;
  static constexpr InterfaceId kIid2 = 0;

  virtual void* QueryInstance(InterfaceId iid) = 0;
  virtual void Release() = 0;

  // Typed query by the interface's first identifier (non-virtual: no slot).
  template <class T>
  T* QueryInstance() {
    return static_cast<T*>(QueryInstance(T::kIid));
  }

 protected:
  ~Base() = default;
};

// Slots: 0 QueryInstance, 1 Release, 2 AddRef, 3 Destroy.
// AddRef atomically increments the object's counter and returns the new count.
class Reference : public Base {
 public:
  static constexpr InterfaceId kIid = FourCC("BASS");
  static constexpr InterfaceId kIid2 = kIid;

  virtual uint32_t AddRef() = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Reference() = default;
};

}  // namespace Norvik::Lumetra

// Interfaces of the kit with the LMX prefix live in the global namespace.
// Hook for the final release of image and audio objects.
// Slots: 0 QueryInstance, 1 Release, 2 SetReleaseHandler, 3 AddDependent, 4 Destroy.
class LMXReleaseService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = Norvik::Lumetra::FourCC("RELS");
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  using ReleaseHandler = void (*)(void* context);

  // Stores the handler and its context; a later call replaces them, a null
  // handler clears them. Returns LMX_STATUS_NO_ERROR.
  virtual Norvik::Lumetra::Status SetReleaseHandler(ReleaseHandler handler, void* context) = 0;
  // Appends a dependent released after the handler, in order of addition. The
  // object takes over one hold on the dependent. Returns LMX_STATUS_NO_ERROR.
  virtual Norvik::Lumetra::Status AddDependent(Norvik::Lumetra::Base* dependent) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXReleaseService() = default;
};
