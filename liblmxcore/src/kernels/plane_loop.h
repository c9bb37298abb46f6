// plane_loop.h: argument checks and the row loop shared by the plane drivers.
// Row r of a plane starts at base + r * pitch (computed per row, so a negative
// pitch never steps a pointer outside the plane).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "kernels/pixel_kernels.h"

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
  if (static_cast<int64_t>(width) * max_bpp > std::numeric_limits<int>::max()) return LMX_STATUS_PARAM_UNSUPPORTED;
  return LMX_STATUS_NO_ERROR;
}

// Runs row(src_row, dst_row, width, extra...) over `height` rows.
template <typename Fn, typename... Extra>
inline void ForEachRow(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                       int32_t height, Fn row, Extra... extra) {
  for (int32_t r = 0; r < height; ++r) row(Row(src, src_pitch, r), Row(dst, dst_pitch, r), width, extra...);
}

// Checks, then runs a row function over the plane; `max_bpp` is the larger of
// the two sides' bytes per pixel.
template <typename Fn, typename... Extra>
inline Status RunRows(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                      int32_t height, int32_t max_bpp, Fn row, Extra... extra) {
  if (Status sts = CheckPlane(src, dst, width, height, max_bpp); sts != LMX_STATUS_NO_ERROR) return sts;
  ForEachRow(src, src_pitch, dst, dst_pitch, width, height, row, extra...);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace lmx::detail
