// row_simd.h: the SIMD variants of the row functions of row.h.
//
// Same signatures and results as the `_C` rows, bit for bit. These are the
// any-width entry points (`_Any_SSSE3`, `_Any_AVX2`, `_Any_AVX512`): each runs
// its file's block body over the whole blocks and its tail through row_any.h.
// Call one only when CpuFeatures() has its instruction set; dispatch.cpp does
// the choosing. Rows without a variant here use the scalar row on every
// processor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lmx {

// --- SSSE3 (row_ssse3.cpp) -------------------------------------------------------

void YUY2ToBGRARow_Any_SSSE3(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha);
void YUY2ToRGBARow_Any_SSSE3(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha);
void YUY2ToBGRRow_Any_SSSE3(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width);
void YUY2ToRGBRow_Any_SSSE3(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width);
void YUY2ToY8Row_Any_SSSE3(const uint8_t* src_yuy2, uint8_t* dst_y, int width);
void YUY2ToUVRow_Any_SSSE3(const uint8_t* src_yuy2_0, const uint8_t* src_yuy2_1, uint8_t* dst_uv, int width);
void NV12ToYUY2Row_Any_SSSE3(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst_yuy2, int width);
void BGRAToYUY2Row_Any_SSSE3(const uint8_t* src_bgra, uint8_t* dst_yuy2, int width);
void RGBAToYUY2Row_Any_SSSE3(const uint8_t* src_rgba, uint8_t* dst_yuy2, int width);
void BGRToYUY2Row_Any_SSSE3(const uint8_t* src_bgr, uint8_t* dst_yuy2, int width);
void RGBToYUY2Row_Any_SSSE3(const uint8_t* src_rgb, uint8_t* dst_yuy2, int width);
void BGRAToRGBARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void BGRToRGBRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void BGRAToBGRRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void BGRAToRGBRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void BGRToBGRARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void BGRToRGBARow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void Y8ToBGRRow_Any_SSSE3(const uint8_t* src_y, uint8_t* dst_bgr, int width);
void Y8ToY16Row_Any_SSSE3(const uint8_t* src_y8, uint8_t* dst_y16, int width);
void Y16ToY8Row_Any_SSSE3(const uint8_t* src_y16, uint8_t* dst_y8, int width);
void Y16ToBGRARow_Any_SSSE3(const uint8_t* src_y16, uint8_t* dst_bgra, int width);
void DepthShiftRow_Any_SSSE3(const uint8_t* src_u16, uint8_t* dst_u16, int width, int shift);
void DepthToFloatRow_Any_SSSE3(const uint8_t* src_u16, uint8_t* dst_f32, int width, float scale);
void FloatToDepthRow_Any_SSSE3(const uint8_t* src_f32, uint8_t* dst_u16, int width, float factor);
void BGRAToY8Row_Any_SSSE3(const uint8_t* src_bgra, uint8_t* dst_y, int width);
void RGBAToY8Row_Any_SSSE3(const uint8_t* src_rgba, uint8_t* dst_y, int width);
void BGRToY8Row_Any_SSSE3(const uint8_t* src_bgr, uint8_t* dst_y, int width);
void RGBToY8Row_Any_SSSE3(const uint8_t* src_rgb, uint8_t* dst_y, int width);

// --- SSSE3 geometry (row_ssse3_geometry.cpp) --------------------------------------

void MirrorRow_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow2_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow3_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow4_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow8_Any_SSSE3(const uint8_t* src, uint8_t* dst, int width);
// Plane rotations (row.h): blocked SIMD transposes for 1, 2, 4 and 8 bytes per
// pixel, the scalar rotation for 3.
void RotatePlane90_SSSE3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                         int height, int bpp);
void RotatePlane270_SSSE3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                          int height, int bpp);

// --- AVX2 (row_avx2.cpp) ---------------------------------------------------------

