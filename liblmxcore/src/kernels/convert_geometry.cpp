// Plane drivers that move pixels: copy, fill, mirror and rotation.
#include "kernels/dispatch.h"
#include "kernels/pixel_kernels.h"
#include "kernels/plane_loop.h"

namespace lmx {

using namespace detail;

namespace {

RowFn MirrorRowFor(const RowKernels& k, int32_t bpp) {
  switch (bpp) {
    case 1:
      return k.mirror1;
    case 2:
      return k.mirror2;
    case 3:
      return k.mirror3;
    case 4:
      return k.mirror4;
    case 8:
      return k.mirror8;
    default:
      return nullptr;
  }
}

// Rotation bands hold whole 64-pixel column groups, a multiple of every
// transpose tile's width, so only the last band has partial tiles.
constexpr int32_t kRotateGrain = 64;

bool IsRotatablePixelSize(int32_t bpp) { return bpp == 1 || bpp == 2 || bpp == 3 || bpp == 4 || bpp == 8; }

}  // namespace

Status CopyPlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t row_bytes,
                 int32_t height) {
  if (Status sts = CheckPlane(src, dst, row_bytes, height, 1); sts != LMX_STATUS_NO_ERROR) return sts;
  if (src == dst && src_pitch == dst_pitch) return LMX_STATUS_NO_ERROR;
  // Rows without padding on both sides are one contiguous block: one call.
  const RowFn copy = ActiveRowKernels().copy;
  if (src_pitch == row_bytes && dst_pitch == row_bytes) {
    RunBands(height, 1, PlaneWork(row_bytes, height, 2), [&](int32_t begin, int32_t end) {
      const int64_t bytes = static_cast<int64_t>(row_bytes) * (end - begin);
      if (bytes <= std::numeric_limits<int>::max()) {
        copy(Row(src, src_pitch, begin), Row(dst, dst_pitch, begin), static_cast<int>(bytes));
      } else {
        for (int32_t r = begin; r < end; ++r) copy(Row(src, src_pitch, r), Row(dst, dst_pitch, r), row_bytes);
      }
    });
    return LMX_STATUS_NO_ERROR;
  }
  ForEachRow(2, src, src_pitch, dst, dst_pitch, row_bytes, height, copy);
  return LMX_STATUS_NO_ERROR;
}

Status FillPlane(uint8_t* dst, int32_t dst_pitch, int32_t row_bytes, int32_t height, uint8_t value) {
  if (Status sts = CheckPlane(dst, dst, row_bytes, height, 1); sts != LMX_STATUS_NO_ERROR) return sts;
  const SetRowFn set = ActiveRowKernels().set;
  for (int32_t r = 0; r < height; ++r) set(Row(dst, dst_pitch, r), value, row_bytes);
  return LMX_STATUS_NO_ERROR;
}

Status MirrorPlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                   int32_t height, int32_t bpp, int32_t axis) {
  if (bpp < 1) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (Status sts = CheckPlane(src, dst, width, height, bpp); sts != LMX_STATUS_NO_ERROR) return sts;
  const RowKernels& k = ActiveRowKernels();
  if (axis == kMirrorTopBottom) {
    if (src_pitch == std::numeric_limits<int32_t>::min()) return LMX_STATUS_PARAM_UNSUPPORTED;
    // Walk the source from its last row upward; each row is copied as it is.
    const int32_t row_bytes = width * bpp;
    ForEachRow(2, Row(src, src_pitch, height - 1), -src_pitch, dst, dst_pitch, row_bytes, height, k.copy);
    return LMX_STATUS_NO_ERROR;
  }
  if (axis != kMirrorLeftRight) return LMX_STATUS_PARAM_UNSUPPORTED;
  const RowFn row = MirrorRowFor(k, bpp);
  if (!row) return LMX_STATUS_PARAM_UNSUPPORTED;
  ForEachRow(2 * bpp, src, src_pitch, dst, dst_pitch, width, height, row);
  return LMX_STATUS_NO_ERROR;
}

Status MirrorYUY2Plane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                       int32_t height) {
  return RunRows(src, src_pitch, dst, dst_pitch, width, height, 2, ActiveRowKernels().mirror_yuy2);
}

Status RotatePlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t width,
                   int32_t height, int32_t bpp, int32_t degrees) {
  if (!IsRotatablePixelSize(bpp)) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (Status sts = CheckPlane(src, dst, width, height, bpp); sts != LMX_STATUS_NO_ERROR) return sts;
  // The destination's rows are `height` pixels long for 90 and 270 degrees.
  if (static_cast<int64_t>(height) * bpp > std::numeric_limits<int>::max()) return LMX_STATUS_PARAM_UNSUPPORTED;
  if (src_pitch == std::numeric_limits<int32_t>::min()) return LMX_STATUS_PARAM_UNSUPPORTED;
  const RowKernels& k = ActiveRowKernels();
  switch (degrees) {
    case 0:
      ForEachRow(2, src, src_pitch, dst, dst_pitch, width * bpp, height, k.copy);
      return LMX_STATUS_NO_ERROR;
    case 90:
      // Destination row x is source column x: bands of destination rows are
      // bands of source columns, each rotated as an image of its own.
      RunBands(width, kRotateGrain, PlaneWork(width, height, 2 * bpp), [&](int32_t begin, int32_t end) {
        k.rotate90(src + static_cast<ptrdiff_t>(begin) * bpp, src_pitch, Row(dst, dst_pitch, begin), dst_pitch,
                   end - begin, height, bpp);
      });
      return LMX_STATUS_NO_ERROR;
    case 180:
      // Rows bottom-up, each mirrored left-right.
      ForEachRow(2 * bpp, Row(src, src_pitch, height - 1), -src_pitch, dst, dst_pitch, width, height,
                 MirrorRowFor(k, bpp));
      return LMX_STATUS_NO_ERROR;
    case 270:
      // Destination row x is source column width - 1 - x.
      RunBands(width, kRotateGrain, PlaneWork(width, height, 2 * bpp), [&](int32_t begin, int32_t end) {
        k.rotate270(src + static_cast<ptrdiff_t>(width - end) * bpp, src_pitch, Row(dst, dst_pitch, begin), dst_pitch,
                    end - begin, height, bpp);
      });
      return LMX_STATUS_NO_ERROR;
    default:
      return LMX_STATUS_PARAM_UNSUPPORTED;
  }
}

}  // namespace lmx
