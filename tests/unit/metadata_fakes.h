// metadata_fakes.h: the serialisable object of the metadata store's unit tests and
// fuzz target: counted (answers Reference) or not, with a payload, the size and
// implementation code it reports, and a record of the calls it received.
#pragma once

#include <cstring>
#include <vector>

#include "core_metadata.h"

namespace lmxtest {

class FakeSerializable final : public LMXSerializableService, public Norvik::Lumetra::Reference {
 public:
  static constexpr Norvik::Lumetra::InterfaceId kIid = 0x11110001;

  // `dataSize` is the size the object reports, whatever its payload.
  FakeSerializable(bool counted, std::vector<uint8_t> payload, int32_t dataSize, uint32_t code = 0)
      : counted_(counted), payload_(std::move(payload)), dataSize_(dataSize), code_(code) {}

  void* QueryInstance(Norvik::Lumetra::InterfaceId iid) override {
    if (iid == 0 || iid == kIid || iid == LMXSerializableService::kIid)
      return static_cast<LMXSerializableService*>(this);
    return counted_ && iid == Reference::kIid ? static_cast<Reference*>(this) : nullptr;
  }
  uint32_t AddRef() override { return ++refs; }
  void Release() override { --refs; }
  Norvik::Lumetra::Status QueryProfile(ProfileInfo* profile, uint8_t* data) override {
    ++queries;
    std::memset(profile, 0, sizeof(*profile));
    std::memcpy(profile->implDesc + offsetof(Norvik::Lumetra::Service::ImplDesc, code), &code_, sizeof(code_));
    profile->dataSize = dataSize_;
    if (data && !payload_.empty()) std::memcpy(data, payload_.data(), payload_.size());
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  Norvik::Lumetra::Status SetProfile(ProfileInfo* profile, uint8_t* data) override {
    if (refuse || profile->dataSize < 0 || profile->dataSize > 4096)
      return Norvik::Lumetra::LMX_STATUS_PARAM_UNSUPPORTED;
    received.assign(data, data + profile->dataSize);
    return Norvik::Lumetra::LMX_STATUS_NO_ERROR;
  }
  void Destroy(uint32_t) override {}

  int refs = 1;  // the creator's
  int queries = 0;
  bool refuse = false;
  bool rebuilt = false;  // made through a session: its creation reference went to a caller
  std::vector<uint8_t> received;

 private:
  bool counted_;
  std::vector<uint8_t> payload_;
  int32_t dataSize_;
  uint32_t code_;
};

// A serialised record as the store keeps it: the profile naming implementation
// `code` and claiming `dataSize` bytes, then `data`.
inline std::vector<uint8_t> SerialisedState(const char* code, const std::vector<uint8_t>& data, int32_t dataSize) {
  using Profile = LMXSerializableService::ProfileInfo;
  std::vector<uint8_t> bytes(sizeof(Profile), 0);
  std::memcpy(bytes.data() + offsetof(Norvik::Lumetra::Service::ImplDesc, code), code, 4);
  std::memcpy(bytes.data() + offsetof(Profile, dataSize), &dataSize, sizeof dataSize);
  bytes.insert(bytes.end(), data.begin(), data.end());
  return bytes;
}

}  // namespace lmxtest