void YUY2ToBGRARow_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha);
void YUY2ToRGBARow_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha);
void YUY2ToBGRRow_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width);
void YUY2ToRGBRow_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width);
void YUY2ToY8Row_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_y, int width);
void YUY2ToUVRow_Any_AVX2(const uint8_t* src_yuy2_0, const uint8_t* src_yuy2_1, uint8_t* dst_uv, int width);
void NV12ToYUY2Row_Any_AVX2(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst_yuy2, int width);
void BGRAToYUY2Row_Any_AVX2(const uint8_t* src_bgra, uint8_t* dst_yuy2, int width);
void RGBAToYUY2Row_Any_AVX2(const uint8_t* src_rgba, uint8_t* dst_yuy2, int width);
void BGRToYUY2Row_Any_AVX2(const uint8_t* src_bgr, uint8_t* dst_yuy2, int width);
void RGBToYUY2Row_Any_AVX2(const uint8_t* src_rgb, uint8_t* dst_yuy2, int width);
void BGRAToRGBARow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width);
void Y8ToY16Row_Any_AVX2(const uint8_t* src_y8, uint8_t* dst_y16, int width);
void Y16ToY8Row_Any_AVX2(const uint8_t* src_y16, uint8_t* dst_y8, int width);
void DepthShiftRow_Any_AVX2(const uint8_t* src_u16, uint8_t* dst_u16, int width, int shift);
void DepthToFloatRow_Any_AVX2(const uint8_t* src_u16, uint8_t* dst_f32, int width, float scale);
void FloatToDepthRow_Any_AVX2(const uint8_t* src_f32, uint8_t* dst_u16, int width, float factor);
void BGRAToY8Row_Any_AVX2(const uint8_t* src_bgra, uint8_t* dst_y, int width);
void RGBAToY8Row_Any_AVX2(const uint8_t* src_rgba, uint8_t* dst_y, int width);
void BGRToY8Row_Any_AVX2(const uint8_t* src_bgr, uint8_t* dst_y, int width);
void RGBToY8Row_Any_AVX2(const uint8_t* src_rgb, uint8_t* dst_y, int width);

// --- AVX2 geometry (row_avx2_geometry.cpp) ----------------------------------------

void MirrorRow_Any_AVX2(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow2_Any_AVX2(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow4_Any_AVX2(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow8_Any_AVX2(const uint8_t* src, uint8_t* dst, int width);
void MirrorYUY2Row_Any_AVX2(const uint8_t* src_yuy2, uint8_t* dst_yuy2, int width);
// Plane rotations (row.h): blocked SIMD transposes for every pixel size.
void RotatePlane90_AVX2(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                        int height, int bpp);
void RotatePlane270_AVX2(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width,
                         int height, int bpp);

// --- AVX-512 F/BW/VL (row_avx512.cpp) -----------------------------------------------

void YUY2ToBGRARow_Any_AVX512(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha);
void YUY2ToRGBARow_Any_AVX512(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha);
void YUY2ToBGRRow_Any_AVX512(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width);
void YUY2ToRGBRow_Any_AVX512(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width);
void BGRAToYUY2Row_Any_AVX512(const uint8_t* src_bgra, uint8_t* dst_yuy2, int width);
void RGBAToYUY2Row_Any_AVX512(const uint8_t* src_rgba, uint8_t* dst_yuy2, int width);
void BGRToYUY2Row_Any_AVX512(const uint8_t* src_bgr, uint8_t* dst_yuy2, int width);
void RGBToYUY2Row_Any_AVX512(const uint8_t* src_rgb, uint8_t* dst_yuy2, int width);
void BGRAToRGBARow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width);
void BGRAToY8Row_Any_AVX512(const uint8_t* src_bgra, uint8_t* dst_y, int width);
void RGBAToY8Row_Any_AVX512(const uint8_t* src_rgba, uint8_t* dst_y, int width);
void BGRToY8Row_Any_AVX512(const uint8_t* src_bgr, uint8_t* dst_y, int width);
void RGBToY8Row_Any_AVX512(const uint8_t* src_rgb, uint8_t* dst_y, int width);

// --- AVX-512 with VNNI (row_avx512.cpp, target attribute) ---------------------------

void YUY2ToBGRARow_Any_AVX512VNNI(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha);
void YUY2ToRGBARow_Any_AVX512VNNI(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha);
void YUY2ToBGRRow_Any_AVX512VNNI(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width);
void YUY2ToRGBRow_Any_AVX512VNNI(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width);

// --- AVX-512 geometry (row_avx512_geometry.cpp) ------------------------------------

void MirrorRow_Any_AVX512(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow2_Any_AVX512(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow4_Any_AVX512(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow8_Any_AVX512(const uint8_t* src, uint8_t* dst, int width);

}  // namespace lmx
