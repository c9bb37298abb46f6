// pixel_kernels.h: the plane drivers of the pixel kernels.
//
// A plane driver converts a whole image: it takes the source plane(s) with their
// pitches, the destination plane(s) with theirs, and the size in pixels, picks
// its row function once from the dispatch table (dispatch.h) and runs it over
// the rows. Conventions shared by every driver below:
//   - A pitch is the byte distance from one row to the next. It may exceed the
//     row's bytes (the padding is neither read nor written) and may be negative:
//     the plane pointer then names the first row to process and the rows are
//     walked upward (a vertical flip when only one side is negative).
//   - Only the rows and widths given are read or written.
//   - Source and destination must not overlap, except for the channel reorders
//     and CopyPlane, which may run in place (same pointer and pitch).
//   - Returns LMX_STATUS_HANDLE_INVALID for a null plane and
//     LMX_STATUS_PARAM_UNSUPPORTED for a width or height below 1 (or a row too
//     long for 32-bit byte counts), before touching memory; LMX_STATUS_NO_ERROR
//     otherwise. The YUY2 to four-channel drivers and NV12ToYUY2 have their own
//     rules, stated with them. Drivers do not log: the caller decides.
// Two-plane formats (NV12) have a luma plane of width x height bytes and an
// interleaved chroma plane of width bytes x height / 2 rows (fraction dropped).
#pragma once

#include <cstdint>

#include "lmxstatus.h"

namespace lmx {

using Norvik::Lumetra::Status;

// The own codes of the YUY2 to four-channel kernels.
inline constexpr Status kKernelNullPointer = static_cast<Status>(-8);
inline constexpr Status kKernelBadSize = static_cast<Status>(-6);

// --- Luma-chroma (convert_yuv.cpp) -----------------------------------------------

// YUY2 to BGRA / RGBA with the studio-range formula, fourth byte `alpha`.
// Returns -8 (kKernelNullPointer) for a null plane, -6 (kKernelBadSize) for a
// width below 2 or a height below 1, 0 otherwise; checks come first.
Status YUY2ToBGRA(const uint8_t* src_yuy2, int32_t src_step, uint8_t* dst_bgra, int32_t dst_step, int32_t width,
                  int32_t height, uint8_t alpha);
Status YUY2ToRGBA(const uint8_t* src_yuy2, int32_t src_step, uint8_t* dst_rgba, int32_t dst_step, int32_t width,
                  int32_t height, uint8_t alpha);
// YUY2 to BGR / RGB with the same formula (odd last pixel as in row.h; a width
// of 1 is refused like the four-channel kernels, as the last pixel needs the
// preceding pair's V).
Status YUY2ToBGR(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_bgr, int32_t dst_pitch, int32_t width,
                 int32_t height);
Status YUY2ToRGB(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_rgb, int32_t dst_pitch, int32_t width,
                 int32_t height);
// Luma extraction.
Status YUY2ToY8(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_y, int32_t dst_pitch, int32_t width,
                int32_t height);
// 4:2:2 to 4:2:0: luma copied; chroma row j is the rounded average of the chroma
// of rows 2j and 2j+1, for j < height / 2. An odd last row contributes its luma
// only: the chroma plane has no row for it.
Status YUY2ToNV12(const uint8_t* src_yuy2, int32_t src_pitch, uint8_t* dst_y, int32_t dst_y_pitch, uint8_t* dst_uv,
                  int32_t dst_uv_pitch, int32_t width, int32_t height);
// 4:2:0 to 4:2:2 without interpolation: row r takes chroma row r / 2 (the chroma
// row advances after every odd row). Pixel pairs only: an odd last column of the
// destination is left as it was. A height below 1 does nothing and succeeds; a
// width below 2 writes nothing. The last row of an odd height would need chroma
// row height / 2, which the plane does not have; it takes the last chroma row
// instead (or neutral chroma 128 when the image is one row high).
Status NV12ToYUY2(const uint8_t* src_y, int32_t src_y_pitch, const uint8_t* src_uv, int32_t src_uv_pitch,
                  uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width, int32_t height);
// NV12ToYUY2 and then, from the YUY2 it wrote, YUY2ToBGRA (opaque), YUY2ToRGBA
// (opaque), YUY2ToBGR or YUY2ToRGB as `order` says, row after row: both
// destinations hold the bytes of the two calls, with one pass over memory. A
// width below 2, a height below 1, an unknown order and rows too long are
// refused with LMX_STATUS_PARAM_UNSUPPORTED, before touching memory.
inline constexpr int32_t kColourBGRA = 0, kColourRGBA = 1, kColourBGR = 2, kColourRGB = 3;
Status NV12ToYUY2ToColour(const uint8_t* src_y, int32_t src_y_pitch, const uint8_t* src_uv, int32_t src_uv_pitch,
                          uint8_t* dst_yuy2, int32_t dst_yuy2_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                          int32_t height, int32_t order);
// Colour to YUY2 (studio range; coefficients and rounding in ycc_math.h).
Status BGRAToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                  int32_t height);
Status RGBAToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                  int32_t height);
Status BGRToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                 int32_t height);
Status RGBToYUY2(const uint8_t* src, int32_t src_pitch, uint8_t* dst_yuy2, int32_t dst_pitch, int32_t width,
                 int32_t height);

