// Fuzz target: image objects as a host drives them. An allocator creates an image
// from an arbitrary description (any format key with rotation bits; sizes small,
// zero, negative or far too large), sometimes on caller planes it adopts; then an
// arbitrary sequence of acquisitions (some held across later operations), exports
// and imports with any mode, copies between two images, mirroring and depth-scale
// metadata, invalidation and plane queries. Every plane handed out is read or
// written in full and caller planes are exactly their layout's size (see
// CallerPlanes); every status is a table value; at the end every access is
// released and the images' counts are back at one (LeakSanitizer sees the rest).
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "core_metadata.h"
#include "coreaccel_baseimage.h"
#include "fuzz_support.h"
#include "lmxallocator.h"
#include "module_factories.h"

using namespace Norvik::Lumetra;

namespace {

using lmxfuzz::ConsumeFormatKey;
using lmxfuzz::CountOf;
using lmxfuzz::Verified;

constexpr int32_t kMaxSide = 96;  // content sizes stay small for speed

// Mostly small; otherwise a description no plane can have (zero, negative or
// 32768 and more on one side or both), which must never reach an allocation.
void ConsumeSize(FuzzedDataProvider& input, int32_t* width, int32_t* height) {
  static constexpr int32_t kExtreme[] = {0, -1, -2, std::numeric_limits<int32_t>::min(), 32768, 65536, 1 << 30,
                                         std::numeric_limits<int32_t>::max()};
  *width = input.ConsumeIntegralInRange(1, kMaxSide);
  *height = input.ConsumeIntegralInRange(1, kMaxSide);
  if (input.ConsumeIntegralInRange(0, 5) != 0) return;
  // One side or both: two extreme sides make products beyond 64 bits.
  const int sides = input.ConsumeIntegralInRange(0, 2);
  for (int32_t* side : {width, height}) {
    if (sides != 2 && (side == width) != (sides == 0)) continue;
    *side = input.ConsumeBool() ? input.PickValueInArray(kExtreme) : input.ConsumeIntegral<int32_t>();
    if (*side > 0 && *side < 32768) *side = -*side;
  }
}

bool Describable(const Image::ImageInfo& info) {
  return info.width > 0 && info.height > 0 && info.width <= kMaxSide && info.height <= kMaxSide;
}

// The plane layout of a key for a width x height image, and its plane count.
int32_t Layout(int32_t width, int32_t height, int32_t key, LMXImageService::PlaneInfo* layout) {
  Image::ImageInfo info{width, height, key, 0};
  return lmx::QueryPlaneInfo(&info, 0, layout);
}

std::unique_ptr<lmxfuzz::CallerPlanes> Caller(FuzzedDataProvider& input, int32_t width, int32_t height, int32_t key,
                                              bool upward) {
  LMXImageService::PlaneInfo layout{};
  const int32_t count = Layout(width, height, key, &layout);
  return std::make_unique<lmxfuzz::CallerPlanes>(input, layout, count, key, upward);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  FuzzedDataProvider input(bytes, size);
  Base* object = nullptr;
  Check(lmx::CreateAllocator(nullptr, nullptr, nullptr, nullptr, 0, &object) == LMX_STATUS_NO_ERROR);
  auto* allocator = static_cast<LMXAllocator*>(object);

  Image::ImageInfo info{0, 0, ConsumeFormatKey(input), input.ConsumeBool() ? 0 : input.ConsumeIntegral<int32_t>()};
  ConsumeSize(input, &info.width, &info.height);
  const int32_t options = input.ConsumeBool() ? 0 : input.ConsumeIntegral<int32_t>();

  // Adopted planes must outlive the image; they are never freed by it.
  std::unique_ptr<lmxfuzz::CallerPlanes> adopted;
  if (Describable(info) && input.ConsumeBool()) {
    adopted = Caller(input, info.width, info.height, info.format, false);
    if (input.ConsumeBool()) adopted->data.format = 0;  // 0 names the description's format
  }
  Image* image = nullptr;
  const Status created = Verified(allocator->CreateImage(&info, options, adopted ? &adopted->data : nullptr, &image));
  Check((created >= 0) == (image != nullptr));
  if (!image) {
    allocator->Release();
    return 0;
  }

  // A second image for copies: same size mostly, another format.
  Image::ImageInfo otherInfo{info.width, info.height, ConsumeFormatKey(input), 0};
  if (input.ConsumeIntegralInRange(0, 7) == 0) ConsumeSize(input, &otherInfo.width, &otherInfo.height);
  Image* other = nullptr;
  if (allocator->CreateImage(&otherInfo, 0, nullptr, &other) < 0) Check(other == nullptr);

  std::vector<std::pair<Image*, std::unique_ptr<Image::ImageData>>> held;
  for (int step = 0; step < 24 && input.remaining_bytes() > 0; ++step) {
    Image* target = (other && input.ConsumeIntegralInRange(0, 3) == 0) ? other : image;
    Image::ImageInfo targetInfo{};
    Check(target->QueryInfo(&targetInfo) >= 0);
    switch (input.ConsumeIntegralInRange(0, 7)) {
      case 0: case 1: {  // acquire, touch, release now or later
        static constexpr int32_t kAccess[] = {Image::ACCESS_READ, Image::ACCESS_WRITE, Image::ACCESS_READ_WRITE};
        const auto access = static_cast<Image::Access>(
            input.ConsumeIntegralInRange(0, 15) == 0 ? input.ConsumeIntegral<int32_t>() : input.PickValueInArray(kAccess));
        const auto format = static_cast<Image::PixelFormat>(input.ConsumeBool() ? 0 : ConsumeFormatKey(input));
        static constexpr int32_t kRotations[] = {0, 0, 90, 180, 270};
        const int32_t rotation = input.ConsumeBool() ? input.PickValueInArray(kRotations) : input.ConsumeIntegral<int32_t>();
        auto data = std::make_unique<Image::ImageData>();
        if (Verified(target->AcquireAccess(access, format, rotation, data.get())) < 0) break;
        LMXImageService::PlaneInfo layout{};
        const int32_t count = Layout(targetInfo.width, targetInfo.height, data->format, &layout);
        lmxfuzz::TouchPlanes(layout, count, *data, access & Image::ACCESS_WRITE);
        // Only reads are held on: anything after a held write would wait out the
        // object's write timeout (seconds) before failing.
        if (!(access & Image::ACCESS_WRITE) && held.size() < 3 && input.ConsumeBool())
          held.emplace_back(target, std::move(data));
        else
          Check(target->ReleaseAccess(data.get()) >= 0);
        break;
      }
      case 2: case 3: {  // export or import through caller planes of any format and mode
        const int32_t key = input.ConsumeBool() ? targetInfo.format : ConsumeFormatKey(input);
        if (!Describable(targetInfo)) break;
        auto caller = Caller(input, targetInfo.width, targetInfo.height, key, true);
        static constexpr int32_t kModes[] = {0, 1, 2, 3, 4, 6, 16, 18, 8};
        const int32_t mode = input.ConsumeBool() ? input.PickValueInArray(kModes) : input.ConsumeIntegral<int32_t>();
        Verified(input.ConsumeBool() ? target->ExportData(&caller->data, mode) : target->ImportData(&caller->data, mode));
        Check(caller->Intact());
        break;
      }
      case 4:  // copy between the two images, either way
        if (other) Verified(input.ConsumeBool() ? image->CopyImage(other) : other->CopyImage(image));
        break;
      case 5: {  // mirroring pairs or a depth scale in the image's own store
        auto* metadata = static_cast<Metadata*>(target->QueryInstance(Metadata::kIid));
        Check(metadata != nullptr);  // a face, not a new reference
        const int32_t id = input.ConsumeBool() ? lmx::kMetadataMirroring : lmx::kMetadataDepthScale;
        std::vector<uint8_t> value = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 40));
        if (id == lmx::kMetadataMirroring && value.size() >= 8 && input.ConsumeBool())
          value[0] = 304 & 0xFF, value[1] = 304 >> 8, value[2] = value[3] = 0;  // the mirroring property: turns
        metadata->DetachMetadata(id);
        Verified(metadata->AttachBuffer(id, value.data(), static_cast<int32_t>(value.size())));
        break;
      }
      case 6: {  // every held format stale, and the plane query with any description
        auto* service = static_cast<LMXImageService*>(target->QueryInstance(LMXImageService::kIid));
        Check(service != nullptr);
        Verified(service->InvalidateData());
        Image::ImageInfo query{0, 0, ConsumeFormatKey(input), 0};
        ConsumeSize(input, &query.width, &query.height);
        LMXImageService::PlaneInfo planes{};
        const int32_t count = service->QueryPlaneInfo(&query, input.ConsumeIntegral<int32_t>(), &planes);
        Check(count >= 0 && count <= 4);
        break;
      }
      default:  // end a held access early
        if (!held.empty()) {
          Check(held.back().first->ReleaseAccess(held.back().second.get()) >= 0);
          held.pop_back();
        }
        break;
    }
  }

  for (auto it = held.rbegin(); it != held.rend(); ++it) Check(it->first->ReleaseAccess(it->second.get()) >= 0);
  // Every acquisition's reference has gone back with its release.
  for (Image* each : {image, other}) {
    if (!each) continue;
    Check(CountOf(each) == 1);
    each->Release();
  }
  allocator->Release();
  return 0;
}
