// lmxsession.h: the host's session, its session service, and the module export table.
//
// A module exports one data symbol, LMXDLLExportTable: the head of a singly linked
// list of 640-byte entries, one per implementation. Each entry holds a factory and
// an implementation descriptor (ImplDesc, bytes 16..639) that a host copies or
// compares as a unit. All integers are little-endian; names are UTF-16LE.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lmxbase.h"

class LMXSchedulerService;

namespace Norvik::Lumetra {

class Session;

namespace Service {

class Accelerator;

// The session service ("SES2"). Slot 2 hands out the session's pointer-sized slot
// for an implementation descriptor; every caller with an equal descriptor gets the
// same slot.
class SessionService : public Base {
 public:
  static constexpr InterfaceId kIid = FourCC("SES2");
  static constexpr InterfaceId kIid2 = kIid;

  static constexpr uint32_t kSignature = 0x02454C44;  // "DLE" and 2
  static constexpr size_t kFriendlyNameChars = 286;   // 572 bytes of UTF-16LE

  struct ImplDesc {
    uint32_t signature;
    uint32_t group;
    uint32_t subgroup;
    uint32_t algorithm;
    uint32_t code;  // four characters in memory order
    uint16_t versionMajor;
    uint16_t versionMinor;
    uint32_t reserved;
    int32_t merit;
    uint32_t vendor;
    int32_t iids[4];
    char16_t friendlyName[kFriendlyNameChars];
  };

  struct DLLExportTable;
  using Factory = Status (*)(Session* session, LMXSchedulerService* scheduler, Accelerator* accelerator,
                             DLLExportTable* entry, InterfaceId iid, Base** result);

  struct DLLExportTable {
    DLLExportTable* next;
    Factory factory;
    ImplDesc desc;
  };

  virtual Status GetImplStorage(const ImplDesc* desc, int32_t reserved1, int32_t reserved2, void** storage) = 0;

 protected:
  ~SessionService() = default;
};

using ImplDesc = SessionService::ImplDesc;
using DLLExportTable = SessionService::DLLExportTable;

static_assert(sizeof(void*) == 8, "the export table layout is the 64-bit one");
static_assert(sizeof(ImplDesc) == 624);
static_assert(offsetof(ImplDesc, signature) == 0);
static_assert(offsetof(ImplDesc, group) == 4);
static_assert(offsetof(ImplDesc, subgroup) == 8);
static_assert(offsetof(ImplDesc, algorithm) == 12);
static_assert(offsetof(ImplDesc, code) == 16);
static_assert(offsetof(ImplDesc, versionMajor) == 20);
static_assert(offsetof(ImplDesc, versionMinor) == 22);
static_assert(offsetof(ImplDesc, reserved) == 24);
static_assert(offsetof(ImplDesc, merit) == 28);
static_assert(offsetof(ImplDesc, vendor) == 32);
static_assert(offsetof(ImplDesc, iids) == 36);
static_assert(offsetof(ImplDesc, friendlyName) == 52);
static_assert(sizeof(DLLExportTable) == 640);
static_assert(offsetof(DLLExportTable, next) == 0);
static_assert(offsetof(DLLExportTable, factory) == 8);
static_assert(offsetof(DLLExportTable, desc) == 16);
static_assert(offsetof(DLLExportTable, desc) + offsetof(ImplDesc, friendlyName) == 68);

}  // namespace Service
// The host's session. Slots: 0 QueryInstance, 1 Release, 2 QueryImpl, 3 CreateImpl.
//
// The library queries it for "SES2" (its session service) and for the interface
// that image and audio objects keep, and asks it for implementations when a
// metadata store rebuilds a serialised object.
//
// Contract for hosts:
//   QueryImpl(pattern, index, desc): writes to *desc the full descriptor of the
//     index-th (from 0) implementation known to the session that matches
//     `pattern`, and answers a non-negative status; answers a negative status
//     (and leaves *desc alone) when fewer than index + 1 implementations match.
//     Which fields take part in the match is the host's rule; fields that are
//     zero in the pattern should match anything. The order must be the same for
//     the same pattern while the session lives.
//   CreateImpl(desc, iid, instance): creates an instance of the implementation
//     that `desc` names (as QueryImpl wrote it), stores its `iid` face (or, when
//     the implementation does not offer it, its primary face) in *instance with
//     one reference owned by the caller, and answers a non-negative status; on
//     failure answers a negative status and leaves *instance null.
// Both may be called with the caller's locks held; they must not call back into
// the object that asks.
class Session : public Base {
 public:
  static constexpr InterfaceId kIid = 0;
  static constexpr InterfaceId kIid2 = 0;
  static constexpr InterfaceId kSessionServiceIid = FourCC("SES2");

  virtual Status QueryImpl(const Service::ImplDesc* pattern, int32_t index, Service::ImplDesc* desc) = 0;
  virtual Status CreateImpl(const Service::ImplDesc* desc, InterfaceId iid, Base** instance) = 0;

 protected:
  ~Session() = default;
};

}  // namespace Norvik::Lumetra

// Name of the one exported symbol.
inline constexpr const char kLMXExportTableName[] = "LMXDLLExportTable";
