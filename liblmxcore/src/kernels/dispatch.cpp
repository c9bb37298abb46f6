// The dispatch table of the row functions and its one-time set-up.
#include "kernels/dispatch.h"

#include "cpu/cpu_features.h"
#include "kernels/row.h"
#include "kernels/row_simd.h"

namespace lmx {
namespace {

// NV12ToYUY2Row_C has the two-input shape of TwoRowsFn with the luma row first.
void NV12ToYUY2Rows(const uint8_t* y, const uint8_t* uv, uint8_t* dst, int width) {
  NV12ToYUY2Row_C(y, uv, dst, width);
}

ActiveKernelTable<RowKernels, SelectRowKernels> g_active;

}  // namespace

RowKernels SelectRowKernels(uint32_t cpu_features) {
  RowKernels k{};
  k.yuy2_to_bgra = YUY2ToBGRARow_C;
  k.yuy2_to_rgba = YUY2ToRGBARow_C;
  k.yuy2_to_bgr = YUY2ToBGRRow_C;
  k.yuy2_to_rgb = YUY2ToRGBRow_C;
  k.yuy2_to_y8 = YUY2ToY8Row_C;
  k.yuy2_to_uv = YUY2ToUVRow_C;
  k.nv12_to_yuy2 = NV12ToYUY2Rows;
  k.bgra_to_yuy2 = BGRAToYUY2Row_C;
  k.rgba_to_yuy2 = RGBAToYUY2Row_C;
  k.bgr_to_yuy2 = BGRToYUY2Row_C;
  k.rgb_to_yuy2 = RGBToYUY2Row_C;
  k.swap_rb4 = BGRAToRGBARow_C;
  k.swap_rb3 = BGRToRGBRow_C;
  k.drop_alpha = BGRAToBGRRow_C;
  k.drop_alpha_swap = BGRAToRGBRow_C;
  k.add_alpha = BGRToBGRARow_C;
  k.add_alpha_swap = BGRToRGBARow_C;
  k.bgra_to_y8 = BGRAToY8Row_C;
  k.rgba_to_y8 = RGBAToY8Row_C;
  k.bgr_to_y8 = BGRToY8Row_C;
  k.rgb_to_y8 = RGBToY8Row_C;
  k.y8_to_bgr = Y8ToBGRRow_C;
  k.y8_to_y16 = Y8ToY16Row_C;
  k.y16_to_y8 = Y16ToY8Row_C;
  k.y16_to_bgra = Y16ToBGRARow_C;
  k.depth_shift = DepthShiftRow_C;
  k.depth_to_float = DepthToFloatRow_C;
  k.float_to_depth = FloatToDepthRow_C;
  k.copy = CopyRow_C;
  k.set = SetRow_C;
  k.mirror1 = MirrorRow_C;
  k.mirror2 = MirrorRow2_C;
  k.mirror3 = MirrorRow3_C;
  k.mirror4 = MirrorRow4_C;
  k.mirror8 = MirrorRow8_C;
  k.mirror_yuy2 = MirrorYUY2Row_C;
  k.rotate90 = RotatePlane90_C;
  k.rotate270 = RotatePlane270_C;
  // SIMD variants replace the scalar rows in order of capability; the last match
  // wins, and a set whose bit is masked off is skipped.
  if (cpu_features & kCpuHasSSSE3) {
    k.yuy2_to_bgra = YUY2ToBGRARow_Any_SSSE3;
    k.yuy2_to_rgba = YUY2ToRGBARow_Any_SSSE3;
    k.yuy2_to_bgr = YUY2ToBGRRow_Any_SSSE3;
    k.yuy2_to_rgb = YUY2ToRGBRow_Any_SSSE3;
    k.yuy2_to_y8 = YUY2ToY8Row_Any_SSSE3;
    k.yuy2_to_uv = YUY2ToUVRow_Any_SSSE3;
    k.nv12_to_yuy2 = NV12ToYUY2Row_Any_SSSE3;
    k.bgra_to_yuy2 = BGRAToYUY2Row_Any_SSSE3;
    k.rgba_to_yuy2 = RGBAToYUY2Row_Any_SSSE3;
    k.bgr_to_yuy2 = BGRToYUY2Row_Any_SSSE3;
    k.rgb_to_yuy2 = RGBToYUY2Row_Any_SSSE3;
    k.swap_rb4 = BGRAToRGBARow_Any_SSSE3;
    k.swap_rb3 = BGRToRGBRow_Any_SSSE3;
    k.drop_alpha = BGRAToBGRRow_Any_SSSE3;
    k.drop_alpha_swap = BGRAToRGBRow_Any_SSSE3;
    k.add_alpha = BGRToBGRARow_Any_SSSE3;
    k.add_alpha_swap = BGRToRGBARow_Any_SSSE3;
    k.y8_to_bgr = Y8ToBGRRow_Any_SSSE3;
    k.y8_to_y16 = Y8ToY16Row_Any_SSSE3;
    k.y16_to_y8 = Y16ToY8Row_Any_SSSE3;
    k.y16_to_bgra = Y16ToBGRARow_Any_SSSE3;
    k.depth_shift = DepthShiftRow_Any_SSSE3;
    k.depth_to_float = DepthToFloatRow_Any_SSSE3;
    k.float_to_depth = FloatToDepthRow_Any_SSSE3;
    k.mirror1 = MirrorRow_Any_SSSE3;
    k.mirror2 = MirrorRow2_Any_SSSE3;
    k.mirror3 = MirrorRow3_Any_SSSE3;
    k.mirror4 = MirrorRow4_Any_SSSE3;
    k.mirror8 = MirrorRow8_Any_SSSE3;
    k.bgra_to_y8 = BGRAToY8Row_Any_SSSE3;
    k.rgba_to_y8 = RGBAToY8Row_Any_SSSE3;
    k.bgr_to_y8 = BGRToY8Row_Any_SSSE3;
    k.rgb_to_y8 = RGBToY8Row_Any_SSSE3;
    k.rotate90 = RotatePlane90_SSSE3;
    k.rotate270 = RotatePlane270_SSSE3;
  }
  if (cpu_features & kCpuHasAVX2) {
    k.yuy2_to_bgra = YUY2ToBGRARow_Any_AVX2;
    k.yuy2_to_rgba = YUY2ToRGBARow_Any_AVX2;
    k.yuy2_to_bgr = YUY2ToBGRRow_Any_AVX2;
    k.yuy2_to_rgb = YUY2ToRGBRow_Any_AVX2;
    k.yuy2_to_y8 = YUY2ToY8Row_Any_AVX2;
    k.yuy2_to_uv = YUY2ToUVRow_Any_AVX2;
    k.nv12_to_yuy2 = NV12ToYUY2Row_Any_AVX2;
    k.bgra_to_yuy2 = BGRAToYUY2Row_Any_AVX2;
    k.rgba_to_yuy2 = RGBAToYUY2Row_Any_AVX2;
    k.bgr_to_yuy2 = BGRToYUY2Row_Any_AVX2;
    k.rgb_to_yuy2 = RGBToYUY2Row_Any_AVX2;
    k.swap_rb4 = BGRAToRGBARow_Any_AVX2;
    k.y8_to_y16 = Y8ToY16Row_Any_AVX2;
    k.y16_to_y8 = Y16ToY8Row_Any_AVX2;
    k.depth_shift = DepthShiftRow_Any_AVX2;
    k.depth_to_float = DepthToFloatRow_Any_AVX2;
    k.float_to_depth = FloatToDepthRow_Any_AVX2;
    k.mirror1 = MirrorRow_Any_AVX2;
    k.mirror2 = MirrorRow2_Any_AVX2;
    k.mirror4 = MirrorRow4_Any_AVX2;
    k.mirror8 = MirrorRow8_Any_AVX2;
    k.mirror_yuy2 = MirrorYUY2Row_Any_AVX2;
    k.rotate90 = RotatePlane90_AVX2;
    k.rotate270 = RotatePlane270_AVX2;
    k.bgra_to_y8 = BGRAToY8Row_Any_AVX2;
    k.rgba_to_y8 = RGBAToY8Row_Any_AVX2;
    k.bgr_to_y8 = BGRToY8Row_Any_AVX2;
    k.rgb_to_y8 = RGBToY8Row_Any_AVX2;
  }
  if (cpu_features & kCpuHasAVX512BW) {
    k.yuy2_to_bgra = YUY2ToBGRARow_Any_AVX512;
    k.yuy2_to_rgba = YUY2ToRGBARow_Any_AVX512;
    k.mirror1 = MirrorRow_Any_AVX512;
    k.mirror2 = MirrorRow2_Any_AVX512;
    k.mirror4 = MirrorRow4_Any_AVX512;
    k.mirror8 = MirrorRow8_Any_AVX512;
    k.yuy2_to_bgr = YUY2ToBGRRow_Any_AVX512;
    k.yuy2_to_rgb = YUY2ToRGBRow_Any_AVX512;
    k.bgra_to_yuy2 = BGRAToYUY2Row_Any_AVX512;
    k.rgba_to_yuy2 = RGBAToYUY2Row_Any_AVX512;
    k.bgr_to_yuy2 = BGRToYUY2Row_Any_AVX512;
    k.rgb_to_yuy2 = RGBToYUY2Row_Any_AVX512;
    k.swap_rb4 = BGRAToRGBARow_Any_AVX512;
    k.bgra_to_y8 = BGRAToY8Row_Any_AVX512;
    k.rgba_to_y8 = RGBAToY8Row_Any_AVX512;
    k.bgr_to_y8 = BGRToY8Row_Any_AVX512;
    k.rgb_to_y8 = RGBToY8Row_Any_AVX512;
  }
  // VNNI rows also use AVX-512BW, so a mask that drops BW drops them too.
  if ((cpu_features & kCpuHasAVX512BW) && (cpu_features & kCpuHasAVX512VNNI)) {
    k.yuy2_to_bgra = YUY2ToBGRARow_Any_AVX512VNNI;
    k.yuy2_to_rgba = YUY2ToRGBARow_Any_AVX512VNNI;
    k.yuy2_to_bgr = YUY2ToBGRRow_Any_AVX512VNNI;
    k.yuy2_to_rgb = YUY2ToRGBRow_Any_AVX512VNNI;
  }
  return k;
}

const RowKernels& ActiveRowKernels() { return g_active.Get(); }

namespace {
// Fill the table at load so the first conversion does not pay for detection.
const bool g_initialised_at_load = (ActiveRowKernels(), true);
}  // namespace

}  // namespace lmx
