// Moving pixels between an image and caller memory (ExportData, ImportData) or
// another image (CopyImage), through the access protocol so that any needed
// format conversion happens on the way.
#include <cstring>

#include "coreaccel_baseimage.h"
#include "lmxutils.h"

namespace lmx {

using namespace Norvik::Lumetra;

namespace {

constexpr int32_t kFlipVertically = 2;
constexpr int32_t kModePlain = 0;
constexpr int32_t kModeMirror = 1;
constexpr int32_t kModeSwapRedBlue = 4;
constexpr int32_t kModeMirrorAxis2 = 16;

// Side data copied before the content: the attachable formats, and the first of
// them again at 90, 180 and 270 degrees.
constexpr int32_t kSideDataKeys[] = {0x40000002, 0x40000003, 0x40000004, 0x4B400002, 0x56800002, 0x61C00002};

// Copies rows of width x bytes-per-pixel bytes of every plane set on both sides.
// With flip the source is walked from its last row upwards.
Status CopyPlanesPlain(const PlaneInfo& planes, int32_t count, const ImageData& src, const ImageData& dst,
                       bool flip) {
  for (int32_t c = 0; c < count; ++c) {
    if (!src.planes[c] || !dst.planes[c]) continue;
    const auto& plane = planes.plane[c];
    const size_t rowBytes = static_cast<size_t>(plane.width) * plane.bytesPerPixel;
    const uint8_t* srcRow = src.planes[c];
    ptrdiff_t srcPitch = src.pitches[c];
    if (flip && plane.height > 0) {
      srcRow += static_cast<ptrdiff_t>(plane.height - 1) * srcPitch;
      srcPitch = -srcPitch;
    }
    uint8_t* dstRow = dst.planes[c];
    for (uint32_t y = 0; y < plane.height; ++y, srcRow += srcPitch, dstRow += dst.pitches[c])
      std::memcpy(dstRow, srcRow, rowBytes);
  }
  return LMX_STATUS_NO_ERROR;
}

// Copies with the mode of an export or import. Modes other than plain need the
// mirror and reorder kernels.
Status CopyPlanesWithMode(const PlaneInfo& planes, int32_t count, const ImageData& src, const ImageData& dst,
                          int32_t format, int32_t options) {
  const bool flip = options & kFlipVertically;
  const int32_t mode = options & ~kFlipVertically;
  switch (mode) {
    case kModePlain:
      return CopyPlanesPlain(planes, count, src, dst, flip);
    case kModeSwapRedBlue:
      // Only three- and four-channel colour can swap red and blue.
      if ((format & ~0x200) != Image::PIXEL_FORMAT_BGR && (format & ~0x200) != Image::PIXEL_FORMAT_BGRA)
        return LMX_STATUS_PARAM_UNSUPPORTED;
      [[fallthrough]];
    case kModeMirror:
    case kModeMirrorAxis2:
      // TO BE REPLACED: run the mirror / channel-reorder kernels of the kernels
      // library here once they are merged. Until then these modes fail cleanly.
      return LMX_STATUS_FEATURE_UNSUPPORTED;
    default:
      return LMX_STATUS_PARAM_UNSUPPORTED;
  }
}

Status CheckCallerData(const ImageData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(data->format, LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(data->planes[0], LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(data->pitches[0], LMX_STATUS_PARAM_UNSUPPORTED);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

Status BaseImage::ExportData(ImageData* data, int32_t options) {
  LMX_CHECK_CALL(CheckCallerData(data));
  ImageData local{};
  Status sts = AcquireAccess(ACCESS_READ, static_cast<PixelFormat>(data->format), 0, &local);
  if (sts < 0) return sts;
  ImageInfo layout{info.width, info.height, data->format, 0};
  PlaneInfo planes{};
  const int32_t count = lmx::QueryPlaneInfo(&layout, 0, &planes);
  sts = CopyPlanesWithMode(planes, count, local, *data, data->format, options);
  ReleaseAccess(&local);
  return sts;
}

Status BaseImage::ImportData(ImageData* data, int32_t options) {
  LMX_CHECK_CALL(CheckCallerData(data));
  ImageData local{};
  Status sts = AcquireAccess(ACCESS_WRITE, static_cast<PixelFormat>(data->format), 0, &local);
  if (sts < 0) return sts;
  ImageInfo layout{info.width, info.height, data->format, 0};
  PlaneInfo planes{};
  const int32_t count = lmx::QueryPlaneInfo(&layout, 0, &planes);
  sts = CopyPlanesWithMode(planes, count, *data, local, data->format, options);
  ReleaseAccess(&local);
  return sts;
}

Status BaseImage::CopyImage(Image* src) {
  LMX_CHECK(src, LMX_STATUS_HANDLE_INVALID);
  LMX_TRACE("BaseImage::CopyImage");
  ImageInfo src_info{};
  ImageInfo dst_info = info;
  LMX_CHECK_CALL(src->QueryInfo(&src_info));
  LMX_CHECK(src_info.width == dst_info.width, LMX_STATUS_PARAM_UNSUPPORTED);
  LMX_CHECK(src_info.height == dst_info.height, LMX_STATUS_PARAM_UNSUPPORTED);

  // Side data the source lacks is passed over.
  for (int32_t key : kSideDataKeys) {
    ImageData from{};
    ImageData to{};
    if (src->AcquireAccess(ACCESS_READ, static_cast<PixelFormat>(key), 0, &from) < 0) continue;
    if (AcquireAccess(ACCESS_WRITE, static_cast<PixelFormat>(key), 0, &to) >= 0) {
      ImageInfo layout{dst_info.width, dst_info.height, key, 0};
      PlaneInfo planes{};
      CopyPlanesPlain(planes, lmx::QueryPlaneInfo(&layout, 0, &planes), from, to, false);
      ReleaseAccess(&to);
    }
    src->ReleaseAccess(&from);
  }

  ImageData from{};
  ImageData to{};
  Status sts = src->AcquireAccess(ACCESS_READ, static_cast<PixelFormat>(0), 0, &from);
  if (sts < 0) return sts;
  sts = AcquireAccess(ACCESS_WRITE, static_cast<PixelFormat>(from.format), 0, &to);
  if (sts >= 0) {
    ImageInfo layout{dst_info.width, dst_info.height, from.format, 0};
    PlaneInfo planes{};
    sts = CopyPlanesPlain(planes, lmx::QueryPlaneInfo(&layout, 0, &planes), from, to, false);
    ReleaseAccess(&to);
  }
  src->ReleaseAccess(&from);
  return sts;
}

}  // namespace lmx
