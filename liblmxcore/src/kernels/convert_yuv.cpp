// Plane drivers between YUY2, NV12 and colour.
#include <algorithm>

#include "kernels/dispatch.h"
#include "kernels/pixel_kernels.h"
#include "kernels/plane_loop.h"

namespace lmx {

using namespace detail;

namespace {

Status YUY2ToFourChannel(RowAlphaFn row, const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                         int32_t width, int32_t height, uint8_t alpha) {
  if (!src || !dst) return kKernelNullPointer;
  if (width < 1 || height < 1 || width < 2) return kKernelBadSize;
  if (static_cast<int64_t>(width) * 4 > std::numeric_limits<int>::max()) return kKernelBadSize;
  ForEachRow(6, src, src_step, dst, dst_step, width, height, row, alpha);
  return LMX_STATUS_NO_ERROR;
}

Status YUY2ToThreeChannel(RowFn row, const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch,
                          int32_t width, int32_t height) {
  if (Status sts = CheckPlane(src, dst, width, height, 3); sts != LMX_STATUS_NO_ERROR) return sts;
  if (width < 2) return LMX_STATUS_PARAM_UNSUPPORTED;
  ForEachRow(5, src, src_pitch, dst, dst_pitch, width, height, row);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

Status YUY2ToBGRA(const uint8_t* src_yuy2, int32_t src_step, uint8_t* dst_bgra, int32_t dst_step, int32_t width,
                  int32_t height, uint8_t alpha) {
  return YUY2ToFourChannel(ActiveRowKernels().yuy2_to_bgra, src_yuy2, src_step, dst_bgra, dst_step, width, height,
                           alpha);
}

Status YUY2ToRGBA(const uint8_t* src_yuy2, int32_t src_step, uint8_t* dst_rgba, int32_t dst_step, int32_t width,
                  int32_t height, uint8_t alpha) {
  return YUY2ToFourChannel(ActiveRowKernels().yuy2_to_rgba, src_yuy2, src_step, dst_rgba, dst_step, width, height,
                           alpha);
}

Status YUY2ToBGR(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_bgr, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return YUY2ToThreeChannel(ActiveRowKernels().yuy2_to_bgr, src_yuy2, src_pitch, dst_bgr, dst_pitch, width, height);
}

Status YUY2ToRGB(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_rgb, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return YUY2ToThreeChannel(ActiveRowKernels().yuy2_to_rgb, src_yuy2, src_pitch, dst_rgb, dst_pitch, width, height);
}

Status YUY2ToY8(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_y, int32_t dst_pitch, int32_t width,
                int32_t height) {
  return RunRows(src_yuy2, src_pitch, dst_y, dst_pitch, width, height, 2, ActiveRowKernels().yuy2_to_y8);
}

Status YUY2ToNV12(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_y, int32_t dst_y_pitch, uint8_t* dst_uv,
                  int32_t dst_uv_pitch, int32_t width, int32_t height) {
  if (Status sts = CheckPlane(src_yuy2, dst_y, width, height, 2); sts != LMX_STATUS_NO_ERROR) return sts;
  if (height >= 2 && !dst_uv) return LMX_STATUS_HANDLE_INVALID;
  const RowKernels& k = ActiveRowKernels();
  // Luma and chroma of each row pair together, while the pair is still cached:
  // a second pass over a whole frame would read it from memory again. Bands
  // hold whole pairs.
  RunBands(height, 2, PlaneWork(width, height, 3), [&](int32_t begin, int32_t end) {
    for (int32_t j = begin / 2; j < end / 2; ++j) {
      const uint8_t* row0 = Row(src_yuy2, src_pitch, 2 * j);
      const uint8_t* row1 = Row(src_yuy2, src_pitch, 2 * j + 1);
      k.yuy2_to_y8(row0, Row(dst_y, dst_y_pitch, 2 * j), width);
      k.yuy2_to_y8(row1, Row(dst_y, dst_y_pitch, 2 * j + 1), width);
      k.yuy2_to_uv(row0, row1, Row(dst_uv, dst_uv_pitch, j), width);
    }
    if (end & 1) k.yuy2_to_y8(Row(src_yuy2, src_pitch, end - 1), Row(dst_y, dst_y_pitch, end - 1), width);
  });
  return LMX_STATUS_NO_ERROR;
}

namespace {

// Row r of NV12ToYUY2: `uv` is the chroma row it takes, null for a one-row image.
void NV12RowToYUY2(TwoRowsFn row, const uint8_t* y, const uint8_t* uv, uint8_t* out, int32_t width) {
  if (uv) return row(y, uv, out, width);
  // A one-row image has no chroma plane rows at all: neutral chroma.
  for (int32_t i = 0; i < width / 2; ++i) {
    out[4 * i] = y[2 * i];
    out[4 * i + 1] = 128;
    out[4 * i + 2] = y[2 * i + 1];
    out[4 * i + 3] = 128;
  }
}

// The chroma row of luma row r: an odd last row has no chroma row of its own
// and takes the last one.
const uint8_t* ChromaRow(const uint8_t* src_uv, int32_t src_uv_pitch, int32_t height, int32_t r) {
  const int32_t chroma_rows = height / 2;
  return chroma_rows > 0 ? Row(src_uv, src_uv_pitch, std::min(r / 2, chroma_rows - 1)) : nullptr;
}

}  // namespace

Status NV12ToYUY2(const uint8_t* src_y, int32_t src_y_pitch, const uint8_t* src_uv, int32_t src_uv_pitch,
                  uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width, int32_t height) {
  if (height < 1 || width < 2) return LMX_STATUS_NO_ERROR;
  if (!src_y || !dst_yuy2 || (height >= 2 && !src_uv)) return LMX_STATUS_HANDLE_INVALID;
  if (static_cast<int64_t>(width) * 2 > std::numeric_limits<int>::max()) return LMX_STATUS_PARAM_UNSUPPORTED;
  const TwoRowsFn row = ActiveRowKernels().nv12_to_yuy2;
  RunBands(height, 2, PlaneWork(width, height, 4), [&](int32_t begin, int32_t end) {
    for (int32_t r = begin; r < end; ++r)
      NV12RowToYUY2(row, Row(src_y, src_y_pitch, r), ChromaRow(src_uv, src_uv_pitch, height, r),
                    Row(dst_yuy2, dst_pitch, r), width);
  });
  return LMX_STATUS_NO_ERROR;
}

Status NV12ToYUY2ToColour(const uint8_t* src_y, int32_t src_y_pitch, const uint8_t* src_uv, int32_t src_uv_pitch,
                          uint8_t* dst_yuy2, int32_t dst_yuy2_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                          int32_t height, int32_t order) {
  if (!src_y || !dst_yuy2 || !dst || (height >= 2 && !src_uv)) return LMX_STATUS_HANDLE_INVALID;
  if (width < 2 || height < 1 || order < kColourBGRA || order > kColourRGB) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (static_cast<int64_t>(width) * 4 > std::numeric_limits<int>::max()) return LMX_STATUS_PARAM_UNSUPPORTED;
  const RowKernels& k = ActiveRowKernels();
  const RowAlphaFn four[] = {k.yuy2_to_bgra, k.yuy2_to_rgba};
  const RowFn three[] = {k.yuy2_to_bgr, k.yuy2_to_rgb};
  // Each YUY2 row is turned into colour right after it is written, while it is
  // still in the first-level cache: the second step never reads memory.
  RunBands(height, 2, PlaneWork(width, height, 8), [&](int32_t begin, int32_t end) {
    for (int32_t r = begin; r < end; ++r) {
      uint8_t* yuy2 = Row(dst_yuy2, dst_yuy2_pitch, r);
      NV12RowToYUY2(k.nv12_to_yuy2, Row(src_y, src_y_pitch, r), ChromaRow(src_uv, src_uv_pitch, height, r), yuy2,
                    width);
      if (order <= kColourRGBA) {
        four[order](yuy2, Row(dst, dst_pitch, r), width, 255);
      } else {
        three[order - kColourBGR](yuy2, Row(dst, dst_pitch, r), width);
      }
    }
  });
  return LMX_STATUS_NO_ERROR;
}

Status BGRAToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                  int32_t height) {
  return RunRows(src, src_pitch, dst_yuy2, dst_pitch, width, height, 4, ActiveRowKernels().bgra_to_yuy2);
}

Status RGBAToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                  int32_t height) {
  return RunRows(src, src_pitch, dst_yuy2, dst_pitch, width, height, 4, ActiveRowKernels().rgba_to_yuy2);
}

Status BGRToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst_yuy2, dst_pitch, width, height, 3, ActiveRowKernels().bgr_to_yuy2);
}

Status RGBToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst_yuy2, dst_pitch, width, height, 3, ActiveRowKernels().rgb_to_yuy2);
}

}  // namespace lmx
