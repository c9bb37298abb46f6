// Moving pixels between an image and caller memory (ExportData, ImportData) or
// another image (CopyImage), through the access protocol so that any needed
// format conversion happens on the way.
#include "image/coreaccel_baseimage.h"
#include "kernels/pixel_kernels.h"
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
constexpr int32_t kSideDataKeys[] = {Image::PIXEL_FORMAT_ATTACHED_8BPP,
                                     Image::PIXEL_FORMAT_ATTACHED_2BPP,
                                     Image::PIXEL_FORMAT_DEPTH_CONFIDENCE,
                                     FormatKey(Image::PIXEL_FORMAT_ATTACHED_8BPP, 90),
                                     FormatKey(Image::PIXEL_FORMAT_ATTACHED_8BPP, 180),
                                     FormatKey(Image::PIXEL_FORMAT_ATTACHED_8BPP, 270)};
static_assert(kSideDataKeys[3] == 0x4B400002 && kSideDataKeys[5] == 0x61C00002);

// Copies one plane of width x height pixels of bpp bytes in a copy mode. The
// source pointer names the first row to read and its pitch may be negative (a
// vertical flip). Returns the kernel's status, or LMX_STATUS_PARAM_UNSUPPORTED
// for a mode the format or pixel size cannot take.
Status CopyPlaneInMode(int32_t mode, int32_t format, const uint8_t* src, int32_t srcPitch, uint8_t* dst,
                       int32_t dstPitch, int32_t width, int32_t height, int32_t bpp) {
  switch (mode) {
    case kModePlain:
      return CopyPlane(src, srcPitch, dst, dstPitch, width * bpp, height);
    case kModeMirror:
      // YUY2 keeps its pixel pairs; the 8-byte side data mirrors whole pixels.
      if (format == Image::PIXEL_FORMAT_YUY2) return MirrorYUY2Plane(src, srcPitch, dst, dstPitch, width, height);
      if (format == Image::PIXEL_FORMAT_ATTACHED_8BPP)
        return MirrorPlane(src, srcPitch, dst, dstPitch, width, height, 8, kMirrorLeftRight);
      LMX_CHECK(bpp >= 1 && bpp <= 4, LMX_STATUS_PARAM_UNSUPPORTED);
      return MirrorPlane(src, srcPitch, dst, dstPitch, width, height, bpp, kMirrorLeftRight);
    case kModeSwapRedBlue: {
      // Only three- and four-channel colour have red and blue to swap.
      LMX_CHECK(IsColour(format), LMX_STATUS_PARAM_UNSUPPORTED);
      return ReorderChannels(src, srcPitch, dst, dstPitch, width, height, bpp);
    }
    case kModeMirrorAxis2:
      // Rows treated as single-byte pixels, mirrored top to bottom.
      return MirrorPlane(src, srcPitch, dst, dstPitch, width * bpp, height, 1, kMirrorTopBottom);
    default:
      return LMX_STATUS_PARAM_UNSUPPORTED;
  }
}

// Copies every plane set on both sides with the mode of an export or import
// (options: bit 2 a vertical flip, the rest the mode). A mode other than 0, 1, 4
// and 16 copies nothing and answers LMX_STATUS_PARAM_UNSUPPORTED.
Status CopyPlanesWithMode(const PlaneInfo& planes, int32_t count, const ImageData& src, const ImageData& dst,
                          int32_t format, int32_t options) {
  const bool flip = options & kFlipVertically;
  const int32_t mode = options & ~kFlipVertically;
  LMX_CHECK(mode == kModePlain || mode == kModeMirror || mode == kModeSwapRedBlue || mode == kModeMirrorAxis2,
            LMX_STATUS_PARAM_UNSUPPORTED);
  for (int32_t c = 0; c < count; ++c) {
    if (!src.planes[c] || !dst.planes[c]) continue;
    // The plane query lets negative sizes through (an image described so, on
    // adopted planes): rows are walked only when width, height and row bytes are
    // sizes.
    const auto width = static_cast<int32_t>(planes.plane[c].width);
    const auto height = static_cast<int32_t>(planes.plane[c].height);
    const auto bpp = static_cast<int32_t>(planes.plane[c].bytesPerPixel);
    LMX_CHECK(width >= 0 && height >= 0 && IsSize32(CheckedMul(width, bpp)), LMX_STATUS_HANDLE_INVALID);
    const uint8_t* srcRow = src.planes[c];
    int32_t srcPitch = src.pitches[c];
    if (flip && height > 0) {
      srcRow += static_cast<ptrdiff_t>(height - 1) * srcPitch;
      srcPitch = -srcPitch;
    }
    const Status sts =
        CopyPlaneInMode(mode, format, srcRow, srcPitch, dst.planes[c], dst.pitches[c], width, height, bpp);
    if (sts < 0) return sts;
  }
  return LMX_STATUS_NO_ERROR;
}

// Plain copy of every plane of a format key between two acquired buffers.
Status CopyAllPlanes(const ImageInfo& info, int32_t key, const ImageData& src, const ImageData& dst) {
  ImageInfo layout{info.width, info.height, key, 0};
  PlaneInfo planes{};
  return CopyPlanesWithMode(planes, lmx::QueryPlaneInfo(&layout, 0, &planes), src, dst, key, kModePlain);
}

Status CheckCallerData(const ImageData* data) {
  LMX_CHECK(data, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(data->format, LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(data->planes[0], LMX_STATUS_HANDLE_INVALID);
  LMX_CHECK(data->pitches[0], LMX_STATUS_HANDLE_INVALID);
  return LMX_STATUS_NO_ERROR;
}

}  // namespace

Status BaseImage::ExportData(ImageData* data, int32_t options) try {
  LMX_CHECK_CALL(CheckCallerData(data));
  return TransferCallerData(ACCESS_READ, data, options);
}
LMX_EDGE_CATCH

Status BaseImage::ImportData(ImageData* data, int32_t options) try {
  LMX_CHECK_CALL(CheckCallerData(data));
  return TransferCallerData(ACCESS_WRITE, data, options);
}
LMX_EDGE_CATCH

// Acquires this image in the caller's format (reading converts, writing does not)
// and copies between its planes and the caller's in the direction of the access.
Status BaseImage::TransferCallerData(Access access, ImageData* data, int32_t options) {
  ImageData local{};
  Status sts = AcquireAccess(access, static_cast<PixelFormat>(data->format), 0, &local);
  if (sts < 0) return sts;
  ImageInfo layout{info.width, info.height, data->format, 0};
  PlaneInfo planes{};
  const int32_t count = lmx::QueryPlaneInfo(&layout, 0, &planes);
  const bool exporting = access == ACCESS_READ;
  sts = CopyPlanesWithMode(planes, count, exporting ? local : *data, exporting ? *data : local, data->format, options);
  ReleaseAccess(&local);
  return sts;
}

Status BaseImage::CopyImage(Image* src) try {
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
      CopyAllPlanes(dst_info, key, from, to);
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
    sts = CopyAllPlanes(dst_info, from.format, from, to);
    ReleaseAccess(&to);
  }
  src->ReleaseAccess(&from);
  return sts;
}
LMX_EDGE_CATCH

}  // namespace lmx
