// Plane drivers of the channel reorders and of grey from and to colour.
#include "kernels/dispatch.h"
#include "kernels/pixel_kernels.h"
#include "kernels/plane_loop.h"

namespace lmx {

using namespace detail;

Status BGRAToRGBA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                  int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().swap_rb4);
}

Status BGRToRGB(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 3, ActiveRowKernels().swap_rb3);
}

Status BGRAToBGR(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().drop_alpha);
}

Status BGRAToRGB(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().drop_alpha_swap);
}

Status BGRToBGRA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().add_alpha);
}

Status BGRToRGBA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().add_alpha_swap);
}

Status ReorderChannels(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                       int32_t height, int32_t channels) {
  if (channels == 3) return BGRToRGB(src, src_pitch, dst, dst_pitch, width, height);
  if (channels == 4) return BGRAToRGBA(src, src_pitch, dst, dst_pitch, width, height);
  return LMX_STATUS_PARAM_UNSUPPORTED;
}

Status BGRAToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().bgra_to_y8);
}

Status RGBAToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 4, ActiveRowKernels().rgba_to_y8);
}

Status BGRToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 3, ActiveRowKernels().bgr_to_y8);
}

Status RGBToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 3, ActiveRowKernels().rgb_to_y8);
}

Status Y8ToBGR(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 3, ActiveRowKernels().y8_to_bgr);
}

}  // namespace lmx
