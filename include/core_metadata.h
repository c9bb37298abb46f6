// core_metadata.h: the metadata store carried by every image and audio object.
//
// A store maps integer identifiers to byte buffers that it owns (copies of what
// callers attach), or to live objects that it serialises on first read. A record
// of size 0 only reserves its identifier (QueryUID) and counts as absent.
//
//   Metadata             (0x62398423, 0xE7CAEE0E) the public face.
//   LMXMetadataInternal  (0x85F36A2D) zero-copy access for the library.
//   LMXMetadataStore<F>  the store's operations on top of faces F.
//   LMXMetadataImpl      the standalone object (answers both Metadata identifiers).
//
// Image and audio objects embed LMXMetadataStore<MetadataFaces> and answer only
// 0x62398423 for it. Every operation holds the store's recursive lock from start to
// end; callbacks into attached objects (QueryProfile, SetProfile, Release) run with
// it held. Sizes are signed 32-bit: zero and negative sizes are refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "lmximpl.h"
#include "lmxsession.h"
#include "lmxutils.h"

namespace Norvik::Lumetra {

// Slots: 0 QueryInstance, 1 Release, 2 QueryUID, 3 QueryMetadata, 4 DetachMetadata,
// 5 AttachBuffer, 6 QueryBufferSize, 7 QueryBuffer, 8 AttachSerializable,
// 9 CreateSerializable, 10 Destroy.
class Metadata : public Base {
 public:
  static constexpr InterfaceId kIid = 0x62398423;
  static constexpr InterfaceId kIid2 = static_cast<InterfaceId>(0xE7CAEE0E);

  // Reserves and returns the first free identifier from 0x81001 below 0xFFFFF
  // (LMX_STATUS_ITEM_UNAVAILABLE when all are taken).
  virtual int32_t QueryUID() = 0;
  // Identifier of the index-th record in ascending order (reserved ones counted); 0 past the end.
  virtual int32_t QueryMetadata(int32_t index) = 0;
  // Frees the record and releases the attached object of id; always succeeds.
  virtual Status DetachMetadata(int32_t id) = 0;
  // Stores a copy of size bytes under id; fails when id already holds data.
  virtual Status AttachBuffer(int32_t id, uint8_t* buffer, int32_t size) = 0;
  // Size of id's data (serialising an attached object first); 0 if none.
  virtual int32_t QueryBufferSize(int32_t id) = 0;
  // Copies id's data into buffer, which must hold at least its size.
  virtual Status QueryBuffer(int32_t id, uint8_t* buffer, int32_t size) = 0;
  // Attaches an object: counted ones are kept live, others serialised at once.
  virtual Status AttachSerializable(int32_t id, Base* instance) = 0;
  // Hands out the attached object's cuid face, or rebuilds one from serialised
  // data: the first of up to 1024 implementations that the session's QueryImpl
  // matches to the stored descriptor, created by CreateImpl, that takes the state
  // through SetProfile. Counted objects rebuilt so are kept live by the store.
  virtual Status CreateSerializable(int32_t id, InterfaceId cuid, void** instance) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Metadata() = default;
};

}  // namespace Norvik::Lumetra

// Slots: 0 QueryInstance, 1 Release, 2 QueryInternalBuffer, 3 SetSession, 4 Destroy.
class LMXMetadataInternal : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = static_cast<Norvik::Lumetra::InterfaceId>(0x85F36A2D);
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // Hands out the stored pointer and size without copying; the pointer stays owned
  // by the store and is valid until id is detached or replaced.
  virtual Norvik::Lumetra::Status QueryInternalBuffer(int32_t id, uint8_t** buffer, int32_t* size) = 0;
  // The session used to rebuild serialised objects (may be null).
  virtual Norvik::Lumetra::Status SetSession(Norvik::Lumetra::Session* session) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXMetadataInternal() = default;
};

// The serialisation face of an algorithm object ("SLZS").
// Slots: 0 QueryInstance, 1 Release, 2 QueryProfile, 3 SetProfile, 4 Destroy.
class LMXSerializableService : public Norvik::Lumetra::Base {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x535A4C53;
  static constexpr Norvik::Lumetra::InterfaceId kIid2 = kIid;

  // The 640-byte header of a serialised object. The store reads only the
  // implementation descriptor at the front (handed to the session as it is) and
  // dataSize, the length of the private data that follows the header.
  struct ProfileInfo {
    uint8_t implDesc[608];
    int32_t dataSize;
    uint8_t reserved[28];
  };

