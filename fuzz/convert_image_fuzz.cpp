// Fuzz target: ConvertImageBuffer, the routing between two buffers of one image.
// Descriptions are arbitrary (any format key, rotation bits included); sizes up
// to 64x64 get planes allocated exactly to the plane layout of their key (pitch
// = row bytes plus a little padding, sometimes negative), each plane its own
// block, so any byte read or written outside a plane is caught by
// AddressSanitizer. Negative sizes and sizes whose planes cannot exist (over 2 GiB)
// get tiny blocks and must be refused without a touch.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "coreaccel_baseimage_route.h"
#include "kernels/pixel_format_table.h"
#include "fuzz_support.h"

using namespace Norvik::Lumetra;
using lmx::ComputePlaneLayout;

namespace {

using lmxfuzz::ConsumeFormatKey;

// A plane set owning one exact block per plane.
struct Buffer {
  Image::ImageData data{};
  std::vector<std::unique_ptr<uint8_t[]>> blocks;
};

void Allocate(FuzzedDataProvider& input, const Image::ImageInfo& info, bool valid, Buffer* buffer) {
  buffer->data.format = info.format;
  LMXImageService::PlaneInfo layout;
  const int planes = ComputePlaneLayout(info.width, info.height, info.format, &layout);
  for (int c = 0; c < planes; ++c) {
    const auto& plane = layout.plane[c];
    if (!valid) {
      // Sizes no plane can have: a token block and a pitch as the caller might compute it.
      buffer->blocks.emplace_back(new uint8_t[16]);
      buffer->data.planes[c] = buffer->blocks.back().get();
      buffer->data.pitches[c] = static_cast<int32_t>(plane.width * plane.bytesPerPixel);
      continue;
    }
    const int64_t row = static_cast<int64_t>(plane.width) * plane.bytesPerPixel;
    const int64_t pitch = row + input.ConsumeIntegralInRange<int64_t>(0, 7);
    const int64_t size = plane.height == 0 ? 0 : pitch * (plane.height - 1) + row;
    auto block = std::make_unique<uint8_t[]>(static_cast<size_t>(size));
    for (int64_t i = 0; i < size; ++i) block[i] = static_cast<uint8_t>(i * 131 + c);
    const bool upward = input.ConsumeBool() && plane.height > 0;
    buffer->data.planes[c] = block.get() + (upward ? pitch * (plane.height - 1) : 0);
    buffer->data.pitches[c] = static_cast<int32_t>(upward ? -pitch : pitch);
    buffer->blocks.push_back(std::move(block));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  Image::ImageInfo src_info{0, 0, ConsumeFormatKey(input), 0};
  Image::ImageInfo dst_info{0, 0, ConsumeFormatKey(input), 0};

  // Mostly small sizes; sometimes negative, or too large for any plane.
  static constexpr int32_t kHuge[] = {65536, 1 << 20, 1 << 30, std::numeric_limits<int32_t>::max()};
  bool valid = true;
  switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
      src_info.width = input.ConsumeIntegralInRange<int32_t>(std::numeric_limits<int32_t>::min(), 64);
      src_info.height = input.ConsumeIntegralInRange<int32_t>(std::numeric_limits<int32_t>::min(), -1);
      valid = false;
      break;
    case 1:
      src_info.width = input.ConsumeIntegralInRange<int32_t>(std::numeric_limits<int32_t>::min(), -1);
      src_info.height = input.ConsumeIntegralInRange<int32_t>(0, 64);
      valid = false;
      break;
    case 2:
      src_info.width = input.PickValueInArray(kHuge);
      src_info.height = input.PickValueInArray(kHuge);
      valid = false;
      break;
    default:
      src_info.width = input.ConsumeIntegralInRange<int32_t>(0, 64);
      src_info.height = input.ConsumeIntegralInRange<int32_t>(0, 64);
      break;
  }
  dst_info.width = src_info.width;
  dst_info.height = src_info.height;
  if (input.ConsumeIntegralInRange(0, 15) == 0) dst_info.width = input.ConsumeIntegralInRange(-2, 64);

  static constexpr float kScales[] = {1.0f, 0.125f, 4.0f, 0.3f, 0.0f, -1.0f, 1e-30f, 1e-40f, 1e30f};
  const int scaleChoice = input.ConsumeIntegralInRange(0, 11);
  lmx::FixedDepthScale depth =
      scaleChoice >= 11 ? lmx::FixedDepthScale()
      : scaleChoice == 10 ? lmx::FixedDepthScale(std::nanf(""))
      : scaleChoice == 9 ? lmx::FixedDepthScale(std::numeric_limits<float>::infinity())
                          : lmx::FixedDepthScale(kScales[scaleChoice]);

  Buffer src, dst;
  Allocate(input, src_info, valid, &src);
  const bool inPlace = input.ConsumeIntegralInRange(0, 7) == 0 && dst_info.format == src_info.format;
  if (inPlace) {
    dst.data = src.data;
  } else {
    Allocate(input, dst_info, valid && dst_info.width == src_info.width, &dst);
  }

  Image::PixelFormat interm{};
  const Status sts = lmx::ConvertImageBuffer(&src_info, &src.data, &dst_info, &dst.data, depth, &interm);
  // Impossible sizes are refused, unless there is nothing to touch: the same
  // buffer on both sides, or a format without planes (both sides then hold none).
  const bool planeless = ComputePlaneLayout(0, 0, src_info.format, nullptr) == 0;
  if (!valid) Check(sts < 0 || ((inPlace || planeless) && sts == LMX_STATUS_NO_ERROR));
  return 0;
}
