// Plane drivers of 8- and 16-bit grey and of depth.
#include "kernels/dispatch.h"
#include "kernels/pixel_kernels.h"
#include "kernels/plane_loop.h"

namespace lmx {

using namespace detail;

Status Y8ToNV12(const uint8_t* src, int32_t src_pitch, uint8_t* dst_y, int32_t dst_y_pitch, uint8_t* dst_uv,
                int32_t dst_uv_pitch, int32_t width, int32_t height) {
  if (Status sts = CheckPlane(src, dst_y, width, height, 1); sts != LMX_STATUS_NO_ERROR) return sts;
  if (height >= 2 && !dst_uv) return LMX_STATUS_HANDLE_INVALID;
  const RowKernels& k = ActiveRowKernels();
  RunBands(height, 2, PlaneWork(width, height, 3), [&](int32_t begin, int32_t end) {
    for (int32_t r = begin; r < end; ++r) k.copy(Row(src, src_pitch, r), Row(dst_y, dst_y_pitch, r), width);
    for (int32_t j = begin / 2; j < end / 2; ++j) k.set(Row(dst_uv, dst_uv_pitch, j), 128, width);
  });
  return LMX_STATUS_NO_ERROR;
}

Status Y8ToY16(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 2, ActiveRowKernels().y8_to_y16);
}

Status Y16ToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 2, ActiveRowKernels().y16_to_y8);
}

Status Y16ToBGRA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().y16_to_bgra);
}

Status DepthShift(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height,
                  int32_t shift) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 2, ActiveRowKernels().depth_shift, shift);
}

Status DepthToFloat(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                    int32_t height, float scale) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().depth_to_float, scale);
}

Status FloatToDepth(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                    int32_t height, float factor) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().float_to_depth, factor);
}

}  // namespace lmx
