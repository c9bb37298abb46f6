// fuzz_support.h: pieces shared by the fuzz targets.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lmxbase.h"
#include "lmximage.h"
#include "lmxutils.h"
#include "support/planes.h"

// A failed invariant: named on standard error, then a crash libFuzzer records.
#define Check(condition) \
  ((condition) ? (void)0 : (std::fprintf(stderr, "invariant failed: %s\n", #condition), std::abort()))

namespace lmxfuzz {

using Norvik::Lumetra::Image;

// clang-format off
inline constexpr int32_t kFormats[] = {
    Image::PIXEL_FORMAT_YUY2, Image::PIXEL_FORMAT_NV12, Image::PIXEL_FORMAT_BGRA, Image::PIXEL_FORMAT_BGR,
    Image::PIXEL_FORMAT_Y8, Image::PIXEL_FORMAT_RGBA, Image::PIXEL_FORMAT_RGB, Image::PIXEL_FORMAT_NV21,
    Image::PIXEL_FORMAT_DEPTH, Image::PIXEL_FORMAT_DEPTH_NATIVE, Image::PIXEL_FORMAT_DEPTH_FLOAT, Image::PIXEL_FORMAT_Y16,
    Image::PIXEL_FORMAT_Y8_RELATIVE, Image::PIXEL_FORMAT_ATTACHED_8BPP, Image::PIXEL_FORMAT_ATTACHED_2BPP,
    Image::PIXEL_FORMAT_DEPTH_CONFIDENCE, Image::PIXEL_FORMAT_ATTACHED_1BPP};
// clang-format on

// A format key: a known format or any value, with no, a quarter-turn or any rotation bits.
inline int32_t ConsumeFormatKey(FuzzedDataProvider& input) {
  using Norvik::Lumetra::kPixelFormatMask, Norvik::Lumetra::kRotationMask, Norvik::Lumetra::kRotationShift;
  int32_t key = input.ConsumeBool() ? input.PickValueInArray(kFormats) : input.ConsumeIntegral<int32_t>();
  const int turn = input.ConsumeIntegralInRange(0, 5);  // 0, 1: as it is; 2..4: quarter turns; 5: any bits
  if (turn < 2) return key;
  return (key & kPixelFormatMask) |
         (turn < 5 ? 90 * (turn - 1) << kRotationShift : input.ConsumeIntegral<int32_t>() & kRotationMask);
}

// A status the library returned, checked to be one of the status table's values.
inline Norvik::Lumetra::Status Verified(Norvik::Lumetra::Status sts) {
  using Norvik::Lumetra::GetStatusText, Norvik::Lumetra::kUnknownStatusText;
  Check(GetStatusText(sts) != reinterpret_cast<const char*>(kUnknownStatusText));
  return sts;
}

// An object's reference count, read through its Reference face.
inline uint32_t CountOf(Norvik::Lumetra::Base* object) {
  auto* reference = static_cast<Norvik::Lumetra::Reference*>(object->QueryInstance(Norvik::Lumetra::Reference::kIid));
  Check(reference != nullptr);
  const uint32_t count = reference->AddRef() - 1;
  object->Release();
  return count;
}

// Caller planes of a format key as its plane layout describes them. Each plane is
// its own block of exactly pitch * (rows - 1) + row bytes, so AddressSanitizer sees
// any byte beyond it; the padding between rows holds a guard value Intact() checks.
// Pitches may point upwards. Without any plane, plane 0 is one guard byte that
// nothing may walk.
class CallerPlanes {
 public:
  CallerPlanes(FuzzedDataProvider& input, const LMXImageService::PlaneInfo& layout, int32_t count, int32_t key,
               bool upward) {
    data.format = key;
    for (int32_t c = 0; c < count; ++c) {
      // Sides are bounded by the targets (under 32768), so a row fits an int.
      const int row = static_cast<int>(layout.plane[c].width * layout.plane[c].bytesPerPixel);
      const int rows = static_cast<int>(layout.plane[c].height);
      if (row == 0 || rows == 0) continue;
      lmxtest::GuardedPlane& plane =
          planes_.emplace_back(row, rows, input.ConsumeIntegralInRange(0, 7), kGuard, /*lead=*/0, /*tail=*/0);
      for (int y = 0; y < rows; ++y)
        for (int x = 0; x < row; ++x) plane.at(y, x) = static_cast<uint8_t>(x * 37 + y + c);
      const bool up = upward && input.ConsumeBool();
      data.planes[c] = up ? plane.last_row() : plane.data();
      data.pitches[c] = up ? -plane.pitch() : plane.pitch();
    }
    if (planes_.empty()) {
      planes_.emplace_back(0, 0, /*padding=*/1, kGuard, /*lead=*/0, /*tail=*/0);
      data.planes[0] = planes_[0].data(), data.pitches[0] = 1;
    }
  }
  bool Intact() const {
    return std::ranges::all_of(planes_, [](const auto& plane) { return plane.Intact(); });
  }
  Image::ImageData data{};

 private:
  static constexpr uint8_t kGuard = 0xA5;
  std::vector<lmxtest::GuardedPlane> planes_;
};

// Reads (and for a write, fills) every byte of the planes an acquisition handed
// out, as the plane layout of its key describes them: a plane shorter than its
// layout is caught by AddressSanitizer.
inline void TouchPlanes(const LMXImageService::PlaneInfo& layout, int32_t count, const Image::ImageData& data,
                        bool writing) {
  volatile uint8_t sink = 0;
  for (int32_t c = 0; c < count; ++c) {
    if (!data.planes[c]) continue;
    const size_t row = static_cast<size_t>(layout.plane[c].width) * layout.plane[c].bytesPerPixel;
    for (uint32_t y = 0; y < layout.plane[c].height; ++y) {
      uint8_t* line = data.planes[c] + static_cast<ptrdiff_t>(y) * data.pitches[c];
      if (writing) std::memset(line, static_cast<int>(y + c), row);
      for (size_t x = 0; x < row; ++x) sink = sink + line[x];
    }
  }
}

}  // namespace lmxfuzz