  // Fills *profile; with data not null also writes profile->dataSize bytes there.
  virtual Norvik::Lumetra::Status QueryProfile(ProfileInfo* profile, uint8_t* data) = 0;
  // Takes over a serialised state.
  virtual Norvik::Lumetra::Status SetProfile(ProfileInfo* profile, uint8_t* data) = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~LMXSerializableService() = default;
};

static_assert(sizeof(LMXSerializableService::ProfileInfo) == 640);
static_assert(offsetof(LMXSerializableService::ProfileInfo, dataSize) == 608);

// The two metadata faces without an owner: a composite object derives from this
// (through LMXMetadataStore) and answers QueryInstance, Release and Destroy itself.
class MetadataFaces : public Norvik::Lumetra::Metadata, public LMXMetadataInternal {
 protected:
  ~MetadataFaces() = default;
};

// The store's operations, implemented over the faces F (which provide Metadata and
// LMXMetadataInternal). Requires: F leaves QueryInstance/Release/Destroy to others.
template <class F>
class LMXMetadataStore : public F {
 public:
  using Status = Norvik::Lumetra::Status;
  using Base = Norvik::Lumetra::Base;
  using ProfileInfo = LMXSerializableService::ProfileInfo;

  static constexpr int32_t kFirstUid = 0x81001;
  static constexpr int32_t kUidLimit = 0xFFFFF;

  int32_t QueryUID() override try {
    std::lock_guard guard(lock);
    for (int32_t id = kFirstUid; id < kUidLimit; ++id) {
      if (buffers.count(id)) continue;
      buffers[id] = MD{};
      return id;
    }
    return Norvik::Lumetra::LMX_STATUS_ITEM_UNAVAILABLE;
  }
  LMX_EDGE_CATCH_RETURN(Norvik::Lumetra::LMX_STATUS_ALLOC_FAILED)

  int32_t QueryMetadata(int32_t index) override {
    std::lock_guard guard(lock);
    if (index < 0) return 0;
    for (const auto& [id, md] : buffers)
      if (index-- == 0) return id;
    return 0;
  }

  Status DetachMetadata(int32_t id) override {
    std::lock_guard guard(lock);
    if (auto it = buffers.find(id); it != buffers.end()) {
      delete[] it->second.ptr;
      buffers.erase(it);
    }
    if (auto it = instances.find(id); it != instances.end()) {
      Base* instance = it->second;
      instances.erase(it);
      instance->Release();
    }
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }

