// plane_loop.h: argument checks and the row loop shared by the plane drivers.
// Row r of a plane starts at base + r * pitch (computed per row, so a negative
// pitch never steps a pointer outside the plane).
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/band_pool.h"
#include "kernels/pixel_kernels.h"
#include "lmxchecked.h"

namespace lmx::detail {

using namespace Norvik::Lumetra;

template <typename T>
inline T* Row(T* base, int32_t pitch, int32_t r) {
  return base + static_cast<ptrdiff_t>(r) * pitch;
}

// Null planes, non-positive sizes, and rows whose byte count does not fit `int`.
inline Status CheckPlane(const void* src, const void* dst, int32_t width, int32_t height, int32_t max_bpp) {
  if (!src || !dst) return LMX_STATUS_HANDLE_INVALID;
  if (width < 1 || height < 1) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (!IsSize32(CheckedMul(width, max_bpp))) return LMX_STATUS_PARAM_UNSUPPORTED;
  return LMX_STATUS_NO_ERROR;
}

// The work of `height` rows of `width` pixels, each moving `pixel_bytes` bytes
// (read plus written): what decides whether a plane is split into bands.
inline int64_t PlaneWork(int32_t width, int32_t height, int32_t pixel_bytes) {
  return static_cast<int64_t>(width) * height * pixel_bytes;
}

// Runs row(src_row, dst_row, width, extra...) over `height` rows, in bands
// across the conversion threads when the plane is large; `pixel_bytes` as for
// PlaneWork. Rows are independent, so bands of any size give the same bytes.
template <typename Fn, typename... Extra>
inline void ForEachRow(int32_t pixel_bytes, const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch,
                       int32_t width, int32_t height, Fn row, Extra... extra) {
  RunBands(height, 1, PlaneWork(width, height, pixel_bytes), [&](int32_t begin, int32_t end) {
    for (int32_t r = begin; r < end; ++r) row(Row(src, src_pitch, r), Row(dst, dst_pitch, r), width, extra...);
  });
}

// Checks, then runs a row function over the plane; `max_bpp` is the larger of
// the two sides' bytes per pixel (twice it sizes the work).
template <typename Fn, typename... Extra>
inline Status RunRows(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                      int32_t height, int32_t max_bpp, Fn row, Extra... extra) {
  if (Status sts = CheckPlane(src, dst, width, height, max_bpp); sts != LMX_STATUS_NO_ERROR) return sts;
  ForEachRow(2 * max_bpp, src, src_pitch, dst, dst_pitch, width, height, row, extra...);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace lmx::detail
