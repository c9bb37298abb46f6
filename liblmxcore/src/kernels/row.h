// row.h: the row functions of the pixel kernels.
//
// A row function converts one row of `width` pixels from `src` to `dst`. Names
// carry the variant: the `_C` body is the scalar reference that every SIMD
// variant (`_SSSE3`, `_AVX2`, added beside it with the same signature) must match
// bit for bit. Row functions read exactly the bytes of the row they are given and
// write exactly the bytes of the destination row; they never check arguments
// (the plane drivers of pixel_kernels.h do). Multi-byte samples (16-bit, float)
// are native-endian and may sit at any address: rows load and store them through
// memcpy, so odd pitches are allowed.
//
// Where one body serves several format pairs (a channel swap is its own inverse),
// the name gives one direction and the comment the others.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lmx {

// --- Packed 4:2:2 luma-chroma (YUY2: Y0 U Y1 V per pixel pair) ---------------

// To four-channel colour with the fixed-point studio-range formula (ycc_math.h),
// fourth byte `alpha`. An odd last pixel takes its own Y, the U byte after it and
// the V of the preceding pair, so the width must be at least 2.
void YUY2ToBGRARow_C(const uint8_t* src_yuy2, uint8_t* dst_bgra, int width, uint8_t alpha);
void YUY2ToRGBARow_C(const uint8_t* src_yuy2, uint8_t* dst_rgba, int width, uint8_t alpha);
// The same formula without alpha; same odd-pixel rule.
void YUY2ToBGRRow_C(const uint8_t* src_yuy2, uint8_t* dst_bgr, int width);
void YUY2ToRGBRow_C(const uint8_t* src_yuy2, uint8_t* dst_rgb, int width);
// Luma extraction.
void YUY2ToY8Row_C(const uint8_t* src_yuy2, uint8_t* dst_y, int width);
// Chroma of two YUY2 rows averaged into one interleaved UV row of `width` bytes:
// (a + b + 1) >> 1 per byte; an odd last pixel contributes its U byte.
void YUY2ToUVRow_C(const uint8_t* src_yuy2_0, const uint8_t* src_yuy2_1, uint8_t* dst_uv, int width);
// One luma row and one interleaved chroma row to YUY2: pair i becomes the bytes
// y[2i], uv[2i] (U), y[2i + 1], uv[2i + 1] (V). An odd last pixel is not written.
void NV12ToYUY2Row_C(const uint8_t* src_y, const uint8_t* src_uv, uint8_t* dst_yuy2, int width);

// Colour to YUY2 (studio range, ycc_math.h): per-pixel luma, chroma of the pair
// from the sum of both pixels; an odd last pixel writes its Y and its own U.
void BGRAToYUY2Row_C(const uint8_t* src_bgra, uint8_t* dst_yuy2, int width);
void RGBAToYUY2Row_C(const uint8_t* src_rgba, uint8_t* dst_yuy2, int width);
void BGRToYUY2Row_C(const uint8_t* src_bgr, uint8_t* dst_yuy2, int width);
void RGBToYUY2Row_C(const uint8_t* src_rgb, uint8_t* dst_yuy2, int width);

// --- Channel reorders ----------------------------------------------------------

// Bytes 2,1,0,3: BGRA<->RGBA, and the red-blue swap of four-channel exports.
void BGRAToRGBARow_C(const uint8_t* src, uint8_t* dst, int width);
// Bytes 2,1,0: BGR<->RGB, and the red-blue swap of three-channel exports.
void BGRToRGBRow_C(const uint8_t* src, uint8_t* dst, int width);
// Drop alpha keeping order: BGRA->BGR, RGBA->RGB.
void BGRAToBGRRow_C(const uint8_t* src, uint8_t* dst, int width);
// Drop alpha and swap: BGRA->RGB, RGBA->BGR.
void BGRAToRGBRow_C(const uint8_t* src, uint8_t* dst, int width);
// Add alpha 255 keeping order: BGR->BGRA, RGB->RGBA.
void BGRToBGRARow_C(const uint8_t* src, uint8_t* dst, int width);
// Add alpha 255 and swap: BGR->RGBA, RGB->BGRA.
void BGRToRGBARow_C(const uint8_t* src, uint8_t* dst, int width);

