// Fuzz target: a metadata store driven by arbitrary operations on a few identifiers:
// buffers attached and read with any sizes, reserved identifiers, zero-copy reads,
// serialisable objects attached and rebuilt through a test session. A shadow model
// of the plain buffers checks the reads; every object's count ends at its creator's.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "core_metadata.h"
#include "host_session.h"
#include "metadata_fakes.h"
#include "fuzz_support.h"

using namespace Norvik::Lumetra;

using lmxtest::FakeSerializable;
constexpr uint32_t kCode = 0x5A5A4C54;  // what the session offers

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider input(bytes, size);
  // Objects live until the end of the run, after the store, so that the store's
  // last releases reach live objects; they count what they received.
  std::vector<std::unique_ptr<FakeSerializable>> objects;
  lmxhost::HostSession session;
  Service::ImplDesc desc{};
  desc.code = kCode;
  session.AddImpl(desc, [&] {
    objects.push_back(std::make_unique<FakeSerializable>(objects.size() % 2 == 0, std::vector<uint8_t>{}, 0, kCode));
    objects.back()->rebuilt = true;
    return static_cast<Base*>(static_cast<LMXSerializableService*>(objects.back().get()));
  });

  Metadata* store = nullptr;
  Check(lmx::CreateMetadata(input.ConsumeBool() ? &session : nullptr, &store) == LMX_STATUS_NO_ERROR);
  auto* internal = static_cast<LMXMetadataInternal*>(store->QueryInstance(LMXMetadataInternal::kIid));
  Check(internal != nullptr);

  // Plain buffers known to be in the store (object records are not modelled).
  std::map<int32_t, std::vector<uint8_t>> shadow;
  std::map<int32_t, bool> hasObject;
  static constexpr int32_t kIds[] = {0, 1, -1, 0x81001, 0x81002, 0x24740F78, 0x7FFFFFFF};

  for (int step = 0; step < 64 && input.remaining_bytes() > 0; ++step) {
    const int32_t id =
        input.ConsumeIntegralInRange(0, 7) == 0 ? input.ConsumeIntegral<int32_t>() : input.PickValueInArray(kIds);
    const bool modelled = !hasObject[id];
    const int op = input.ConsumeIntegralInRange(0, 9);
    if (op == 0) {  // attach a copy of some bytes, with a size that may not match
      std::vector<uint8_t> value = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 300));
      int32_t claimed = static_cast<int32_t>(value.size());
      if (input.ConsumeIntegralInRange(0, 3) == 0) claimed = -input.ConsumeIntegralInRange(0, 1000);
      if (value.empty()) value.push_back(0);  // a readable pointer even for size 0
      const bool had = store->QueryBufferSize(id) > 0;
      const Status sts = store->AttachBuffer(id, input.ConsumeIntegralInRange(0, 15) ? value.data() : nullptr, claimed);
      if (sts >= 0) {
        Check(!had && claimed > 0);
        if (modelled) shadow[id].assign(value.begin(), value.begin() + claimed);
      }
    } else if (op == 1) {  // read back into a buffer that may be too small
      const int32_t stored = store->QueryBufferSize(id);
      Check(stored >= 0);
      if (modelled) Check(stored == (shadow.count(id) ? static_cast<int32_t>(shadow[id].size()) : 0));
      int32_t room = stored + input.ConsumeIntegralInRange(-2, 2);
      if (input.ConsumeIntegralInRange(0, 7) == 0) room = input.ConsumeIntegral<int32_t>();
      // The store may write at most min(room, stored) bytes; the block has exactly that.
      const int32_t capacity = room < 0 ? 0 : (room < stored ? room : stored);
      std::vector<uint8_t> out(static_cast<size_t>(capacity) + 1);
      if (store->QueryBuffer(id, out.data(), room) >= 0) {
        Check(room >= stored);
        if (modelled && shadow.count(id)) Check(std::memcmp(out.data(), shadow[id].data(), shadow[id].size()) == 0);
      }
    } else if (op == 2) {  // zero-copy read
      uint8_t* buffer = nullptr;
      int32_t length = -1;
      if (internal->QueryInternalBuffer(id, &buffer, &length) >= 0) {
        Check(buffer != nullptr && length > 0);
        Check(!modelled || (shadow.count(id) && std::memcmp(buffer, shadow[id].data(), length) == 0));
      }
    } else if (op == 3) {  // reserve an identifier
      const int32_t uid = store->QueryUID();
      Check(uid >= 0x81001 && uid < 0xFFFFF && !shadow.count(uid));
    } else if (op == 4) {
      store->DetachMetadata(id);
      shadow.erase(id);
      hasObject.erase(id);
    } else if (op == 5) {  // attach a serialisable object, counted or not
      auto payload = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 64));
      const auto size = static_cast<int32_t>(payload.size());
      objects.push_back(std::make_unique<FakeSerializable>(input.ConsumeBool(), std::move(payload), size, kCode));
      shadow.erase(id);  // the plain record goes even when the attachment fails
      if (store->AttachSerializable(id, static_cast<LMXSerializableService*>(objects.back().get())) >= 0)
        hasObject[id] = true;
    } else if (op == 6) {  // rebuild (or hand out) an object
      void* face = nullptr;
      const InterfaceId cuid =
          input.ConsumeBool() ? LMXSerializableService::kIid : input.ConsumeIntegral<InterfaceId>();
      if (store->CreateSerializable(id, cuid, &face) >= 0) {
        Check(face != nullptr);
        static_cast<Base*>(face)->Release();  // the caller's reference
      }
    } else if (op == 7) {  // enumerate
      store->QueryMetadata(input.ConsumeIntegralInRange(-2, 10));
    } else if (op == 8) {  // session on and off
      internal->SetSession(input.ConsumeBool() ? &session : nullptr);
    } else {  // a serialised header attached as plain bytes, with any data size
      const std::vector<uint8_t> data(input.ConsumeIntegralInRange(0, 16));
      auto header =
          lmxtest::SerialisedState(reinterpret_cast<const char*>(&kCode), data, input.ConsumeIntegralInRange(-4, 32));
      store->DetachMetadata(id);
      hasObject.erase(id);
      if (store->AttachBuffer(id, header.data(), static_cast<int32_t>(header.size())) >= 0) shadow[id] = header;
    }
  }

  store->Release();
  // Every hold the store took has gone back; what is left is each creator's one
  // (objects rebuilt through the session had theirs given to the caller above).
  for (const auto& object : objects) Check(object->refs == (object->rebuilt ? 0 : 1));
  return 0;
}