// --- Colour and grey (convert_rgb.cpp) -------------------------------------------

// Channel reorders; each serves the pair named and its mirror image.
Status BGRAToRGBA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                  int32_t height);  // also RGBA->BGRA
Status BGRToRGB(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                int32_t height);  // also RGB->BGR
Status BGRAToBGR(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height);  // also RGBA->RGB
Status BGRAToRGB(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height);  // also RGBA->BGR
Status BGRToBGRA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height);  // also RGB->RGBA, alpha 255
Status BGRToRGBA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                 int32_t height);  // also RGB->BGRA, alpha 255
// Channel order 2, 1, 0 (, 3) for 3 or 4 channels; other counts are refused
// with LMX_STATUS_PARAM_UNSUPPORTED.
Status ReorderChannels(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                       int32_t height, int32_t channels);
// Weighted grey (weights and rounding in row.h).
Status BGRAToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
Status RGBAToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
Status BGRToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
Status RGBToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
// Grey replicated into three channels (BGR or RGB).
Status Y8ToBGR(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);

// --- Grey 16-bit and depth (convert_depth.cpp) ------------------------------------

// Luma copied, chroma plane (width bytes x height / 2 rows) filled with 128.
Status Y8ToNV12(const uint8_t* src, int32_t src_pitch, uint8_t* dst_y, int32_t dst_y_pitch, uint8_t* dst_uv,
                int32_t dst_uv_pitch, int32_t width, int32_t height);
// v * 257 (so narrowing returns v).
Status Y8ToY16(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
// v >> 8.
Status Y16ToY8(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
// 16-bit grey or depth to four-channel grey: v >> 8 in each colour byte, alpha
// 255 (the whole 16-bit range maps linearly onto 0..255; BGRA and RGBA alike).
Status Y16ToBGRA(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height);
// Depth shifted left by `shift` (saturating) when positive, right when negative.
Status DepthShift(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width, int32_t height,
                  int32_t shift);
// 16-bit depth to float: v * scale.
Status DepthToFloat(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                    int32_t height, float scale);
// Float to 16-bit depth: v * factor rounded to nearest, saturated to 0..65535,
// NaN to 0.
Status FloatToDepth(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                    int32_t height, float factor);

// --- Geometry (convert_geometry.cpp) ----------------------------------------------

// Rows of `row_bytes` bytes copied as they are; in place is a no-op.
Status CopyPlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t row_bytes,
                 int32_t height);
// Every byte of `row_bytes` x `height` set to `value`.
Status FillPlane(uint8_t* dst, int32_t dst_pitch, int32_t row_bytes, int32_t height, uint8_t value);

// Mirror axes.
inline constexpr int32_t kMirrorLeftRight = 1;  // columns reversed in every row
inline constexpr int32_t kMirrorTopBottom = 2;  // rows reversed, bytes copied as they are
// Mirror of pixels of `bpp` bytes. Left-right supports 1, 2, 3, 4 and 8 bytes
// per pixel; top-bottom any size. Other sizes or axes: LMX_STATUS_PARAM_UNSUPPORTED.
Status MirrorPlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                   int32_t height, int32_t bpp, int32_t axis);
// Left-right mirror of YUY2 that keeps pixel pairs valid (chroma rule in row.h).
Status MirrorYUY2Plane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                       int32_t height);
// Clockwise rotation by 0, 90, 180 or 270 degrees of a plane of width x height
// pixels of `bpp` bytes (1, 2, 3, 4 or 8); for 90 and 270 the destination is
// height pixels wide and width rows high. Other angles or sizes:
// LMX_STATUS_PARAM_UNSUPPORTED.
Status RotatePlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                   int32_t height, int32_t bpp, int32_t degrees);

}  // namespace lmx
