// Fuzz target: ConvertImageBuffer, the routing between two buffers of one image,
// with any format keys. Sizes up to 64x64 get guarded caller planes exactly of
// their key's layout; negative sizes and sizes whose planes cannot exist (over
// 2 GiB) get tiny blocks and must be refused without a touch.
#include <fuzzer/FuzzedDataProvider.h>

#include <iterator>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include "image/coreaccel_baseimage_route.h"
#include "image/pixel_format_table.h"
#include "fuzz_support.h"

using namespace Norvik::Lumetra;
using lmx::ComputePlaneLayout;

namespace {

using lmxfuzz::ConsumeFormatKey;

// The planes of one side: guarded caller planes for sizes a plane can have; for
// sizes none can, a token block per plane and a pitch as a caller might compute
// it, which must be refused untouched.
struct Buffer {
  Buffer(FuzzedDataProvider& input, const Image::ImageInfo& info, bool valid) {
    LMXImageService::PlaneInfo layout{};
    const int count = ComputePlaneLayout(info.width, info.height, info.format, &layout);
    if (valid) {
      exact = std::make_unique<lmxfuzz::CallerPlanes>(input, layout, count, info.format, true);
      data = exact->data;
      return;
    }
    data.format = info.format;
    for (int c = 0; c < count; ++c) {
      data.planes[c] = token[c];
      data.pitches[c] = static_cast<int32_t>(layout.plane[c].width * layout.plane[c].bytesPerPixel);
    }
  }
  Image::ImageData data{};
  std::unique_ptr<lmxfuzz::CallerPlanes> exact;
  uint8_t token[4][16] = {};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  Image::ImageInfo src_info{0, 0, ConsumeFormatKey(input), 0};
  Image::ImageInfo dst_info{0, 0, ConsumeFormatKey(input), 0};

  // Mostly small sizes; sometimes negative, or too large for any plane.
  static constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
  static constexpr int32_t kHuge[] = {65536, 1 << 20, 1 << 30, std::numeric_limits<int32_t>::max()};
  // Width and height ranges of the negative choices (0, 1) and of the small ones.
  static constexpr int32_t kRanges[][4] = {{kMin, 64, kMin, -1}, {kMin, -1, 0, 64}, {0, 64, 0, 64}};
  auto in = [&](int32_t lo, int32_t hi) { return input.ConsumeIntegralInRange(lo, hi); };
  int32_t& width = src_info.width;
  int32_t& height = src_info.height;
  const int sizes = in(0, 7);
  const bool valid = sizes > 2;
  const int32_t* range = kRanges[valid ? 2 : sizes % 2];
  width = sizes == 2 ? input.PickValueInArray(kHuge) : in(range[0], range[1]);
  height = sizes == 2 ? input.PickValueInArray(kHuge) : in(range[2], range[3]);
  dst_info.width = width, dst_info.height = height;
  if (input.ConsumeIntegralInRange(0, 15) == 0) dst_info.width = input.ConsumeIntegralInRange(-2, 64);

  // A depth scale of any kind, or none.
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN(), kInf = std::numeric_limits<float>::infinity();
  static constexpr float kScales[] = {1.0f, 0.125f, 4.0f, 0.3f, 0.0f, -1.0f, 1e-30f, 1e-40f, 1e30f, kNaN, kInf};
  const size_t scaleChoice = input.ConsumeIntegralInRange<size_t>(0, std::size(kScales));
  lmx::FixedDepthScale depth =
      scaleChoice < std::size(kScales) ? lmx::FixedDepthScale(kScales[scaleChoice]) : lmx::FixedDepthScale();

  Buffer src(input, src_info, valid);
  const bool inPlace = input.ConsumeIntegralInRange(0, 7) == 0 && dst_info.format == src_info.format;
  std::optional<Buffer> dst;
  if (!inPlace) dst.emplace(input, dst_info, valid && dst_info.width == src_info.width);

  Image::PixelFormat interm{};
  const Status sts =
      lmx::ConvertImageBuffer(&src_info, &src.data, &dst_info, inPlace ? &src.data : &dst->data, depth, &interm);
  Check(!dst || !dst->exact || dst->exact->Intact());
  // Impossible sizes are refused, unless there is nothing to touch: the same
  // buffer on both sides, or a format without planes (both sides then hold none).
  const bool planeless = ComputePlaneLayout(0, 0, src_info.format, nullptr) == 0;
  if (!valid) Check(sts < 0 || ((inPlace || planeless) && sts == LMX_STATUS_NO_ERROR));
  return 0;
}