  Status AttachBuffer(int32_t id, uint8_t* buffer, int32_t size) override try {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    if (LMX_FAILED_ON(findBuffer(id) == NULL)) return LMX_STATUS_HANDLE_INVALID;
    LMX_CHECK(buffer, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(size, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(size > 0, LMX_STATUS_HANDLE_INVALID);
    std::unique_ptr<uint8_t[]> copy(new (std::nothrow) uint8_t[static_cast<size_t>(size)]);
    if (!copy) return LMX_STATUS_ALLOC_FAILED;
    std::memcpy(copy.get(), buffer, static_cast<size_t>(size));
    MD& md = buffers[id];
    delete[] md.ptr;  // a reserved record holds nothing, but stay safe
    md = {copy.release(), static_cast<uint32_t>(size)};
    return LMX_STATUS_NO_ERROR;
  }
  LMX_EDGE_CATCH

  int32_t QueryBufferSize(int32_t id) override try {
    std::lock_guard guard(lock);
    const MD* md = findBuffer(id);
    return md ? static_cast<int32_t>(md->size) : 0;
  }
  LMX_EDGE_CATCH_RETURN(0)

  Status QueryBuffer(int32_t id, uint8_t* buffer, int32_t size) override try {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    LMX_CHECK(buffer, LMX_STATUS_HANDLE_INVALID);
    const MD* record = findBuffer(id);
    if (!record) return LMX_STATUS_ITEM_UNAVAILABLE;
    // Compared as signed 64-bit, so a negative size is too small, never huge.
    const struct { int64_t size; } view{record->size}, *md = &view;
    LMX_CHECK(size >= md->size, LMX_STATUS_HANDLE_INVALID);
    if (record->size) std::memcpy(buffer, record->ptr, record->size);
    return LMX_STATUS_NO_ERROR;
  }
  LMX_EDGE_CATCH

  Status AttachSerializable(int32_t id, Base* instance) override try {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    LMX_CHECK(instance, LMX_STATUS_HANDLE_INVALID);
    Base* old = nullptr;
    if (auto it = instances.find(id); it != instances.end()) old = it->second;

    if (auto* reference = static_cast<Reference*>(instance->QueryInstance(Reference::kIid))) {
      // Counted objects stay live and are serialised only when first read. The
      // slot is made before the reference is taken, so a failure keeps none.
      Base*& slot = instances[id];
      reference->AddRef();
      slot = instance;
      DropRecord(id);
      if (old) old->Release();
      return LMX_STATUS_NO_ERROR;
    }
    // The new record replaces the old one only once it is complete.
    LMX_CHECK_CALL(SerializeObject(id, instance->QueryInstance<LMXSerializableService>()));
    if (old) {
      auto* serializable = old->QueryInstance<LMXSerializableService>();
      if (!serializable) return LMX_STATUS_FEATURE_UNSUPPORTED;
      LMX_CHECK_CALL(serializable->SetProfile((LMXSerializableService::ProfileInfo*)buffers[id].ptr,
                                              buffers[id].ptr + sizeof(LMXSerializableService::ProfileInfo)));
    }
    return LMX_STATUS_NO_ERROR;
  }
  LMX_EDGE_CATCH

  Status CreateSerializable(int32_t id, Norvik::Lumetra::InterfaceId cuid, void** instance) override try {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    LMX_CHECK(session, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(instance, LMX_STATUS_HANDLE_INVALID);
    if (auto held = instances.find(id); held != instances.end()) {
      if (void* face = held->second->QueryInstance(cuid)) {
        if (auto* reference = static_cast<Reference*>(held->second->QueryInstance(Reference::kIid)))
          reference->AddRef();
        *instance = face;
        return LMX_STATUS_NO_ERROR;
      }
    }
    auto it = buffers.find(id);
    LMX_CHECK(it != buffers.end(), LMX_STATUS_ITEM_UNAVAILABLE);
    auto* profile = reinterpret_cast<ProfileInfo*>(it->second.ptr);
    LMX_CHECK(it->second.size >= sizeof(*profile), LMX_STATUS_ITEM_UNAVAILABLE);
    LMX_CHECK(profile->dataSize >= 0, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(it->second.size >= sizeof(*profile) + profile->dataSize, LMX_STATUS_ITEM_UNAVAILABLE);

    Base* created = nullptr;
    const Status sts = RebuildObject(DescriptorPattern(*profile), profile, &created);
    if (sts < 0) return sts;
    if (!instances.count(id)) {
      // Counted objects stay live, as if attached; the slot is made first.
      if (auto* reference = static_cast<Reference*>(created->QueryInstance(Reference::kIid))) {
        try {
          Base*& slot = instances[id];
          reference->AddRef();
          slot = created;
        } catch (...) {
          created->Release();
          throw;
        }
      }
    }
    *instance = created->QueryInstance(cuid);
    if (LMX_FAILED_ON(*instance)) {
      created->Release();
      return LMX_STATUS_PARAM_UNSUPPORTED;
    }
    return LMX_STATUS_NO_ERROR;  // the creation reference is the caller's
  }
  LMX_EDGE_CATCH

  Status QueryInternalBuffer(int32_t id, uint8_t** buffer, int32_t* size) override {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    LMX_CHECK(buffer, LMX_STATUS_HANDLE_INVALID);
    LMX_CHECK(size, LMX_STATUS_HANDLE_INVALID);
    const MD* md = findBuffer(id);
    LMX_CHECK(md, LMX_STATUS_ITEM_UNAVAILABLE);
    *buffer = md->ptr;
    *size = static_cast<int32_t>(md->size);
    return LMX_STATUS_NO_ERROR;
  }

  Status SetSession(Norvik::Lumetra::Session* newSession) override {
    std::lock_guard guard(lock);
    session = newSession;
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }

 protected:
  LMXMetadataStore() = default;
  ~LMXMetadataStore() {
    for (auto& [id, md] : buffers) delete[] md.ptr;
    buffers.clear();
    for (auto& [id, instance] : instances) instance->Release();
    instances.clear();
  }

 private:
  struct MD {
    uint8_t* ptr = nullptr;
    uint32_t size = 0;
  };

  // Frees id's serialised record, if any (never allocates).
  void DropRecord(int32_t id) {
    if (auto it = buffers.find(id); it != buffers.end()) {
      delete[] it->second.ptr;
      buffers.erase(it);
    }
  }

  // The record with data for id, serialising a live object on first read.
  const MD* findBuffer(int32_t id) {
    std::lock_guard guard(lock);
    if (auto it = buffers.find(id); it != buffers.end() && it->second.size != 0) return &it->second;
    auto held = instances.find(id);
    if (held == instances.end()) return nullptr;
    if (SerializeObject(id, held->second->QueryInstance<LMXSerializableService>()) < 0) return nullptr;
    auto it = buffers.find(id);
    return it != buffers.end() && it->second.size != 0 ? &it->second : nullptr;
  }

  static constexpr int32_t kMaxCandidates = 1024;

  // The session's view of a serialised header: its descriptor (the header keeps
  // the first 608 bytes of one; the rest of the pattern is zero).
  struct DescriptorPattern {
    explicit DescriptorPattern(const ProfileInfo& header) {
      std::memcpy(&implDesc, header.implDesc, sizeof(header.implDesc));
    }
    Norvik::Lumetra::Service::ImplDesc implDesc{};
  };
  static_assert(sizeof(ProfileInfo::implDesc) <= sizeof(Norvik::Lumetra::Service::ImplDesc));

  // Creates, through the session, the first implementation matching the
  // pattern that takes the serialised state `header` (followed by its data).
  // Returns the session's status when it runs out of candidates,
  // LMX_STATUS_INIT_FAILED after kMaxCandidates refusals.
  Status RebuildObject(const DescriptorPattern& pattern, ProfileInfo* header, Base** created) {
    using namespace Norvik::Lumetra;
    const DescriptorPattern* profile = &pattern;
    for (int32_t i = 0; i < kMaxCandidates; ++i) {
      Service::ImplDesc fullDesc{};
      Status sts = LMX_STATUS_NO_ERROR;
      if (LMX_CALL_FAILED(sts, session->QueryImpl(&profile->implDesc, i, &fullDesc))) return sts;
      Base* candidate = nullptr;
      if (session->CreateImpl(&fullDesc, LMXSerializableService::kIid, &candidate) >= 0 && candidate) {
        auto* serializable = candidate->QueryInstance<LMXSerializableService>();
        if (serializable &&
            serializable->SetProfile(header, reinterpret_cast<uint8_t*>(header) + sizeof(*header)) >= 0) {
          *created = candidate;
          return LMX_STATUS_NO_ERROR;
        }
      }
      if (candidate) candidate->Release();
    }
    return LMX_STATUS_INIT_FAILED;
  }

  Status SerializeObject(int32_t id, LMXSerializableService* serializable) {
    using namespace Norvik::Lumetra;
    std::lock_guard guard(lock);
    LMX_CHECK(serializable, LMX_STATUS_HANDLE_INVALID);
    ProfileInfo profile{};
    LMX_CHECK_CALL(serializable->QueryProfile(&profile, 0));
    LMX_CHECK(profile.dataSize >= 0, LMX_STATUS_HANDLE_INVALID);
    // The record's size is a 32-bit count: header and data must fit it.
    const Checked total = CheckedAdd(sizeof(profile), profile.dataSize);
    LMX_CHECK(IsSize32(total), LMX_STATUS_HANDLE_INVALID);
    std::unique_ptr<uint8_t[]> new_buffer(new (std::nothrow) uint8_t[static_cast<size_t>(*total)]);
    if (!new_buffer) return LMX_STATUS_ALLOC_FAILED;
    std::memcpy(new_buffer.get(), &profile, sizeof(profile));
    Status sts = LMX_STATUS_NO_ERROR;
    if (LMX_CALL_FAILED(sts, serializable->QueryProfile(&profile, new_buffer.get() + sizeof(profile)))) return sts;
    MD& md = buffers[id];
    delete[] md.ptr;
    md = {new_buffer.release(), static_cast<uint32_t>(*total)};
    return LMX_STATUS_NO_ERROR;
  }

  std::map<int32_t, MD> buffers;
  std::map<int32_t, Base*> instances;
  std::recursive_mutex lock;
  Norvik::Lumetra::Session* session = nullptr;
};

// The standalone metadata object: answers 0 and both Metadata identifiers with the
// Metadata face and 0x85F36A2D with the internal face; one Release ends it.
class LMXMetadataImpl final
    : public LMXMetadataStore<Norvik::Lumetra::BaseImpl2<Norvik::Lumetra::Metadata, LMXMetadataInternal>> {
 public:
  explicit LMXMetadataImpl(Norvik::Lumetra::Session* session) { SetSession(session); }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

namespace lmx {

// Creates a standalone metadata store for a session (which may be null).
Norvik::Lumetra::Status CreateMetadata(Norvik::Lumetra::Session* session, Norvik::Lumetra::Metadata** result);

}  // namespace lmx