// --- Grey --------------------------------------------------------------------

// Weighted grey from colour with the float weights 0.114 blue, 0.587 green,
// 0.299 red applied in the source's channel order: y = (int)(sum + 0.5f),
// clamped to 255 (the weights sum to 1, so only float error can exceed it).
void BGRAToY8Row_C(const uint8_t* src_bgra, uint8_t* dst_y, int width);
void RGBAToY8Row_C(const uint8_t* src_rgba, uint8_t* dst_y, int width);
void BGRToY8Row_C(const uint8_t* src_bgr, uint8_t* dst_y, int width);
void RGBToY8Row_C(const uint8_t* src_rgb, uint8_t* dst_y, int width);
// Grey replicated into three channels (BGR and RGB alike).
void Y8ToBGRRow_C(const uint8_t* src_y, uint8_t* dst_bgr, int width);
// 8 to 16 bits: v * 257, so 0 -> 0 and 255 -> 65535 and narrowing gives v back.
void Y8ToY16Row_C(const uint8_t* src_y8, uint8_t* dst_y16, int width);
// 16 to 8 bits: v >> 8.
void Y16ToY8Row_C(const uint8_t* src_y16, uint8_t* dst_y8, int width);
// 16-bit grey (Y16, DEPTH, DEPTH(NATIVE)) to four-channel grey over 0..255:
// g = v >> 8 in the three colour bytes, alpha 255. Channel order does not
// matter, so BGRA and RGBA share it.
void Y16ToBGRARow_C(const uint8_t* src_y16, uint8_t* dst_bgra, int width);

// --- Depth ---------------------------------------------------------------------

// 16-bit depth shifted by `shift` bits: left when positive (saturating at 65535),
// right when negative (dropping the low bits).
void DepthShiftRow_C(const uint8_t* src_u16, uint8_t* dst_u16, int width, int shift);
// 16-bit depth to float: v * scale (scale 1 is a plain widening).
void DepthToFloatRow_C(const uint8_t* src_u16, uint8_t* dst_f32, int width, float scale);
// Float depth to 16 bits: v * factor rounded to nearest (halves away from zero),
// saturated to 0..65535; NaN gives 0.
void FloatToDepthRow_C(const uint8_t* src_f32, uint8_t* dst_u16, int width, float factor);

// --- Copy, fill, mirror ----------------------------------------------------------

void CopyRow_C(const uint8_t* src, uint8_t* dst, int count);
void SetRow_C(uint8_t* dst, uint8_t value, int count);
// Left-right mirror of pixels of 1, 2, 3, 4 and 8 bytes.
void MirrorRow_C(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow2_C(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow3_C(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow4_C(const uint8_t* src, uint8_t* dst, int width);
void MirrorRow8_C(const uint8_t* src, uint8_t* dst, int width);
// Left-right mirror of a YUY2 row. Luma is mirrored pixel by pixel. Destination
// pair j takes the U and V of the source pair holding pixel width-1-2j (the pixel
// that lands on its first position), so for even widths the pairs simply trade
// places with their chroma. With an odd width that source pair is the lone last
// pixel, which has a U but no V: its V comes from the pair before it; the lone
// destination pixel at the end takes the U of source pair 0.
void MirrorYUY2Row_C(const uint8_t* src_yuy2, uint8_t* dst_yuy2, int width);

// --- Rotation --------------------------------------------------------------------

// Rotates a plane of `width` x `height` pixels of `bpp` bytes (1, 2, 3, 4 or 8)
// clockwise by 90 or 270 degrees into a plane of `height` x `width` pixels.
// Plane-level because a rotation reads columns; pitches may be negative.
void RotatePlane90_C(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                     int bpp);
void RotatePlane270_C(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int width, int height,
                      int bpp);

}  // namespace lmx
