// Plane drivers that move pixels: copy, fill, mirror and rotation.
#include "kernels/dispatch.h"
#include "kernels/pixel_kernels.h"
#include "kernels/plane_loop.h"

namespace lmx {

using namespace detail;

namespace {

RowFn MirrorRowFor(const RowKernels& k, int32_t bpp) {
  switch (bpp) {
    case 1: return k.mirror1;
    case 2: return k.mirror2;
    case 3: return k.mirror3;
    case 4: return k.mirror4;
    case 8: return k.mirror8;
    default: return nullptr;
  }
}

bool IsRotatablePixelSize(int32_t bpp) { return bpp == 1 || bpp == 2 || bpp == 3 || bpp == 4 || bpp == 8; }

}  // namespace

Status CopyPlane(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch, int32_t row_bytes,
                 int32_t height) {
  if (Status sts = CheckPlane(src, dst, row_bytes, height, 1); sts != LMX_STATUS_NO_ERROR) return sts;
  if (src == dst && src_pitch == dst_pitch) return LMX_STATUS_NO_ERROR;
  // Rows without padding on both sides are one contiguous block: one call.
  const int64_t total = static_cast<int64_t>(row_bytes) * height;
  if (src_pitch == row_bytes && dst_pitch == row_bytes && total <= std::numeric_limits<int>::max()) {
    ActiveRowKernels().copy(src, dst, static_cast<int>(total));
    return LMX_STATUS_NO_ERROR;
  }
  ForEachRow(src, src_pitch, dst, dst_pitch, row_bytes, height, ActiveRowKernels().copy);
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
    ForEachRow(Row(src, src_pitch, height - 1), -src_pitch, dst, dst_pitch, row_bytes, height, k.copy);
    return LMX_STATUS_NO_ERROR;
  }
  if (axis != kMirrorLeftRight) return LMX_STATUS_PARAM_UNSUPPORTED;
  const RowFn row = MirrorRowFor(k, bpp);
  if (!row) return LMX_STATUS_PARAM_UNSUPPORTED;
  ForEachRow(src, src_pitch, dst, dst_pitch, width, height, row);
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
      ForEachRow(src, src_pitch, dst, dst_pitch, width * bpp, height, k.copy);
      return LMX_STATUS_NO_ERROR;
    case 90:
      k.rotate90(src, src_pitch, dst, dst_pitch, width, height, bpp);
      return LMX_STATUS_NO_ERROR;
    case 180:
      // Rows bottom-up, each mirrored left-right.
      ForEachRow(Row(src, src_pitch, height - 1), -src_pitch, dst, dst_pitch, width, height, MirrorRowFor(k, bpp));
      return LMX_STATUS_NO_ERROR;
    case 270:
      k.rotate270(src, src_pitch, dst, dst_pitch, width, height, bpp);
      return LMX_STATUS_NO_ERROR;
    default:
      return LMX_STATUS_PARAM_UNSUPPORTED;
  }
}

}  // namespace lmx
